#pragma once

#include "commands/Context.h"
#include "commands/Following.h"
#include "expression/ActivityField.h"
#include "model/TreeSelection.h"

#include <cstddef>
#include <vector>

namespace tarnview {

struct TreeOptions {
    InputOptions input;
    Filter filter;
    TreeOrder order = TreeOrder::AsBegun;
    std::size_t count = 0;  ///< trees; 0: all
    std::size_t depth = 0;  ///< levels; 0: all
    bool showsAttributes = false;
    bool showsMessages = false;
    FollowOptions follow{};               ///< prints each tree once it is finished
    bool isJson = false;                  ///< a line for each activity instead, and none folded
    std::size_t most = 5;                 ///< siblings alike that are not folded; 0: folds none
    std::vector<ActivityField> labels{};  ///< of activities, behind their names
};

/// Prints activities as indented trees. Throws `std::system_error` if a file cannot be read.
int RunTree(const TreeOptions& options, Context& context);

}  // namespace tarnview
