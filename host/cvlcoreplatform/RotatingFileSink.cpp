#include "RotatingFileSink.h"

#include "LogCounters.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <sys/uio.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace cvlcoreplatform {

namespace {

// Logs name users and hosts: readable for the group, for nobody else.
constexpr mode_t fileMode = 0640;

// A rotation that failed is not tried again with every line.
constexpr std::chrono::seconds rotationPause{1};

std::system_error LastError(const std::string& what) {
    return std::system_error(errno, std::generic_category(), what);
}

// Never one of the three standard descriptors: in a process that has closed its standard error
// stream, whatever is written there would end up in the log file.
FileDescriptor OpenForAppending(const std::string& path) noexcept {
    FileDescriptor file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, fileMode));
    if (file.IsOpen() && file.Get() <= STDERR_FILENO) {
        return FileDescriptor(fcntl(file.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    }
    return file;
}

// Of a file that this process may write but not read nothing is known; it is taken to be whole.
bool EndsInsideLine(const std::string& path, off_t size) noexcept {
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char last = '\n';
    return size > 0 && file.IsOpen() && pread(file.Get(), &last, 1, size - 1) == 1 && last != '\n';
}

// Keeps other processes from rotating the same file at the same time, as far as the file system
// knows locks. The lock belongs to the process, so that a forked child and its parent part ways,
// and ends at the latest when the file is closed.
class RotationLock {
public:
    explicit RotationLock(const FileDescriptor& file) noexcept : m_descriptor(file.Get()) {
        SetLock(F_WRLCK);
    }

    ~RotationLock() { SetLock(F_UNLCK); }

    RotationLock(const RotationLock&) = delete;
    RotationLock& operator=(const RotationLock&) = delete;

private:
    void SetLock(short type) const noexcept {
        struct flock lock {};

        lock.l_type = type;
        lock.l_whence = SEEK_SET;
        while (fcntl(m_descriptor, F_SETLKW, &lock) != 0 && errno == EINTR) {
        }
    }

    int m_descriptor;
};

}  // namespace

RotatingFileSink::RotatingFileSink(std::string path, TLog::LogFileLimits limits)
    : m_path(std::move(path)),
      m_limits(limits) {
    if (m_limits.maxBytes != 0 && m_limits.maxFiles == 0) {
        throw std::invalid_argument("a log file of limited size needs at least one full file");
    }
    FileDescriptor file = OpenForAppending(m_path);
    if (!file.IsOpen()) {
        throw LastError("cannot open log file " + m_path);
    }
    Adopt(std::move(file));
}

void RotatingFileSink::Adopt(FileDescriptor file) {
    struct stat status {};

    const bool known = fstat(file.Get(), &status) == 0;
    m_file = std::move(file);
    m_isRegular = known && S_ISREG(status.st_mode);
    m_size = m_isRegular ? static_cast<uint64>(status.st_size) : 0;
    m_endsInsideLine = m_isRegular && EndsInsideLine(m_path, status.st_size);
}

void RotatingFileSink::sink_it_(const spdlog::details::log_msg& msg) {
    const std::string_view line(msg.payload.data(), msg.payload.size());
    RotateIfFull(line.size() + 1);
    Append(line);
}

void RotatingFileSink::Append(std::string_view line) {
    const std::size_t lead = m_endsInsideLine ? 1 : 0;
    const std::size_t total = lead + line.size() + 1;
    std::size_t written = 0;
    while (written < total) {
        // Normally a single call takes all. The parts are written from memory that is not ours to
        // change, hence the casts.
        char lineEnd = '\n';
        std::array<iovec, 3> parts{iovec{&lineEnd, lead},
                                   iovec{const_cast<char*>(line.data()), line.size()},
                                   iovec{&lineEnd, 1}};
        std::size_t skip = written;
        for (iovec& part : parts) {
            const std::size_t done = std::min(skip, part.iov_len);
            part.iov_base = static_cast<char*>(part.iov_base) + done;
            part.iov_len -= done;
            skip -= done;
        }
        const ssize_t taken = writev(m_file.Get(), parts.data(), parts.size());
        if (taken > 0) {
            written += static_cast<std::size_t>(taken);
        } else if (taken == 0 || errno != EINTR) {
            const int reason = taken == 0 ? ENOSPC : errno;
            CutBack(written);
            throw std::system_error(reason, std::generic_category());
        }
    }
    m_size += total;
    m_endsInsideLine = false;
}

// Takes back the part of a line that was written. The descriptor stands behind it, whoever else
// appends to the file; what somebody else wrote after it stays, and a line end parts the two.
void RotatingFileSink::CutBack(std::size_t written) noexcept {
    if (written == 0) {
        return;
    }

    struct stat status {};

    const off_t end = lseek(m_file.Get(), 0, SEEK_CUR);
    const bool isLast =
        m_isRegular && end >= 0 && fstat(m_file.Get(), &status) == 0 && status.st_size == end;
    if (!isLast || ftruncate(m_file.Get(), end - static_cast<off_t>(written)) != 0) {
        m_size += written;
        m_endsInsideLine = true;
    }
}

void RotatingFileSink::RotateIfFull(std::size_t lineBytes) {
    if (m_limits.maxBytes == 0 || !m_isRegular || m_size == 0 ||
        m_size + lineBytes <= m_limits.maxBytes) {
        return;
    }
    const auto now = ErrorReporter::Clock::now();
    if (now < m_nextRotation) {
        return;
    }
    try {
        Rotate();
    } catch (const std::exception& error) {
        m_nextRotation = now + rotationPause;
        Count(logCounters.rotationErrors);
        m_rotationReporter.Report(now,
                                  "cannot begin a new log file",
                                  error.what(),
                                  logCounters.rotationErrors.load(std::memory_order_relaxed));
    }
}

void RotatingFileSink::Rotate() {
    {
        const RotationLock lock(m_file);
        // Otherwise somebody else has moved the file away already, for instance a forked child.
        if (IsStillAtItsPath()) {
            MoveAway();
        }
    }
    FileDescriptor file = OpenForAppending(m_path);
    if (!file.IsOpen()) {
        // The full file stays in use under its new name, and the next attempt only opens.
        throw LastError(m_path);
    }
    Adopt(std::move(file));
}

bool RotatingFileSink::IsStillAtItsPath() const noexcept {
    struct stat ours {};

    struct stat atPath {};

    return stat(m_path.c_str(), &atPath) == 0 && fstat(m_file.Get(), &ours) == 0 &&
           ours.st_dev == atPath.st_dev && ours.st_ino == atPath.st_ino;
}

// Full files move up into the first gap, so that only the oldest is ever replaced, and that only
// when there is no gap.
void RotatingFileSink::MoveAway() const {
    std::size_t last = 1;
    while (last < m_limits.maxFiles && access(PathOfFullFile(last).c_str(), F_OK) == 0) {
        ++last;
    }
    for (std::size_t number = last; number != 0; --number) {
        const std::string from = PathOfFullFile(number - 1);
        if (rename(from.c_str(), PathOfFullFile(number).c_str()) != 0) {
            throw LastError(from);
        }
    }
}

// The current file has the number 0.
std::string RotatingFileSink::PathOfFullFile(std::size_t number) const {
    if (number == 0) {
        return m_path;
    }
    const std::filesystem::path path(m_path);
    return (path.parent_path() / path.stem()).string() + "." + std::to_string(number) +
           path.extension().string();
}

}  // namespace cvlcoreplatform
