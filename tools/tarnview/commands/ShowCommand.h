#pragma once

#include "commands/Context.h"

#include <string>

namespace tarnview {

struct ShowOptions {
    InputOptions input;
    std::string id;   ///< or its beginning
    Filter filter{};  ///< which of those with this id
    bool isJson = false;
};

/// Prints all that is known about one activity; exitNegative if the log has none or several whose
/// ids begin so. Throws `std::system_error` if a file cannot be read.
int RunShow(const ShowOptions& options, Context& context);

}  // namespace tarnview
