#pragma once

#include "activity/Activity.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <vector>

namespace tarnview {

/// Failures of one kind: of activities of one name, with one result, type and message.
struct FailureGroup {
    std::string name;
    std::string result;
    std::string type;     ///< of the exception, empty if there is none
    std::string message;  ///< with "#" for numbers, unless messages are compared as they are
    std::uint64_t count = 0;
    std::unordered_set<std::size_t>
        roots{};             ///< hashes of ids; as many as trees have such a failure
    Microseconds first = 0;  ///< when the first and the last of them ended
    Microseconds last = 0;
    std::string firstId;
};

/// Groups failures by what they say. Memory is bounded by the number of groups, and of failures'
/// trees. Used by one thread.
class FailureGroups {
public:
    struct Options {
        bool isExact = false;   ///< messages that differ in numbers only are different
        bool takesAll = false;  ///< also what failed because something below it did
    };

    explicit FailureGroups(Options options) : m_options(options) {}

    /// What did not fail is passed over. Early terminations are consequences of a failure below.
    void Take(const Activity& activity);

    /// In no particular order.
    std::vector<FailureGroup> Groups() const;

    /// How many were passed over as consequences.
    std::uint64_t Consequences() const { return m_consequences; }

private:
    using Key = std::tuple<std::string, std::string, std::string, std::string>;

    Options m_options;
    std::map<Key, FailureGroup> m_groups;
    std::uint64_t m_consequences = 0;
};

/// Whether the activity failed by itself, and not because one below it did: no child of it failed.
bool IsCause(const Activity& activity);

/// "order 17 of ada" and "order 4 of ada" are both "order # of ada". Hexadecimal digits of at least
/// eight in a row, as in ids, are numbers too.
std::string WithoutNumbers(std::string_view text);

}  // namespace tarnview
