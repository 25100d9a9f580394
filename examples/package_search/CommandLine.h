#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace packagesearch {

struct Options {
    std::filesystem::path logFile = "package_search.log";
    std::filesystem::path statusFile = "/var/lib/dpkg/status";
    std::filesystem::path queryFile;  ///< empty: queries chosen by the program
    std::size_t threads = 2;          ///< workers, and as many clients that ask them
};

/// What the command line asks for.
struct CommandLine {
    std::optional<Options> options;  ///< what to run; none when there is only something to say
    std::string message;             ///< the help; or why the command line is refused, one line
    bool isError = false;
};

/// Reads the command line. Touches no file.
CommandLine ParseCommandLine(int argumentCount, const char* const* arguments);

}  // namespace packagesearch
