#pragma once

#include "span/ActivityFacts.h"
#include "span/LineParser.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarn::otlp {

/// An activity that has begun and not ended, as its begin line told of it.
struct OpenActivity {
    std::string id;
    std::string name;
    std::string sponsor;
    std::string caller;
    std::string root;
    std::string description;
    std::string body;
    std::int64_t process = 0;
    std::int64_t thread = 0;
    Microseconds begin = 0;
    std::uint64_t order = 0;  ///< of the begins
    std::string line;         ///< only if it was asked for

    /// What it takes in memory, about.
    std::size_t Bytes() const;
};

/// Joins begin and end lines to activities as they come, and holds those that are open. Two that
/// are open under the same id are told apart by name and thread; the later one ends first. A forked
/// process ends what its parent has begun, and the parent ends it for itself. Used by one thread.
class OpenActivities {
public:
    /// Begins are kept as long as they take no more than `maxBytes`; an activity whose begin is not
    /// there has what its end line says. With `keepsLines` the lines themselves are kept, too.
    explicit OpenActivities(std::size_t maxBytes, bool keepsLines = false)
        : m_maxBytes(maxBytes),
          m_keepsLines(keepsLines) {}

    /// False if there was no room for it.
    bool Begin(const LineFacts& line, std::string_view text);

    /// The activity that an end line ends. Valid as long as `line`, and until the next call.
    ActivityFacts End(const LineFacts& line);

    std::size_t Size() const { return m_size; }

    /// In the order of their begins. Valid until the next begin or end.
    std::vector<const OpenActivity*> List() const;

private:
    using ById = std::unordered_map<std::string, std::vector<OpenActivity>>;

    bool TakeBegin(const LineFacts& line);

    const std::size_t m_maxBytes;
    const bool m_keepsLines;
    std::size_t m_bytes = 0;
    std::size_t m_size = 0;
    std::uint64_t m_begins = 0;
    ById m_open;
    OpenActivity m_ended;
    std::string m_key;
};

}  // namespace tarn::otlp
