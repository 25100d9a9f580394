#include "model/FoldedTree.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <utility>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

class Folder {
public:
    Folder(const ActivityForest& forest, std::size_t most, std::size_t depth)
        : m_forest(forest),
          m_most(most),
          m_depth(depth) {}

    // A stack instead of recursion: trees may be as deep as a log has lines.
    std::vector<FoldedRow> Fold(Index top) {
        NoteWhatIsNotWell(top);
        std::vector<FoldedRow> rows;
        std::vector<FoldedRow> waiting(1);
        waiting.back().index = top;
        while (!waiting.empty()) {
            rows.push_back(std::move(waiting.back()));
            waiting.pop_back();
            const FoldedRow& row = rows.back();
            if (row.isGroup || (m_depth != 0 && row.level + 1 >= m_depth)) {
                continue;
            }
            std::vector<FoldedRow> below = RowsBelow(row.index, row.level + 1);
            waiting.insert(waiting.end(),
                           std::make_move_iterator(below.rbegin()),
                           std::make_move_iterator(below.rend()));
        }
        return rows;
    }

private:
    // Name, result, and whether something below is not ok.
    using Likeness = std::tuple<std::string_view, std::string_view, bool>;

    static bool IsWell(const Activity& activity) {
        return activity.hasEnd && activity.result == "ok";
    }

    void NoteWhatIsNotWell(Index top) {
        const std::vector<ActivityForest::Step> steps = m_forest.PreOrder(top);
        for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
            const Index parent = m_forest.ParentOf(step->index);
            const bool isWellBelow = m_isNotWellBelow.count(step->index) == 0;
            const bool isWell = IsWell(m_forest[step->index]) && isWellBelow;
            if (!isWell && parent != ActivityForest::none) {
                m_isNotWellBelow.insert(parent);
            }
        }
    }

    Likeness LikenessOf(Index index) const {
        const Activity& activity = m_forest[index];
        return {activity.name, activity.result, m_isNotWellBelow.count(index) != 0};
    }

    std::vector<FoldedRow> RowsBelow(Index parent, std::size_t level) const {
        const std::vector<Index>& children = m_forest.ChildrenOf(parent);
        std::map<Likeness, std::vector<Index>> alike;
        if (m_most != 0 && children.size() > m_most) {
            for (const Index child : children) {
                alike[LikenessOf(child)].push_back(child);
            }
        }
        std::vector<FoldedRow> rows;
        for (const Index child : children) {
            const auto found = alike.find(LikenessOf(child));
            const bool isFolded = found != alike.end() && found->second.size() > m_most;
            if (!isFolded) {
                rows.push_back({.index = child, .level = level});
            } else if (found->second.front() == child) {
                rows.push_back({.index = child,
                                .level = level,
                                .isGroup = true,
                                .group = GroupOf(found->second)});
                const Index slowest = rows.back().group.slowest;
                if (!IsWell(m_forest[slowest]) || !m_forest.ChildrenOf(slowest).empty()) {
                    rows.push_back({.index = slowest, .level = level});
                }
            }
        }
        return rows;
    }

    SiblingGroup GroupOf(const std::vector<Index>& members) const {
        SiblingGroup group;
        group.members = members;
        group.begin = m_forest[members.front()].begin;
        std::vector<Microseconds> durations;
        for (const Index member : members) {
            const Activity& activity = m_forest[member];
            group.end = std::max(group.end, std::max(activity.begin, activity.end));
            if (group.slowest == ActivityForest::none ||
                activity.Duration() > m_forest[group.slowest].Duration()) {
                group.slowest = member;
            }
            if (!activity.hasEnd) {
                continue;
            }
            durations.push_back(activity.Duration());
            group.total += activity.Duration();
            group.exclusive += activity.ExclusiveTime();
            group.self += m_forest.SelfTime(member);
            if (activity.figures.hasCpu) {
                ++group.cpuCount;
                group.cpu += activity.figures.CpuInclusive();
            }
            if (activity.figures.hasAllocated) {
                ++group.memoryCount;
                group.memory += activity.figures.ai;
            }
        }
        group.ended = durations.size();
        if (!durations.empty()) {
            const auto middle =
                durations.begin() + static_cast<std::ptrdiff_t>((durations.size() - 1) / 2);
            std::nth_element(durations.begin(), middle, durations.end());
            group.median = *middle;
        }
        return group;
    }

    const ActivityForest& m_forest;
    std::size_t m_most;
    std::size_t m_depth;
    std::unordered_set<Index> m_isNotWellBelow;
};

}  // namespace

std::vector<FoldedRow> FoldSiblings(const ActivityForest& forest,
                                    ActivityForest::Index top,
                                    std::size_t most,
                                    std::size_t depth) {
    return Folder(forest, most, depth).Fold(top);
}

}  // namespace tarnview
