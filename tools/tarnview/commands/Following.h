#pragma once

#include "commands/Context.h"
#include "read/LogScanner.h"

#include <chrono>
#include <cstddef>
#include <functional>

namespace tarnview {

/// How to go on while a log grows.
struct FollowOptions {
    bool isFollowing = false;
    std::chrono::milliseconds interval{1000};
    std::size_t updates = 0;  ///< outputs; 0: without end
};

/// Reads what the logs hold, calls `onUpdate`, and does so again each interval with what has been
/// written since, also when a log is rotated, until nobody reads the output any more. Full files
/// are only read. With `isScreen` each output takes the place of the one before on a terminal.
/// Throws `std::system_error` if a file cannot be read at first, `CommandLineError` for the
/// standard input stream.
void Follow(const InputOptions& input,
            const FollowOptions& options,
            const ParserOptions& parsing,
            bool isScreen,
            Problems& problems,
            Context& context,
            const LogScanner::OnLine& onLine,
            const std::function<void()>& onUpdate);

}  // namespace tarnview
