#pragma once

#include "model/Filter.h"
#include "output/Terminal.h"
#include "output/TimeStyle.h"
#include "read/Hosts.h"
#include "read/Problems.h"

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnview {

// What the program ends with.
inline constexpr int exitSuccess = 0;
/// `check` found the log not whole, or `show` not exactly one activity.
inline constexpr int exitNegative = 1;
/// The command line is not understood.
inline constexpr int exitCommandLine = 2;
/// A file cannot be read or written, or is no log.
inline constexpr int exitInputOutput = 3;

/// The command line asks for what must not be done.
class CommandLineError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What all commands have in common. The streams must live as long.
struct Context {
    std::ostream& out;
    std::ostream& err;
    Terminal terminal;
    std::string outputPath{};  ///< empty: the standard output stream
    TimeStyle times{};         ///< its base is known when the log has been read once
};

/// Which files to read, or where else the logs are.
struct InputOptions {
    std::vector<std::string> files;
    bool addsRotated = true;
    std::vector<HostedLog> hosts{};  ///< whose logs are among the files
    std::string from{};  ///< an engine that has the logs, instead of files; empty: files
};

}  // namespace tarnview
