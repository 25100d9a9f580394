#include "export/ThreadLanes.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

// A lane while it is filled: the ends of the activities that are open at the moment.
struct OpenLane {
    ThreadLane lane;
    std::vector<Microseconds> ends;

    bool Accepts(const TimeSpan& span) {
        while (!ends.empty() && ends.back() <= span.begin) {
            ends.pop_back();
        }
        return ends.empty() || span.end <= ends.back();
    }
};

// Of two that begin at once the longer one comes first, then the one that is higher in the tree.
std::vector<Index> InOrder(const ActivityForest& forest) {
    std::vector<Index> order(forest.Size());
    for (Index index = 0; index < order.size(); ++index) {
        order[index] = index;
    }
    std::sort(order.begin(), order.end(), [&](Index a, Index b) {
        const TimeSpan first = SpanOf(forest, a);
        const TimeSpan second = SpanOf(forest, b);
        return std::tuple(first.begin, -first.end, forest[a].depth, a) <
               std::tuple(second.begin, -second.end, forest[b].depth, b);
    });
    return order;
}

}  // namespace

TimeSpan SpanOf(const ActivityForest& forest, Index index) {
    const Activity& activity = forest[index];
    if (!activity.hasEnd) {
        // Not only up to the last line: what began with that would lie beside its sponsor, for
        // viewers close what ends before they open what begins.
        return {activity.begin, std::max(activity.begin, forest.LastTime()) + 1};
    }
    return {activity.begin, activity.begin + std::max<Microseconds>(activity.Duration(), 0)};
}

std::vector<ThreadLane> MakeThreadLanes(const ActivityForest& forest) {
    std::map<std::pair<ProcessId, std::int64_t>, std::vector<OpenLane>> threads;
    for (const Index index : InOrder(forest)) {
        const Activity& activity = forest[index];
        const TimeSpan span = SpanOf(forest, index);
        std::vector<OpenLane>& lanes = threads[{activity.process, activity.beginThread}];
        std::size_t number = activity.beginThread == activity.endThread ? 0 : 1;
        while (number < lanes.size() && !lanes[number].Accepts(span)) {
            ++number;
        }
        while (lanes.size() <= number) {
            lanes.push_back({{activity.process, activity.beginThread, lanes.size(), {}}, {}});
        }
        lanes[number].lane.activities.push_back(index);
        // What takes no time holds nothing, not even what begins with it.
        if (span.end > span.begin) {
            lanes[number].ends.push_back(span.end);
        }
    }
    std::vector<ThreadLane> result;
    for (auto& [thread, lanes] : threads) {
        for (OpenLane& lane : lanes) {
            if (!lane.lane.activities.empty()) {
                result.push_back(std::move(lane.lane));
            }
        }
    }
    return result;
}

}  // namespace tarnview
