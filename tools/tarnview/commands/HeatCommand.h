#pragma once

#include "commands/Context.h"
#include "commands/Question.h"

#include <optional>

namespace tarnview {

struct HeatOptions {
    Question question;
    std::optional<Microseconds> interval{};  ///< of a column; nothing: as the width allows
};

/// Prints how long activities took over time, as a map. Throws `std::system_error` if a file cannot
/// be read.
int RunHeat(const HeatOptions& options, Context& context);

}  // namespace tarnview
