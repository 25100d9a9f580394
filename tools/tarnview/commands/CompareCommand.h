#pragma once

#include "commands/Context.h"
#include "commands/Question.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

enum class CompareOrder { Cost, Failed, Change, Name };

struct CompareOptions {
    Question question;  ///< the new side; the old and the new one, if `old` and `at` are empty
    std::vector<std::string> old{};
    std::vector<std::string> groupBy{"name"};
    std::optional<Microseconds> at{};  ///< what began before is the old side
    CompareOrder order = CompareOrder::Cost;
    std::size_t limit = 0;  ///< rows; 0: all
    bool isSignificantOnly = false;
};

/// Prints per group what differs between two logs, or two times. Throws `std::system_error` if a
/// file cannot be read. The options must be sound: known groups, and an old side.
int RunCompare(const CompareOptions& options, Context& context);

}  // namespace tarnview
