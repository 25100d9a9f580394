#pragma once

#include "HttpService.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <variant>

namespace packagesearch {

struct BatchOptions {
    std::filesystem::path logFile = "package_search.log";
    std::filesystem::path statusFile = "/var/lib/dpkg/status";
    std::filesystem::path queryFile;  ///< empty: queries chosen by the program
    std::size_t threads = 2;          ///< workers, and as many clients that ask them
};

struct ServeOptions {
    std::filesystem::path logFile = "package_search.log";
    std::filesystem::path statusFile = "/var/lib/dpkg/status";
    std::filesystem::path databaseFile;  ///< empty: in memory
    std::filesystem::path portFile;      ///< empty: none
    std::string peerUrl;                 ///< empty: no peer
    std::size_t workers = 2;
    HttpOptions http;
};

/// There is only something to say: the help, or why the command line is refused, in one line.
struct Message {
    std::string text;
    bool isError = false;
};

using CommandLine = std::variant<Message, BatchOptions, ServeOptions>;

/// Reads the command line. Touches no file.
CommandLine ParseCommandLine(int argumentCount, const char* const* arguments);

}  // namespace packagesearch
