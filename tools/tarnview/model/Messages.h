#pragma once

#include "model/ActivityForest.h"
#include "read/LogLine.h"
#include "read/Problems.h"

#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnview {

/// A message of the program or of the library, or a diagnostic event.
struct Message {
    Microseconds time = 0;
    std::string severity;
    std::string text;
    Place place;
};

/// Finds the activities that messages belong to: the one that the line names (`activity`), or
/// whose id is in the message, else the innermost that ran at its time on its thread, begin and end
/// included. Holds the messages of these activities and no others. The forest must be linked, and
/// live as long. Used by one thread.
class Messages {
public:
    explicit Messages(const ActivityForest& forest);

    /// Lines that are of an activity are passed over.
    void Take(const LogLine& line, const Place& place);

    /// In the order of their times.
    std::vector<Message> Of(ActivityForest::Index index) const;

private:
    using Index = ActivityForest::Index;
    using Thread = std::pair<ProcessId, std::int64_t>;

    Index FindById(std::string_view text) const;
    Index FindByTime(const LogLine& line) const;

    const ActivityForest& m_forest;
    std::unordered_map<std::string_view, Index> m_byId;
    std::map<Thread, std::vector<Index>> m_byThread;  // in the order of their begins
    // Of an activity of a thread the one that began last before it on the thread and still ran.
    std::unordered_map<Index, Index> m_around;
    std::unordered_map<Index, std::vector<Message>> m_messages;
};

}  // namespace tarnview
