#include "read/InputFiles.h"

#include "read/Decompression.h"
#include "read/JournalLines.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <set>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace tarnview {

namespace {

struct RotatedFile {
    std::size_t number = 0;  // 0: the current one
    std::string path;
};

bool IsNumber(const std::string& text) {
    return !text.empty() && text.size() < 9 && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) != 0;
    });
}

// "a.3.log" is number 3 of "a.log", and "a.3" number 3 of "a".
std::pair<std::string, std::size_t> SetAndNumber(const std::string& name) {
    const std::string text(WithoutCompressedEnding(name));
    const std::filesystem::path path(text);
    const std::filesystem::path folder = path.parent_path();
    const std::string extension = path.extension().string();
    if (!extension.empty() && IsNumber(extension.substr(1))) {
        return {(folder / path.stem()).string(), std::stoul(extension.substr(1))};
    }
    const std::string number = path.stem().extension().string();
    if (!number.empty() && IsNumber(number.substr(1))) {
        return {(folder / path.stem().stem()).string() + extension, std::stoul(number.substr(1))};
    }
    return {text, 0};
}

// Of a file, from where it is read next; of what is no file nothing.
std::optional<std::string_view> CompressionAt(int descriptor) {
    char begin[signatureLength];
    const off_t place = lseek(descriptor, 0, SEEK_CUR);
    const ssize_t count = place < 0 ? 0 : pread(descriptor, begin, sizeof(begin), place);
    return CompressionOf({begin, count > 0 ? static_cast<std::size_t>(count) : 0});
}

// The same file under two names is one file.
std::string IdentityOf(const std::string& path) {
    struct stat status {};

    if (path == standardInput || stat(path.c_str(), &status) != 0) {
        return path;
    }
    return std::to_string(status.st_dev) + "/" + std::to_string(status.st_ino);
}

/// A file in memory, to be read from its beginning.
int FileOf(std::string_view text) {
    const int file = memfd_create("lines", MFD_CLOEXEC);
    while (file != -1 && !text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written <= 0) {
            break;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    if (file == -1 || !text.empty()) {
        throw std::system_error(errno, std::generic_category(), "memfd_create");
    }
    lseek(file, 0, SEEK_SET);
    return file;
}

}  // namespace

std::string LogOf(const std::string& path) {
    const auto log = LogOfJournal(path);
    return log ? *log : SetAndNumber(path).first;
}

std::optional<std::string> FindFullFile(const std::string& path, std::size_t number) {
    const std::filesystem::path file(path);
    const std::string digits = "." + std::to_string(number);
    const std::string names[] = {
        (file.parent_path() / file.stem()).string() + digits + file.extension().string(),
        path + digits};
    for (const std::string& name : names) {
        if (access(name.c_str(), F_OK) == 0) {
            return name;
        }
        for (const std::string_view ending : compressedEndings) {
            if (const std::string compressed = name + std::string(ending);
                access(compressed.c_str(), F_OK) == 0) {
                return compressed;
            }
        }
    }
    return std::nullopt;
}

std::vector<std::string> FilesToRead(const std::vector<std::string>& paths, bool addsRotated) {
    std::vector<std::string> order;
    std::map<std::string, std::vector<RotatedFile>> sets;
    std::map<std::string, std::vector<std::string>> journals;
    for (const std::string& path : paths) {
        const auto [set, number] =
            path == standardInput ? std::pair(path, std::size_t{0}) : SetAndNumber(path);
        if (sets.count(set) == 0) {
            order.push_back(set);
        }
        sets[set].push_back({number, path});
        if (!addsRotated || number != 0 || path == standardInput) {
            continue;
        }
        for (std::string& journal : JournalsOf(path)) {
            journals[set].push_back(std::move(journal));
        }
        std::size_t full = 1;
        while (const auto found = FindFullFile(set, full)) {
            sets[set].push_back({full, *found});
            ++full;
        }
    }
    std::vector<std::string> files;
    std::set<std::string> seen;
    for (const std::string& set : order) {
        std::vector<RotatedFile>& members = sets[set];
        std::stable_sort(members.begin(), members.end(), [](const auto& a, const auto& b) {
            return a.number > b.number;
        });
        for (const RotatedFile& member : members) {
            if (seen.insert(IdentityOf(member.path)).second) {
                files.push_back(member.path);
            }
        }
        for (const std::string& journal : journals[set]) {
            if (seen.insert(IdentityOf(journal)).second) {
                files.push_back(journal);
            }
        }
    }
    return files;
}

std::uint64_t TotalSize(const std::vector<std::string>& files) {
    std::uint64_t total = 0;
    for (const std::string& file : files) {
        struct stat status {};

        const bool isKnown = file == standardInput ? fstat(STDIN_FILENO, &status) == 0
                                                   : stat(file.c_str(), &status) == 0;
        if (!isKnown || !S_ISREG(status.st_mode) || IsCompressed(file)) {
            return 0;
        }
        total += static_cast<std::uint64_t>(status.st_size);
    }
    return total;
}

bool IsCompressed(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const bool isCompressed = descriptor != -1 && CompressionAt(descriptor).has_value();
    if (descriptor != -1) {
        close(descriptor);
    }
    return isCompressed;
}

/// Reads one end of a pipe while a thread writes to the other what it decompresses.
class InputFile::Decompressor {
public:
    /// Takes `input`; `output` becomes what is to be read.
    Decompressor(int input, int& output) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            const int error = errno;
            close(input);
            throw std::system_error(error, std::generic_category(), "pipe");
        }
        constexpr int pipeSize = 1 << 20;
        fcntl(ends[1], F_SETPIPE_SZ, pipeSize);  // smaller ones work as well
        output = ends[0];
        m_thread = std::thread([this, input, target = ends[1]] {
            // The reader may close its end early: that is no reason to end the program.
            sigset_t pipeSignal;
            sigemptyset(&pipeSignal);
            sigaddset(&pipeSignal, SIGPIPE);
            pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);
            m_fault = Decompress(input, target);
            close(target);
            close(input);
        });
    }

    /// The end that is read must be at its end, or closed.
    ~Decompressor() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    Decompressor(const Decompressor&) = delete;
    Decompressor& operator=(const Decompressor&) = delete;

    std::string TakeFault() {
        m_thread.join();
        return std::move(m_fault);
    }

private:
    std::thread m_thread;
    std::string m_fault;
};

InputFile::InputFile(const std::string& path)
    : m_descriptor(path == standardInput ? dup(STDIN_FILENO)
                                         : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status {};

    if (m_descriptor == -1) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    if (fstat(m_descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
        close(m_descriptor);
        throw std::system_error(EISDIR, std::generic_category(), path);
    }
    if (S_ISREG(status.st_mode) && IsJournal(m_descriptor)) {
        const int lines = FileOf(LinesLeftIn(path, m_descriptor));
        close(std::exchange(m_descriptor, lines));
        return;
    }
    posix_fadvise(m_descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
    const auto compression = CompressionAt(m_descriptor);
    if (compression && !IsReadable(*compression)) {
        close(m_descriptor);
        throw std::system_error(std::make_error_code(std::errc::not_supported),
                                path + " is compressed with " + std::string(*compression));
    }
    // What is not a file cannot be looked at without taking from it.
    if (compression || !S_ISREG(status.st_mode)) {
        m_decompressor = std::make_unique<Decompressor>(m_descriptor, m_descriptor);
    }
}

InputFile::~InputFile() {
    if (m_descriptor != -1) {
        close(m_descriptor);
    }
}

std::string InputFile::TakeFault() {
    return m_decompressor == nullptr ? "" : m_decompressor->TakeFault();
}

InputFile::InputFile(InputFile&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)),
      m_decompressor(std::move(other.m_decompressor)) {}

InputFile& InputFile::operator=(InputFile&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    std::swap(m_decompressor, other.m_decompressor);
    return *this;
}

}  // namespace tarnview
