#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace packagesearch {

/// A place in a log that may go on in another file behind it: when a log is full its file is
/// renamed ("a.log" to "a.1.log") and a new one begun.
struct LogPosition {
    std::filesystem::path path;  ///< the name of the current file
    std::uint64_t device = 0;    ///< with `inode`: the file that was current at this place
    std::uint64_t inode = 0;
    std::uintmax_t offset = 0;

    /// Throws `std::system_error` when there is no such file, `std::runtime_error` when it is none
    /// that could be read again.
    static LogPosition EndOf(const std::filesystem::path& path);
};

/// One activity as the log tells it: what its two lines say.
struct LoggedActivity {
    std::string id;
    std::string sponsor;  ///< id of the activity that this one is part of; empty for a root
    std::string name;
    std::string begin;        ///< time of the begin line; sorts as text
    std::string description;  ///< of the request; roots only
    std::string request;
    std::string user;
    std::string site;
    std::string session;
    std::uint64_t threadId = 0;
    double elapsed = 0;    ///< seconds
    double exclusive = 0;  ///< seconds, without the activities that it waited for on its own thread
    std::string result;    ///< "ok", or how it failed; empty while it has no end line
    std::string attributes;             ///< "name=value" of both lines, with blanks between them
    std::vector<std::size_t> children;  ///< places in the report's list, in the order they began
};

/// What one process wrote to a log since some place in it. Reading it takes no part in tracing.
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
};

/// Reads what `process` has written since `start`, and no lines of others. Throws
/// `std::system_error` when a file cannot be read, and `std::runtime_error` when the log has been
/// renamed so often that `start` is gone.
LogReport ReadLog(const LogPosition& start, std::uint32_t process);

/// Prints an activity and all its parts as an indented tree with elapsed and exclusive times.
void PrintTree(std::ostream& out, const LogReport& report, const LoggedActivity& root);

}  // namespace packagesearch
