#pragma once

#include <cstdint>
#include <filesystem>
#include <simdjson.h>
#include <vector>

namespace packagesearch {

/// A place in a log that may go on in another file behind it: when a log is full its file is
/// renamed ("a.log" to "a.1.log") and a new one begun.
struct LogPosition {
    std::filesystem::path path;  ///< the name of the current file
    std::uint64_t device = 0;    ///< with `inode`: the file that was current at this place
    std::uint64_t inode = 0;
    std::uintmax_t offset = 0;

    /// Throws `std::system_error` when there is no such file, `std::runtime_error` when it is none
    /// that could be read again.
    static LogPosition EndOf(const std::filesystem::path& path);
};

/// The files that hold what was logged since `start`, the oldest first. Throws
/// `std::runtime_error` when the log has been renamed so often that `start` is gone.
std::vector<std::filesystem::path> FilesSince(const LogPosition& start);

/// All files there are of a log, the oldest first: the named one is the last.
std::vector<std::filesystem::path> FilesOf(const std::filesystem::path& path);

/// What a file holds from `offset` on. Throws `std::system_error`.
simdjson::padded_string ReadLogFile(const std::filesystem::path& path, std::uintmax_t offset);

}  // namespace packagesearch
