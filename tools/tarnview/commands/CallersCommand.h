#pragma once

#include "commands/Context.h"
#include "commands/Question.h"

#include <cstddef>
#include <string>

namespace tarnview {

struct CallersOptions {
    Question question;
    std::string name;        ///< a pattern of the shell
    std::size_t levels = 0;  ///< of callers; 0: all
};

/// Prints through which activities those of a name were reached. Throws `std::system_error` if a
/// file cannot be read.
int RunCallers(const CallersOptions& options, Context& context);

}  // namespace tarnview
