#pragma once

#include "commands/TopCommand.h"

namespace tarnview {

/// The table of `top --over`. Throws `std::system_error` if a file cannot be read.
int RunTopOverTime(const TopOptions& options, Context& context);

}  // namespace tarnview
