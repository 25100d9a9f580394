#pragma once

#include "commands/Context.h"
#include "read/Problems.h"

#include <vector>

namespace tarnview {

struct CheckOptions {
    InputOptions input;
    std::vector<ProblemKind> ignored;
    Filter filter{};  ///< which activities are counted
    bool isJson = false;
    bool isQuiet = false;  ///< the exit status and what is wrong, no summary
};

/// Says whether a log is whole: exitSuccess if nothing is wrong, else exitNegative. Throws
/// `std::system_error` if a file cannot be read.
int RunCheck(const CheckOptions& options, Context& context);

}  // namespace tarnview
