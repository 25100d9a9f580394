#include "output/OutputFile.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarnview {

namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 16;

mode_t FileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666U & ~mask;
}

// A link stays a link: the file that it leads to is replaced. What is no file is written in place.
std::string FinalPath(const std::string& path) {
    std::error_code error;
    const auto target = std::filesystem::canonical(path, error);
    return error ? path : target.string();
}

// What is not complete goes when the program is ended from outside, too. A handler may read it:
// the text that it points to lives as long as it is set.
std::atomic<const char*> s_incomplete{nullptr};

void RemoveIncomplete(int signal) {
    const int error = errno;
    if (const char* const path = s_incomplete.load()) {
        unlink(path);
    }
    errno = error;
    // The handler is gone after its first call, so this ends the process as if there had been none.
    raise(signal);
}

// What the caller had the program ignore, as nohup does, stays ignored.
void RemoveIncompleteAtSignals() {
    for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction action {};

        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
            action.sa_handler = RemoveIncomplete;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            sigaction(signal, &action, nullptr);
        }
    }
}

bool IsReplaceable(const std::string& path) {
    struct stat status {};

    return stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

}  // namespace

OutputFile::OutputFile(const std::string& path)
    : m_path(path.empty() ? path : FinalPath(path)),
      m_buffer(bufferSize),
      m_stream(this) {
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
    if (m_path.empty()) {
        m_descriptor = STDOUT_FILENO;
    } else if (IsReplaceable(m_path)) {
        m_temporaryPath = m_path + ".XXXXXX";
        RemoveIncompleteAtSignals();
        m_descriptor = mkostemp(m_temporaryPath.data(), O_CLOEXEC);
    } else {
        m_descriptor = open(m_path.c_str(), O_WRONLY | O_CLOEXEC);
    }
    if (m_descriptor == -1) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    if (!m_temporaryPath.empty()) {
        s_incomplete = m_temporaryPath.c_str();
        fchmod(m_descriptor, FileMode());
    }
}

OutputFile::~OutputFile() {
    if (m_path.empty()) {
        WriteOut();
        return;
    }
    if (m_descriptor != -1) {
        close(m_descriptor);
        if (!m_temporaryPath.empty()) {
            unlink(m_temporaryPath.c_str());
            s_incomplete = nullptr;
        }
    }
}

void OutputFile::Commit() {
    WriteOut();
    if (m_path.empty()) {
        if (m_error != 0 && m_error != EPIPE) {
            throw std::system_error(m_error, std::generic_category(), "standard output");
        }
        return;
    }
    const int descriptor = std::exchange(m_descriptor, -1);
    if (m_error == 0 && !m_temporaryPath.empty() && fsync(descriptor) != 0) {
        m_error = errno;
    }
    if (close(descriptor) != 0 && m_error == 0) {
        m_error = errno;
    }
    if (m_error == 0 && !m_temporaryPath.empty() &&
        rename(m_temporaryPath.c_str(), m_path.c_str()) != 0) {
        m_error = errno;
    }
    if (m_error != 0 && !m_temporaryPath.empty()) {
        unlink(m_temporaryPath.c_str());
    }
    s_incomplete = nullptr;
    if (m_error != 0) {
        throw std::system_error(m_error, std::generic_category(), m_path);
    }
}

OutputFile::int_type OutputFile::overflow(int_type character) {
    if (!WriteOut()) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(character);
        pbump(1);
    }
    return traits_type::not_eof(character);
}

int OutputFile::sync() {
    return WriteOut() ? 0 : -1;
}

bool OutputFile::WriteOut() {
    const char* data = pbase();
    while (m_error == 0 && data != pptr()) {
        const ssize_t count = write(m_descriptor, data, static_cast<std::size_t>(pptr() - data));
        if (count >= 0) {
            data += count;
        } else if (errno != EINTR) {
            m_error = errno;
        }
    }
    setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
    return m_error == 0;
}

}  // namespace tarnview
