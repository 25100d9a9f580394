#include "model/CallerSearch.h"

#include <algorithm>
#include <tuple>

namespace tarnview {

namespace {

constexpr std::size_t mostCandidates = 64;
constexpr int longestExchange = 32;

bool IsElsewhere(const Activity& a, const Activity& b) {
    return a.process != b.process || a.beginThread != b.beginThread;
}

// Callees are taken one after the other, and one whose caller is taken already may have it if the
// one that has it finds another.
class Matching {
public:
    Matching(const std::vector<std::vector<std::size_t>>& wanted, std::size_t callers)
        : m_wanted(wanted),
          m_calleeOf(callers, none),
          m_visit(callers, 0) {}

    std::vector<std::size_t> CallerOfEach() {
        for (std::size_t callee = 0; callee < m_wanted.size(); ++callee) {
            ++m_round;
            Place(callee, longestExchange);
        }
        std::vector<std::size_t> callers(m_wanted.size(), none);
        for (std::size_t caller = 0; caller < m_calleeOf.size(); ++caller) {
            if (m_calleeOf[caller] != none) {
                callers[m_calleeOf[caller]] = caller;
            }
        }
        return callers;
    }

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

private:
    bool Place(std::size_t callee, int exchanges) {
        for (const std::size_t caller : m_wanted[callee]) {
            if (m_calleeOf[caller] == none) {
                m_calleeOf[caller] = callee;
                return true;
            }
        }
        for (const std::size_t caller : m_wanted[callee]) {
            if (exchanges == 0 || m_visit[caller] == m_round) {
                continue;
            }
            m_visit[caller] = m_round;
            if (Place(m_calleeOf[caller], exchanges - 1)) {
                m_calleeOf[caller] = callee;
                return true;
            }
        }
        return false;
    }

    const std::vector<std::vector<std::size_t>>& m_wanted;
    std::vector<std::size_t> m_calleeOf;
    std::vector<std::size_t> m_visit;
    std::size_t m_round = 0;
};

}  // namespace

CallerSearch::CallerSearch(const ActivityForest& forest) : m_forest(forest) {
    for (Index index = 0; index < forest.Size(); ++index) {
        const Activity& activity = forest[index];
        m_levels[{activity.root, activity.depth}].push_back(index);
        m_bySponsor[activity.sponsor].push_back(index);
    }
}

void CallerSearch::AddKnown(Index callee, Index caller) {
    AddPair(callee, caller, m_certain);
}

std::vector<CallerSearch::Found> CallerSearch::Find(const std::vector<Index>& callees) {
    std::map<Level, Group> levels;
    for (const Index index : callees) {
        const Activity& activity = m_forest[index];
        levels[{activity.root, activity.depth}].push_back({index, CandidatesOf(index)});
    }
    std::vector<Group> groups;
    groups.reserve(levels.size());
    for (auto& [level, group] : levels) {
        groups.push_back(std::move(group));
    }
    EstimateSkews(groups);
    std::vector<Found> found;
    for (Group& group : groups) {
        Match(group, found);
    }
    return found;
}

std::vector<CallerSearch::Index> CallerSearch::CandidatesOf(Index callee) const {
    const Activity& activity = m_forest[callee];
    std::vector<Index> candidates;
    const auto level = m_levels.find({activity.root, activity.depth - 1});
    if (level != m_levels.end()) {
        for (const Index candidate : level->second) {
            if (IsElsewhere(m_forest[candidate], activity)) {
                candidates.push_back(candidate);
            }
        }
    }
    const auto isOfRequest = [&](Index candidate) {
        return m_forest[candidate].request == activity.request;
    };
    if (std::any_of(candidates.begin(), candidates.end(), isOfRequest)) {
        std::erase_if(candidates, [&](Index candidate) { return !isOfRequest(candidate); });
    }
    return candidates;
}

void CallerSearch::AddPair(Index callee,
                           Index caller,
                           std::map<ProcessPair, std::vector<Range>>& ranges) {
    const Activity& inner = m_forest[callee];
    const Activity& outer = m_forest[caller];
    if (inner.process != outer.process && inner.hasBegin && inner.hasEnd && outer.hasBegin &&
        outer.hasEnd && inner.Duration() <= outer.Duration()) {
        ranges[{outer.process, inner.process}].push_back(
            {EndOf(callee) - EndOf(caller), inner.begin - outer.begin});
    }
}

void CallerSearch::EstimateSkews(const std::vector<Group>& groups) {
    std::map<ProcessPair, std::vector<Range>> paired;
    for (const Group& group : groups) {
        for (const Callee& callee : group) {
            if (callee.candidates.size() == 1) {
                AddPair(callee.index, callee.candidates.front(), m_certain);
            }
        }
        PairInOrder(group, paired);
    }
    for (const auto& [processes, ranges] : m_certain) {
        paired[processes] = ranges;
    }
    for (const auto& [processes, ranges] : paired) {
        const Microseconds skew = Estimate(ranges);
        if (skew != 0) {
            m_skews[processes] = skew;
        }
    }
}

// As many callees in one process as callers in another are likely to have begun in the same order.
void CallerSearch::PairInOrder(const Group& group,
                               std::map<ProcessPair, std::vector<Range>>& ranges) {
    std::map<ProcessId, std::vector<Index>> callees;
    std::map<ProcessId, std::vector<Index>> callers;
    for (const Callee& callee : group) {
        callees[m_forest[callee.index].process].push_back(callee.index);
        for (const Index candidate : callee.candidates) {
            callers[m_forest[candidate].process].push_back(candidate);
        }
    }
    const auto order = [this](std::vector<Index>& indices) {
        std::sort(indices.begin(), indices.end(), [this](Index a, Index b) {
            return std::pair(m_forest[a].begin, a) < std::pair(m_forest[b].begin, b);
        });
        indices.erase(std::unique(indices.begin(), indices.end()), indices.end());
    };
    for (auto& [process, indices] : callers) {
        order(indices);
    }
    for (auto& [process, indices] : callees) {
        order(indices);
        for (const auto& [other, candidates] : callers) {
            for (std::size_t i = 0; candidates.size() == indices.size() && i < indices.size();
                 ++i) {
                AddPair(indices[i], candidates[i], ranges);
            }
        }
    }
}

// Clocks that may well be equal are taken as equal.
Microseconds CallerSearch::Estimate(const std::vector<Range>& ranges) {
    Range all = ranges.front();
    std::size_t equal = 0;
    std::vector<Microseconds> middles;
    for (const Range& range : ranges) {
        all = {std::max(all.least, range.least), std::min(all.most, range.most)};
        equal += range.least <= 0 && range.most >= 0 ? 1U : 0U;
        middles.push_back(range.least + (range.most - range.least) / 2);
    }
    if (2 * equal >= ranges.size()) {
        return 0;
    }
    if (all.least <= all.most) {
        return all.least + (all.most - all.least) / 2;
    }
    const auto middle = middles.begin() + static_cast<std::ptrdiff_t>(middles.size() / 2);
    std::nth_element(middles.begin(), middle, middles.end());
    return *middle;
}

void CallerSearch::Match(Group& group, std::vector<Found>& found) const {
    // The latest first: it has the fewest callers that began before it.
    std::sort(group.begin(), group.end(), [this](const Callee& a, const Callee& b) {
        return std::pair(m_forest[a.index].begin, a.index) >
               std::pair(m_forest[b.index].begin, b.index);
    });
    std::map<Index, std::size_t> numbers;
    std::vector<Index> callers;
    std::vector<std::vector<std::size_t>> wanted;
    for (Callee& callee : group) {
        KeepWhatFits(callee);
        std::vector<std::size_t>& own = wanted.emplace_back();
        for (const Index candidate : callee.candidates) {
            const auto [number, isNew] = numbers.emplace(candidate, callers.size());
            if (isNew) {
                callers.push_back(candidate);
            }
            own.push_back(number->second);
        }
    }
    const std::vector<std::size_t> matched = Matching(wanted, callers.size()).CallerOfEach();
    for (std::size_t index = 0; index < group.size(); ++index) {
        Callee& callee = group[index];
        if (matched[index] != Matching::none) {
            callee.caller = callers[matched[index]];
        } else if (!callee.candidates.empty()) {
            callee.caller = callee.candidates.front();  // which has another callee already
        }
    }
    for (const Callee& callee : group) {
        found.push_back({callee.index, callee.caller, IsAmbiguous(group, callee)});
    }
}

void CallerSearch::KeepWhatFits(Callee& callee) const {
    std::vector<Index>& candidates = callee.candidates;
    if (candidates.size() < 2) {
        return;
    }
    std::erase_if(candidates, [&](Index candidate) { return !Fits(candidate, callee.index); });
    std::vector<std::pair<Likeness, Index>> order;
    order.reserve(candidates.size());
    for (const Index candidate : candidates) {
        order.emplace_back(LikenessOf(candidate, callee.index), candidate);
    }
    std::sort(order.rbegin(), order.rend());
    order.resize(std::min(order.size(), mostCandidates));
    candidates.clear();
    for (const auto& [likeness, candidate] : order) {
        candidates.push_back(candidate);
    }
}

// Another one is as good, but for its begin, and is not the only one that another callee can have.
bool CallerSearch::IsAmbiguous(const Group& group, const Callee& callee) const {
    const auto likenessOf = [&](Index candidate) {
        const auto [isIdleMeanwhile, isIdle, goesOn, begin] = LikenessOf(candidate, callee.index);
        return std::tuple(isIdleMeanwhile, isIdle, goesOn);
    };
    const auto isNeeded = [&](Index candidate) {
        return std::any_of(group.begin(), group.end(), [&](const Callee& other) {
            return other.index != callee.index && other.candidates.size() == 1 &&
                   other.candidates.front() == candidate;
        });
    };
    return callee.candidates.size() > 1 &&
           std::any_of(callee.candidates.begin(), callee.candidates.end(), [&](Index candidate) {
               return candidate != callee.caller &&
                      likenessOf(candidate) >= likenessOf(callee.caller) && !isNeeded(candidate);
           });
}

Microseconds CallerSearch::InClockOf(Index caller, Index callee, Microseconds time) const {
    return time -
           ActivityForest::SkewBetween(m_skews, m_forest[caller].process, m_forest[callee].process);
}

bool CallerSearch::Fits(Index caller, Index callee) const {
    const Microseconds begin = InClockOf(caller, callee, m_forest[callee].begin);
    return m_forest[caller].begin <= begin && EndOf(caller) >= begin;
}

CallerSearch::Likeness CallerSearch::LikenessOf(Index caller, Index callee) const {
    const Microseconds begin = InClockOf(caller, callee, m_forest[callee].begin);
    const Microseconds end = InClockOf(caller, callee, m_forest[callee].end);
    const Activity& activity = m_forest[caller];
    return {!HasChildBetween(caller, begin, end),
            !HasChildBetween(caller, activity.begin, EndOf(caller)),
            EndOf(caller) >= end,
            activity.begin};
}

// On its own thread.
bool CallerSearch::HasChildBetween(Index index, Microseconds begin, Microseconds end) const {
    const Activity& activity = m_forest[index];
    const auto found = m_bySponsor.find(activity.id);
    return found != m_bySponsor.end() &&
           std::any_of(found->second.begin(), found->second.end(), [&](Index child) {
               const Activity& other = m_forest[child];
               return child != index && other.process == activity.process &&
                      other.beginThread == activity.beginThread && other.begin <= end &&
                      (!other.hasEnd || other.end >= begin);
           });
}

Microseconds CallerSearch::EndOf(Index index) const {
    const Activity& activity = m_forest[index];
    return activity.hasEnd ? activity.end : std::max(activity.begin, m_forest.LastTime());
}

}  // namespace tarnview
