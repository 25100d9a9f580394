#pragma once

#include "commands/Context.h"
#include "model/TreeSelection.h"

#include <cstddef>

namespace tarnview {

struct TreeOptions {
    InputOptions input;
    Filter filter;
    TreeOrder order = TreeOrder::AsBegun;
    std::size_t count = 0;  ///< trees; 0: all
    std::size_t depth = 0;  ///< levels; 0: all
    bool showsAttributes = false;
};

/// Prints activities as indented trees. Throws `std::system_error` if a file cannot be read.
int RunTree(const TreeOptions& options, Context& context);

}  // namespace tarnview
