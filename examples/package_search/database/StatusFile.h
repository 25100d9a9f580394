#pragma once

#include "Package.h"

#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace packagesearch {

/// What a status file holds.
struct StatusFile {
    std::vector<Package> packages;  ///< the installed ones, in the file's order
    std::size_t notInstalled = 0;   ///< stanzas of packages that were removed or never configured
    std::size_t bytes = 0;          ///< length of the file
};

/// The file is not a status file. `what()` is one line and names the file, and the line in it
/// unless the file as a whole is meant.
class StatusFileError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads the file in which the package manager keeps what is installed
/// (on Debian /var/lib/dpkg/status). Throws `StatusFileError` for a file that cannot be read, is
/// malformed, or holds no installed package; nothing of a broken file is used. No state: any
/// thread may call it.
StatusFile ReadStatusFile(const std::filesystem::path& path);

/// The same for a text that is already there; `sourceName` stands for the path in errors.
StatusFile ParseStatusFile(std::string_view text, const std::string& sourceName);

}  // namespace packagesearch
