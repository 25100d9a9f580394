#pragma once

#include "commands/Context.h"

#include <chrono>
#include <cstddef>

namespace tarnview {

struct OpenOptions {
    InputOptions input;
    double stuck = 0;    ///< seconds that an activity must have been running
    bool isNow = false;  ///< measure up to now, not up to the last line of the log
    bool isFollowing = false;
    std::chrono::milliseconds interval{1000};
    std::size_t updates = 0;  ///< tables, when following; 0: without end
};

/// Prints what is running, or was when the log ended, longest first. Throws `std::system_error` if
/// a file cannot be read.
int RunOpen(const OpenOptions& options, Context& context);

}  // namespace tarnview
