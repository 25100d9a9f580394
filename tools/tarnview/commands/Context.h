#pragma once

#include "model/Filter.h"
#include "output/Terminal.h"
#include "read/Problems.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace tarnview {

/// What the program ends with.
enum ExitStatus : int {
    exitSuccess = 0,
    exitFound = 1,  ///< `check` found the log not whole; `show` did not find the activity
    exitCommandLine = 2,
    exitInputOutput = 3,  ///< a file could not be read or written
};

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
