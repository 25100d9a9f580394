#include "read/InputFiles.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>
#include <system_error>
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
std::pair<std::string, std::size_t> SetAndNumber(const std::string& text) {
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

// The same file under two names is one file.
std::string IdentityOf(const std::string& path) {
    struct stat status {};

    if (path == standardInput || stat(path.c_str(), &status) != 0) {
        return path;
    }
    return std::to_string(status.st_dev) + "/" + std::to_string(status.st_ino);
}

}  // namespace

std::string LogOf(const std::string& path) {
    return SetAndNumber(path).first;
}

std::string PathOfFullFile(const std::string& path, std::size_t number) {
    const std::filesystem::path file(path);
    return (file.parent_path() / file.stem()).string() + "." + std::to_string(number) +
           file.extension().string();
}

std::vector<std::string> FilesToRead(const std::vector<std::string>& paths, bool addsRotated) {
    std::vector<std::string> order;
    std::map<std::string, std::vector<RotatedFile>> sets;
    for (const std::string& path : paths) {
        const auto [set, number] =
            path == standardInput ? std::pair(path, std::size_t{0}) : SetAndNumber(path);
        if (sets.count(set) == 0) {
            order.push_back(set);
        }
        sets[set].push_back({number, path});
        std::size_t full = 1;
        while (addsRotated && number == 0 && path != standardInput &&
               access(PathOfFullFile(path, full).c_str(), F_OK) == 0) {
            sets[set].push_back({full, PathOfFullFile(path, full)});
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
    }
    return files;
}

std::uint64_t TotalSize(const std::vector<std::string>& files) {
    std::uint64_t total = 0;
    for (const std::string& file : files) {
        struct stat status {};

        const bool isKnown = file == standardInput ? fstat(STDIN_FILENO, &status) == 0
                                                   : stat(file.c_str(), &status) == 0;
        if (!isKnown || !S_ISREG(status.st_mode)) {
            return 0;
        }
        total += static_cast<std::uint64_t>(status.st_size);
    }
    return total;
}

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
    posix_fadvise(m_descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);
}

InputFile::~InputFile() {
    if (m_descriptor != -1) {
        close(m_descriptor);
    }
}

InputFile::InputFile(InputFile&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

InputFile& InputFile::operator=(InputFile&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

}  // namespace tarnview
