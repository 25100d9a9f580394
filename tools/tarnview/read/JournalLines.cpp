#include "read/JournalLines.h"

#include "read/InputFiles.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tarnview {

namespace {

// As docs/log-format.md has it.
struct Head {
    char magic[8];
    std::uint32_t version;
    std::uint32_t process;
    std::uint64_t begin;
    std::uint64_t end;
    std::uint32_t lands;
    std::uint32_t unused;
    std::uint64_t device;
    std::uint64_t inode;
    std::uint64_t size;
};

constexpr std::string_view magic = "tarnjrnl";
constexpr std::size_t headBytes = 4096;
constexpr std::size_t capacity = 65536;
constexpr std::string_view ending = ".journal";

std::string ReadAt(int descriptor, std::uint64_t offset, std::size_t bytes) {
    std::string text(bytes, '\0');
    std::size_t read = 0;
    while (read < bytes) {
        const ssize_t now =
            pread(descriptor, text.data() + read, bytes - read, static_cast<off_t>(offset + read));
        if (now <= 0) {
            break;
        }
        read += static_cast<std::size_t>(now);
    }
    text.resize(read);
    return text;
}

bool IsOwned(int descriptor) {
    struct flock lock {};

    lock.l_type = F_RDLCK;
    lock.l_whence = SEEK_SET;
    return fcntl(descriptor, F_OFD_SETLK, &lock) != 0 && (errno == EAGAIN || errno == EACCES);
}

/// How many of the lines' bytes are in a file from an offset on, up to the end of a line.
std::optional<std::size_t> BytesIn(int file, std::uint64_t offset, std::string_view lines) {
    constexpr std::size_t step = std::size_t{1} << 20;
    const std::string_view first = lines.substr(0, lines.find('\n') + 1);
    for (;; offset += step) {
        const std::string part = ReadAt(file, offset, step + first.size());
        const std::size_t place = part.find(first);
        if (place != std::string::npos) {
            const std::string there = ReadAt(file, offset + place, lines.size());
            const auto common = std::mismatch(there.begin(), there.end(), lines.begin()).first;
            const auto bytes = static_cast<std::size_t>(common - there.begin());
            return lines.substr(0, bytes).rfind('\n') + 1;
        }
        if (part.size() <= step) {
            return std::nullopt;
        }
    }
}

/// How many of the lines the log has, or the files that it was renamed to since they were begun.
std::size_t BytesInLog(const std::string& log, const Head& head, std::string_view lines) {
    std::optional<std::string> path = log;
    for (std::size_t number = 1; path; path = FindFullFile(log, number++)) {
        const int file = open(path->c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);

        struct stat status {};

        if (file == -1 || fstat(file, &status) != 0) {
            continue;
        }
        const bool isMeant = status.st_dev == head.device && status.st_ino == head.inode;
        const auto bytes = BytesIn(file, isMeant ? head.size : 0, lines);
        close(file);
        if (bytes || isMeant) {
            return bytes.value_or(0);
        }
    }
    return 0;
}

}  // namespace

std::optional<std::string> LogOfJournal(const std::string& journal) {
    if (!std::string_view(journal).ends_with(ending)) {
        return std::nullopt;
    }
    const std::size_t end = journal.size() - ending.size();
    const std::size_t dot = journal.find_last_not_of(".0123456789", end - 1);
    const std::size_t begin = dot == std::string::npos ? 0 : dot + 1;
    return begin != 0 && begin + 1 < end && journal[begin] == '.'
               ? std::optional(journal.substr(0, begin))
               : std::nullopt;
}

std::vector<std::string> JournalsOf(const std::string& log) {
    std::vector<std::string> journals;
    const std::filesystem::path folder = std::filesystem::path(log).parent_path();
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator(folder.empty() ? "." : folder, error)) {
        std::string path = (folder / entry.path().filename()).string();
        if (LogOfJournal(path) == log) {
            journals.push_back(std::move(path));
        }
    }
    std::sort(journals.begin(), journals.end());
    return journals;
}

bool IsJournal(int descriptor) {
    return ReadAt(descriptor, 0, magic.size()) == magic;
}

std::string LinesLeftIn(const std::string& journal, int descriptor) {
    Head head{};
    const std::string bytes = ReadAt(descriptor, 0, headBytes + capacity);
    if (IsOwned(descriptor) || bytes.size() != headBytes + capacity) {
        return {};
    }
    std::memcpy(&head, bytes.data(), sizeof head);
    if (head.version != 1 || head.end > capacity || head.begin >= head.end) {
        return {};
    }
    const std::string_view lines =
        std::string_view(bytes).substr(headBytes + head.begin, head.end - head.begin);
    const auto log = LogOfJournal(journal);
    const std::size_t there = head.lands != 0 && log ? BytesInLog(*log, head, lines) : 0;
    return std::string(lines.substr(there));
}

}  // namespace tarnview
