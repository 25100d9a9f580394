#include "LogFiles.h"

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>

namespace packagesearch {

namespace {

// "a.log", then "a.1.log", "a.2.log" and so on, the younger ones first.
std::filesystem::path FileOfLog(const std::filesystem::path& path, std::size_t age) {
    if (age == 0) {
        return path;
    }
    std::filesystem::path file = path;
    file.replace_filename(path.stem().string() + "." + std::to_string(age) +
                          path.extension().string());
    return file;
}

}  // namespace

LogPosition LogPosition::EndOf(const std::filesystem::path& path) {
    struct stat status {};

    if (stat(path.c_str(), &status) != 0) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error(path.string() +
                                 ": is no regular file, a log could not be read back");
    }
    return {path, status.st_dev, status.st_ino, static_cast<std::uintmax_t>(status.st_size)};
}

std::vector<std::filesystem::path> FilesSince(const LogPosition& start) {
    std::vector<std::filesystem::path> files;
    for (std::size_t age = 0;; ++age) {
        const std::filesystem::path file = FileOfLog(start.path, age);
        if (!std::filesystem::exists(file)) {
            throw std::runtime_error(start.path.string() +
                                     ": the file that this run's log began in is gone");
        }
        const LogPosition end = LogPosition::EndOf(file);
        files.insert(files.begin(), file);
        if (end.device == start.device && end.inode == start.inode) {
            return files;
        }
    }
}

std::vector<std::filesystem::path> FilesOf(const std::filesystem::path& path) {
    std::vector<std::filesystem::path> files{path};
    for (std::size_t age = 1; std::filesystem::exists(FileOfLog(path, age)); ++age) {
        files.insert(files.begin(), FileOfLog(path, age));
    }
    return files;
}

simdjson::padded_string ReadLogFile(const std::filesystem::path& path, std::uintmax_t offset) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file ? static_cast<std::streamoff>(file.tellg()) : 0;
    const auto from = static_cast<std::streamoff>(offset);
    if (!file || size < from) {
        throw std::system_error(file ? EIO : errno, std::generic_category(), path.string());
    }
    simdjson::padded_string text(static_cast<std::size_t>(size - from));
    file.seekg(from);
    if (!file.read(text.data(), size - from)) {
        throw std::system_error(EIO, std::generic_category(), path.string());
    }
    return text;
}

}  // namespace packagesearch
