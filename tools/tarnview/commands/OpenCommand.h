#pragma once

#include "commands/Context.h"
#include "commands/Following.h"
#include "output/Table.h"

namespace tarnview {

struct OpenOptions {
    InputOptions input;
    Filter filter;
    TableFormat format = TableFormat::Text;
    double stuck = 0;         ///< seconds that an activity must have been running
    double silentAfter = 60;  ///< seconds without a line, after which a process is called silent
    bool isNow = false;       ///< measure up to now, not up to the last line of the log
    FollowOptions follow{};
};

/// Prints what is running, or was when the log ended, longest first, and apart from it what has not
/// ended in processes that have been silent for a while, or are gone: another one has taken over
/// their log, or, measured up to now, they do not exist on this machine any more. Throws
/// `std::system_error` if a file cannot be read.
int RunOpen(const OpenOptions& options, Context& context);

}  // namespace tarnview
