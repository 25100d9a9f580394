#pragma once

#include "activity/Activity.h"
#include "expression/Expression.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

/// Which activities are wanted. An empty one wants all. Patterns are those of the shell ("load*");
/// of several for the same field one must fit, and all fields must fit.
struct Filter {
    std::vector<std::string> roots{};  ///< beginnings of ids of roots
    std::vector<std::string> names{};
    std::vector<std::string> users{};
    std::vector<std::string> sites{};
    std::vector<std::string> results{};
    std::vector<std::int64_t> processes{};
    bool isFailed = false;  ///< anything but "ok" and "early-termination"
    bool isNotOk = false;   ///< anything but "ok"
    std::optional<Microseconds> slowerThan{};
    std::optional<Microseconds> since{};   ///< still running at this time or later
    std::optional<Microseconds> before{};  ///< begun earlier than this
    std::optional<Expression> where{};

    bool IsEmpty() const;

    /// Whether an activity that has not ended can pass.
    bool WantsOpen() const { return !isFailed && !isNotOk && results.empty() && !slowerThan; }

    bool Passes(const Activity& activity) const;
};

/// "250ms", "1.5s", "2m", "1h", or seconds without a unit. `nullopt` if it is something else.
std::optional<Microseconds> ParseDuration(const std::string& text);

}  // namespace tarnview
