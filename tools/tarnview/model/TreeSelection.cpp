#include "model/TreeSelection.h"

#include <algorithm>
#include <utility>

namespace tarnview {

TreeSelection::TreeSelection(Filter filter, TreeOrder order, std::size_t count)
    : m_filter(std::move(filter)),
      m_hasFilter(!m_filter.IsEmpty()),
      m_order(order),
      m_count(count) {}

void TreeSelection::Take(const Activity& activity) {
    const auto [place, isNew] = m_trees.try_emplace(activity.root);
    Tree& tree = place->second;
    tree.begin = isNew ? activity.begin : std::min(tree.begin, activity.begin);
    m_lastTime = std::max(m_lastTime, activity.end);
    if (m_hasFilter) {
        if (m_filter.Passes(activity)) {
            tree.isWanted = true;
            Rank(activity, tree);
        }
        return;
    }
    tree.isWanted = true;
    if (activity.id == activity.root && !tree.hasRoot) {
        tree.hasRoot = true;
        tree.duration = -1;
        tree.openSince = never;
        Rank(activity, tree);
    } else if (!tree.hasRoot) {
        Rank(activity, tree);
    }
}

void TreeSelection::Rank(const Activity& activity, Tree& tree) {
    if (activity.hasEnd) {
        tree.duration = std::max(tree.duration, activity.Duration());
    } else {
        tree.openSince = std::min(tree.openSince, activity.begin);
    }
}

// What never ended took as long as the log goes on.
Microseconds TreeSelection::DurationOf(const Tree& tree) const {
    return tree.openSince == never ? tree.duration
                                   : std::max(tree.duration, m_lastTime - tree.openSince);
}

std::vector<std::string> TreeSelection::Chosen() const {
    std::vector<const Trees::value_type*> wanted;
    for (const auto& entry : m_trees) {
        if (entry.second.isWanted) {
            wanted.push_back(&entry);
        }
    }
    const auto beganBefore = [](const auto* a, const auto* b) {
        return std::pair(a->second.begin, a->first) < std::pair(b->second.begin, b->first);
    };
    std::sort(wanted.begin(), wanted.end(), beganBefore);
    if (m_order == TreeOrder::Slowest) {
        std::stable_sort(wanted.begin(), wanted.end(), [this](const auto* a, const auto* b) {
            return DurationOf(a->second) > DurationOf(b->second);
        });
    }
    if (m_count != 0 && wanted.size() > m_count) {
        const auto surplus = static_cast<std::ptrdiff_t>(wanted.size() - m_count);
        if (m_order == TreeOrder::Last) {
            wanted.erase(wanted.begin(), wanted.begin() + surplus);
        } else {
            wanted.resize(m_count);
        }
    }
    std::vector<std::string> roots;
    roots.reserve(wanted.size());
    for (const auto* entry : wanted) {
        roots.push_back(entry->first);
    }
    return roots;
}

}  // namespace tarnview
