#pragma once

#include "commands/Context.h"
#include "commands/Question.h"
#include "model/FailureGroups.h"

#include <cstddef>

namespace tarnview {

enum class FailureOrder { Count, First, Last };

struct FailuresOptions {
    Question question;
    FailureGroups::Options grouping{};
    FailureOrder order = FailureOrder::Count;
    std::size_t limit = 0;  ///< rows; 0: all
};

/// Prints failures grouped by what they say. Throws `std::system_error` if a file cannot be read.
int RunFailures(const FailuresOptions& options, Context& context);

}  // namespace tarnview
