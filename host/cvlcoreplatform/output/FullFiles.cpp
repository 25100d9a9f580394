#include "FullFiles.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>

namespace cvlcoreplatform {

namespace {

// With the rights that renaming has as well; a place of which nothing can be learnt is not free.
bool IsTaken(const std::string& path) noexcept {
    struct stat status {};

    return lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

}  // namespace

std::string PathOfFullFile(const std::string& path, std::size_t number) {
    if (number == 0) {
        return path;
    }
    const std::filesystem::path file(path);
    return (file.parent_path() / file.stem()).string() + "." + std::to_string(number) +
           file.extension().string();
}

void MoveAway(const std::string& path, std::size_t most) {
    if (most == 0) {
        throw std::logic_error(path + ": no full file is to be kept");
    }
    std::size_t last = 1;
    while (last < most && IsTaken(PathOfFullFile(path, last))) {
        ++last;
    }
    for (std::size_t number = last; number != 0; --number) {
        const std::string from = PathOfFullFile(path, number - 1);
        // Somebody else may have moved the current file away just now.
        if (rename(from.c_str(), PathOfFullFile(path, number).c_str()) != 0 &&
            (number != 1 || errno != ENOENT)) {
            throw std::system_error(errno, std::generic_category(), from);
        }
    }
}

}  // namespace cvlcoreplatform
