#pragma once

#include "model/ActivityForest.h"

#include <cstdint>
#include <map>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tarnview {

/// Finds who called an activity that came from another process, or without its metrics context, and
/// of whose caller the log says nothing but the tree and the depth.
///
/// Callers are activities of the same tree, one level higher, on another thread or in another
/// process, those of the same request if there are any. If there is one, it is the caller, whatever
/// the clocks say. Of several, each that ran when the activity began may be it; each has one callee
/// as far as possible, and those are preferred that did nothing else on their threads meanwhile, or
/// ever, as what waits for an answer, then those that did not end earlier, then the latest.
///
/// The clocks of two processes may differ; by how much, the certain pairs of caller and callee say,
/// for a callee runs within its caller's time. Used by one thread, for one search.
class CallerSearch {
public:
    using Index = ActivityForest::Index;

    struct Found {
        Index callee = ActivityForest::none;
        Index caller = ActivityForest::none;  ///< none: nobody
        bool isAmbiguous = false;             ///< another one may be it just as well
    };

    /// `forest` must live as long and have all activities, unlinked.
    explicit CallerSearch(const ActivityForest& forest);

    /// A pair that the log names.
    void AddKnown(Index callee, Index caller);

    std::vector<Found> Find(const std::vector<Index>& callees);

    /// By how much clocks differ, as far as callers and callees say.
    const ActivityForest::Skews& Skews() const { return m_skews; }

private:
    // What the clock of the callee's process may be ahead of that of the caller's.
    struct Range {
        Microseconds least = 0;
        Microseconds most = 0;
    };

    struct Callee {
        Index index = ActivityForest::none;
        std::vector<Index> candidates;  // later on those that fit, the best first
        Index caller = ActivityForest::none;
    };

    // Callees of one tree at one level.
    using Group = std::vector<Callee>;
    using ProcessPair = std::pair<ProcessId, ProcessId>;      // of caller and callee
    using Level = std::pair<std::string_view, std::int64_t>;  // root and depth
    using Likeness = std::tuple<bool, bool, bool, Microseconds>;

    std::vector<Index> CandidatesOf(Index callee) const;
    void AddPair(Index callee, Index caller, std::map<ProcessPair, std::vector<Range>>& ranges);
    void EstimateSkews(const std::vector<Group>& groups);
    void PairInOrder(const Group& group, std::map<ProcessPair, std::vector<Range>>& ranges);
    static Microseconds Estimate(const std::vector<Range>& ranges);
    void Match(Group& group, std::vector<Found>& found) const;
    void KeepWhatFits(Callee& callee) const;
    bool IsAmbiguous(const Group& group, const Callee& callee) const;
    Microseconds InClockOf(Index caller, Index callee, Microseconds time) const;
    bool Fits(Index caller, Index callee) const;
    Likeness LikenessOf(Index caller, Index callee) const;
    bool HasChildBetween(Index index, Microseconds begin, Microseconds end) const;
    Microseconds EndOf(Index index) const;

    const ActivityForest& m_forest;
    std::map<Level, std::vector<Index>> m_levels;
    std::unordered_map<std::string_view, std::vector<Index>> m_bySponsor;
    std::map<ProcessPair, std::vector<Range>> m_certain;
    ActivityForest::Skews m_skews;
};

}  // namespace tarnview
