#pragma once

#include "activity/Activity.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnview {

/// How the parent of an activity is known.
enum class LinkKind {
    None,       ///< it has none
    Named,      ///< the log names it
    Guessed,    ///< by tree, level and time, and there is no other
    Ambiguous,  ///< likewise, but it may be another one
};

/// "" for what the log names, else "guessed" or "guessed among several".
std::string_view TextOf(LinkKind kind);

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

    /// By how many microseconds the clock of the second process of a pair is ahead of that of the
    /// first. Pairs whose clocks agree are not there.
    using Skews = std::map<std::pair<ProcessId, ProcessId>, Microseconds>;

    void Add(Activity&& activity);

    /// Finds the parent of each activity:
    /// - the one that it names as its caller;
    /// - else the one that it names as its sponsor;
    /// - for one that names itself, as work does that came from another process or without its
    ///   metrics context: the one that CallerSearch finds, else the root;
    /// - none, if that is not in the log, which is reported.
    /// Sponsors that go in a circle are reported, and the earliest of them has no parent.
    void Link(Problems& problems);

    std::size_t Size() const { return m_nodes.size(); }

    const Activity& operator[](Index index) const { return m_nodes[index].activity; }

    Index ParentOf(Index index) const { return m_nodes[index].parent; }

    LinkKind LinkOf(Index index) const { return m_nodes[index].link; }

    /// What the calls between processes say about their clocks.
    const Skews& ClockSkews() const { return m_skews; }

    static Microseconds SkewBetween(const Skews& skews,
                                    const ProcessId& process,
                                    const ProcessId& other);

    /// The time in which it ran and none of its children did, on any thread and in any process.
    /// What never ended ran until the last line.
    Microseconds SelfTime(Index index) const;

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
        LinkKind link = LinkKind::None;
        std::vector<Index> children;
    };

    using IndicesById = std::unordered_map<std::string_view, std::vector<Index>>;

    void LinkNamed(const IndicesById& byId);
    void LinkAdopted(const IndicesById& byId);
    void ReportOrphans(Problems& problems) const;
    Index FindById(const IndicesById& byId, const std::string& id, Index child) const;
    bool RanAt(Index index, Microseconds time) const;
    void CutCircles(Problems& problems);
    bool BeganBefore(Index a, Index b) const;

    std::vector<Node> m_nodes;
    std::vector<Index> m_tops;
    Skews m_skews;
    Microseconds m_lastTime = 0;
};

}  // namespace tarnview
