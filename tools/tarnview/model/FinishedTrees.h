#pragma once

#include "activity/Activity.h"

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnview {

/// Gathers the activities of trees whose lines are still coming, and gives each tree out once its
/// root has ended and nothing of it is open: what comes later, as from a log that lags behind, is a
/// tree of its own. Holds the trees that are not finished. Used by one thread.
class FinishedTrees {
public:
    using OnTree = std::function<void(std::vector<Activity>&& activities)>;

    void Take(Activity&& activity);

    /// Gives out what is finished. `open` are the activities that have not ended.
    void GiveOut(const std::vector<const Activity*>& open, const OnTree& onTree);

private:
    struct Tree {
        std::vector<Activity> activities;
        bool hasRootEnded = false;
    };

    std::unordered_map<std::string, Tree> m_trees;
    std::vector<std::string> m_ended;  // roots, in the order in which they ended
};

}  // namespace tarnview
