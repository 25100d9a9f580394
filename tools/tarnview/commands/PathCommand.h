#pragma once

#include "commands/Context.h"
#include "commands/Question.h"

#include <cstddef>

namespace tarnview {

struct PathOptions {
    Question question;
    std::size_t slowest = 1;  ///< trees
    bool isByName = false;    ///< added up over all of them
};

/// Prints what the time of requests was spent on, from end to end. Throws `std::system_error` if a
/// file cannot be read.
int RunPath(const PathOptions& options, Context& context);

}  // namespace tarnview
