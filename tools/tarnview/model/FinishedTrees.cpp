#include "model/FinishedTrees.h"

#include <unordered_set>
#include <utility>

namespace tarnview {

void FinishedTrees::Take(Activity&& activity) {
    Tree& tree = m_trees[activity.root];
    if (activity.id == activity.root && activity.hasEnd && !tree.hasRootEnded) {
        tree.hasRootEnded = true;
        m_ended.push_back(activity.root);
    }
    tree.activities.push_back(std::move(activity));
}

void FinishedTrees::GiveOut(const std::vector<const Activity*>& open, const OnTree& onTree) {
    std::unordered_set<std::string_view> running;
    for (const Activity* const activity : open) {
        running.insert(activity->root);
    }
    std::vector<std::string> waiting;
    for (std::string& root : m_ended) {
        if (running.count(root) != 0) {
            waiting.push_back(std::move(root));
            continue;
        }
        const auto tree = m_trees.find(root);
        std::vector<Activity> activities = std::move(tree->second.activities);
        m_trees.erase(tree);
        onTree(std::move(activities));
    }
    m_ended = std::move(waiting);
}

}  // namespace tarnview
