#pragma once

#include "model/Filter.h"
#include "output/Terminal.h"
#include "read/Problems.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace tarnview {

// What the program ends with.
inline constexpr int exitSuccess = 0;
/// `check` found the log not whole, or `show` did not find the activity.
inline constexpr int exitFound = 1;
inline constexpr int exitCommandLine = 2;
/// A file could not be read or written.
inline constexpr int exitInputOutput = 3;

/// What all commands have in common. The streams must live as long.
struct Context {
    std::ostream& out;
    std::ostream& err;
    Terminal terminal;
};

/// Which files to read.
struct InputOptions {
    std::vector<std::string> files;
    bool addsRotated = true;
};

}  // namespace tarnview
