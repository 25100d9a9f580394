#pragma once

#include "model/TreeSelection.h"

#include <CLI/CLI.hpp>

namespace tarnview {

/// Adds --slowest to a command that writes trees. Both must live as long as the command.
void AddSlowestOption(CLI::App& command, TreeOrder& order, std::size_t& count);

}  // namespace tarnview
