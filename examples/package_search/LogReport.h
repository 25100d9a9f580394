#pragma once

#include "LogFiles.h"
#include "LoggedActivity.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace packagesearch {

/// What one or several processes wrote to their logs. Reading it takes no part in tracing.
/// A record: whoever has it may change it.
struct LogReport {
    std::size_t beginLines = 0;
    std::size_t endLines = 0;
    std::size_t otherLines = 0;              ///< messages, and events that belong to no activity
    std::size_t unreadableLines = 0;         ///< not JSON, or not what this log's lines look like
    std::vector<LoggedActivity> activities;  ///< in the order of their begin lines

    /// How many activities there are of each name.
    std::map<std::string, std::size_t> CountByName() const;

    /// The finished activity of this name that took longest, the first of equals; null without any.
    const LoggedActivity* Slowest(std::string_view name) const;

    /// Hangs each activity under its sponsor. What goes on in another process does not know its
    /// caller, only the root and how deep it lies: it hangs under the one activity at the depth
    /// above that was calling a peer all the time, and under the root if there is not exactly one.
    void LinkChildren();
};

/// Reads what `process` has written since `start`, and no lines of others. Throws
/// `std::system_error` when a file cannot be read, and `std::runtime_error` when the log has been
/// renamed so often that `start` is gone.
LogReport ReadLog(const LogPosition& start, std::uint32_t process);

/// Reads whole logs, of whatever processes. Throws `std::system_error`.
LogReport ReadLogs(const std::vector<std::filesystem::path>& logs);

}  // namespace packagesearch
