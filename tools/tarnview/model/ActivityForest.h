#pragma once

#include "model/Activity.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnview {

/// Activities as trees by their sponsors, across threads and processes. Filled with Add(), then
/// linked once; read-only from then on. Used by one thread.
class ActivityForest {
public:
    using Index = std::size_t;
    static constexpr Index none = static_cast<Index>(-1);

    struct Step {
        Index index = none;
        std::size_t level = 0;
    };

    void Add(Activity&& activity);

    /// Finds the parent of each activity:
    /// - the activity that it names as its sponsor;
    /// - for one that names itself, as work does that came from another process or without its
    ///   metrics context: an activity of the same root one level higher that ran when it began,
    ///   else the root. Of several preferably one of the same request, one that did nothing else
    ///   on its thread meanwhile, or ever, one that did not end earlier, and then the latest;
    /// - none, if that is not in the log.
    /// Sponsors that go in a circle are reported, and the earliest of them has no parent.
    void Link(Problems& problems);

    std::size_t Size() const { return m_nodes.size(); }

    const Activity& operator[](Index index) const { return m_nodes[index].activity; }

    Index ParentOf(Index index) const { return m_nodes[index].parent; }

    /// In the order in which they began.
    const std::vector<Index>& ChildrenOf(Index index) const { return m_nodes[index].children; }

    const std::vector<Index>& Tops() const { return m_tops; }

    /// An activity and all below it, each before its children.
    std::vector<Step> PreOrder(Index top) const;

    /// The latest time of all.
    Microseconds LastTime() const { return m_lastTime; }

private:
    struct Node {
        Activity activity;
        Index parent = none;
        std::vector<Index> children;
    };

    Index FindParent(Index index) const;
    Index FindSponsor(Index index) const;
    Index FindAdopter(Index index) const;
    bool HasChildBetween(Index index, Microseconds begin, Microseconds end) const;
    bool RanAt(Index index, Microseconds time) const;
    void CutCircles(Problems& problems);
    bool BeganBefore(Index a, Index b) const;

    std::vector<Node> m_nodes;
    std::vector<Index> m_tops;
    // Needed to link, and empty afterwards.
    using IndicesByText = std::unordered_map<std::string_view, std::vector<Index>>;
    IndicesByText m_byId;
    IndicesByText m_byRoot;
    IndicesByText m_bySponsor;
    Microseconds m_lastTime = 0;
};

}  // namespace tarnview
