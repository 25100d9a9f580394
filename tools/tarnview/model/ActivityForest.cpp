#include "model/ActivityForest.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace tarnview {

void ActivityForest::Add(Activity&& activity) {
    m_lastTime = std::max(m_lastTime, activity.end);
    m_nodes.push_back({std::move(activity), none, {}});
}

void ActivityForest::Link(Problems& problems) {
    for (Index index = 0; index < m_nodes.size(); ++index) {
        m_byId[m_nodes[index].activity.id].push_back(index);
        m_byRoot[m_nodes[index].activity.root].push_back(index);
        m_bySponsor[m_nodes[index].activity.sponsor].push_back(index);
    }
    for (Index index = 0; index < m_nodes.size(); ++index) {
        m_nodes[index].parent = FindParent(index);
    }
    CutCircles(problems);
    for (Index index = 0; index < m_nodes.size(); ++index) {
        const Index parent = m_nodes[index].parent;
        (parent == none ? m_tops : m_nodes[parent].children).push_back(index);
    }
    const auto isBefore = [this](Index a, Index b) { return BeganBefore(a, b); };
    std::sort(m_tops.begin(), m_tops.end(), isBefore);
    for (Node& node : m_nodes) {
        std::sort(node.children.begin(), node.children.end(), isBefore);
    }
    m_byId = m_byRoot = m_bySponsor = {};
}

// Many begin in the same microsecond; in one file the line decides then.
bool ActivityForest::BeganBefore(Index a, Index b) const {
    const auto order = [this](Index index) {
        const Activity& activity = m_nodes[index].activity;
        const Place& place = activity.hasBegin ? activity.beginPlace : activity.endPlace;
        return std::tuple(activity.begin, place.file, place.line, index);
    };
    return order(a) < order(b);
}

ActivityForest::Index ActivityForest::FindParent(Index index) const {
    const Activity& activity = m_nodes[index].activity;
    if (activity.sponsor.empty() || activity.sponsor == "-") {
        return none;
    }
    return activity.sponsor == activity.id ? FindAdopter(index) : FindSponsor(index);
}

// Of several activities with that id the one that ran when this one began, best in this process.
ActivityForest::Index ActivityForest::FindSponsor(Index index) const {
    const Activity& activity = m_nodes[index].activity;
    const auto found = m_byId.find(activity.sponsor);
    if (found == m_byId.end()) {
        return none;
    }
    Index best = none;
    int bestLikeness = -1;
    for (const Index candidate : found->second) {
        const int likeness = (m_nodes[candidate].activity.process == activity.process ? 2 : 0) +
                             (RanAt(candidate, activity.begin) ? 1 : 0);
        if (candidate != index && likeness > bestLikeness) {
            best = candidate;
            bestLikeness = likeness;
        }
    }
    return best;
}

ActivityForest::Index ActivityForest::FindAdopter(Index index) const {
    const Activity& activity = m_nodes[index].activity;
    const auto found = m_byRoot.find(activity.root);
    // What waits for an answer does nothing else meanwhile, most often nothing else at all, and
    // goes on until it has come. The same request is a better sign than that, the later begin a
    // worse one.
    const auto likeness = [&](Index candidate) {
        const Activity& other = m_nodes[candidate].activity;
        const Microseconds end = other.hasEnd ? other.end : m_lastTime;
        return std::tuple(other.request == activity.request,
                          !HasChildBetween(candidate, activity.begin, activity.end),
                          !HasChildBetween(candidate, other.begin, end),
                          end >= activity.end,
                          other.begin);
    };
    Index best = none;
    for (const Index candidate : found->second) {
        const Activity& other = m_nodes[candidate].activity;
        const bool isElsewhere =
            other.process != activity.process || other.beginThread != activity.beginThread;
        const bool fits = candidate != index && isElsewhere && other.depth + 1 == activity.depth &&
                          RanAt(candidate, activity.begin);
        if (fits && (best == none || likeness(best) < likeness(candidate))) {
            best = candidate;
        }
    }
    if (best == none && activity.root != activity.id) {
        const auto root = m_byId.find(activity.root);
        best = root == m_byId.end() ? none : root->second.front();
    }
    return best;
}

// On its own thread.
bool ActivityForest::HasChildBetween(Index index, Microseconds begin, Microseconds end) const {
    const Activity& activity = m_nodes[index].activity;
    const auto found = m_bySponsor.find(activity.id);
    return found != m_bySponsor.end() &&
           std::any_of(found->second.begin(), found->second.end(), [&](Index child) {
               const Activity& other = m_nodes[child].activity;
               return child != index && other.process == activity.process &&
                      other.beginThread == activity.beginThread && other.begin <= end &&
                      (!other.hasEnd || other.end >= begin);
           });
}

bool ActivityForest::RanAt(Index index, Microseconds time) const {
    const Activity& activity = m_nodes[index].activity;
    return activity.begin <= time && (!activity.hasEnd || activity.end >= time);
}

void ActivityForest::CutCircles(Problems& problems) {
    // 0: not seen; else the number of the walk that has come by.
    std::vector<std::size_t> walkOf(m_nodes.size(), 0);
    for (Index start = 0; start < m_nodes.size(); ++start) {
        Index index = start;
        while (index != none && walkOf[index] == 0) {
            walkOf[index] = start + 1;
            index = m_nodes[index].parent;
        }
        if (index == none || walkOf[index] != start + 1) {
            continue;
        }
        Index earliest = index;
        for (Index next = m_nodes[index].parent; next != index; next = m_nodes[next].parent) {
            earliest = BeganBefore(next, earliest) ? next : earliest;
        }
        m_nodes[earliest].parent = none;
        const Activity& activity = m_nodes[earliest].activity;
        problems.Report(ProblemKind::SponsorCycle,
                        activity.hasBegin ? activity.beginPlace : activity.endPlace,
                        activity.name + " " + activity.id);
    }
}

std::vector<ActivityForest::Step> ActivityForest::PreOrder(Index top) const {
    std::vector<Step> steps;
    std::vector<Step> waiting{{top, 0}};
    while (!waiting.empty()) {
        const Step step = waiting.back();
        waiting.pop_back();
        steps.push_back(step);
        const std::vector<Index>& children = m_nodes[step.index].children;
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            waiting.push_back({*child, step.level + 1});
        }
    }
    return steps;
}

}  // namespace tarnview
