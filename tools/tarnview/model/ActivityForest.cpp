#include "model/ActivityForest.h"

#include "model/CallerSearch.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace tarnview {

std::string_view TextOf(LinkKind kind) {
    switch (kind) {
        case LinkKind::None:
        case LinkKind::Named:
            return "";
        case LinkKind::Guessed:
            return "guessed";
        case LinkKind::Ambiguous:
            return "guessed among several";
    }
    return "";
}

void ActivityForest::Add(Activity&& activity) {
    m_lastTime = std::max(m_lastTime, activity.end);
    Node& node = m_nodes.emplace_back();
    node.activity = std::move(activity);
}

void ActivityForest::Link(Problems& problems) {
    IndicesById byId;
    for (Index index = 0; index < m_nodes.size(); ++index) {
        byId[m_nodes[index].activity.id].push_back(index);
    }
    LinkNamed(byId);
    LinkAdopted(byId);
    ReportOrphans(problems);
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
}

// Many begin in the same microsecond; in one file the line decides then.
bool ActivityForest::BeganBefore(Index a, Index b) const {
    const auto order = [this](Index index) {
        const Activity& activity = m_nodes[index].activity;
        const Place& place = activity.FirstPlace();
        return std::tuple(activity.begin, place.file, place.line, index);
    };
    return order(a) < order(b);
}

void ActivityForest::LinkNamed(const IndicesById& byId) {
    for (Index index = 0; index < m_nodes.size(); ++index) {
        Node& node = m_nodes[index];
        const Activity& activity = node.activity;
        if (!activity.caller.empty()) {
            node.parent = FindById(byId, activity.caller, index);
        }
        if (node.parent == none && activity.HasSponsor() && activity.sponsor != activity.id) {
            node.parent = FindById(byId, activity.sponsor, index);
        }
        node.link = node.parent == none ? LinkKind::None : LinkKind::Named;
    }
}

void ActivityForest::LinkAdopted(const IndicesById& byId) {
    std::vector<Index> adopted;
    for (Index index = 0; index < m_nodes.size(); ++index) {
        const Activity& activity = m_nodes[index].activity;
        if (m_nodes[index].parent == none && activity.HasSponsor() &&
            activity.sponsor == activity.id) {
            adopted.push_back(index);
        }
    }
    if (adopted.empty()) {
        return;
    }
    CallerSearch search(*this);
    for (Index index = 0; index < m_nodes.size(); ++index) {
        const Node& node = m_nodes[index];
        if (node.parent != none && node.activity.sponsor == node.activity.id) {
            search.AddKnown(index, node.parent);
        }
    }
    for (const auto& [callee, caller, isAmbiguous] : search.Find(adopted)) {
        Node& node = m_nodes[callee];
        const std::string& root = node.activity.root;
        node.parent =
            caller != none || root == node.activity.id ? caller : FindById(byId, root, callee);
        const bool isSure = caller != none && !isAmbiguous;
        node.link = node.parent == none ? LinkKind::None
                    : isSure            ? LinkKind::Guessed
                                        : LinkKind::Ambiguous;
    }
    m_skews = search.Skews();
}

void ActivityForest::ReportOrphans(Problems& problems) const {
    for (const Node& node : m_nodes) {
        const Activity& activity = node.activity;
        const bool isAdopted = activity.sponsor == activity.id;
        if (node.parent == none && activity.HasSponsor() &&
            !(isAdopted && activity.root == activity.id)) {
            problems.Report(
                ProblemKind::Orphan,
                activity.FirstPlace(),
                activity.name + " " + activity.id + ", " +
                    (isAdopted ? "root " + activity.root : "sponsor " + activity.sponsor));
        }
    }
}

// Of several activities with that id the one that ran when this one began, best in this process.
ActivityForest::Index ActivityForest::FindById(const IndicesById& byId,
                                               const std::string& id,
                                               Index child) const {
    const Activity& activity = m_nodes[child].activity;
    const auto found = byId.find(id);
    if (found == byId.end()) {
        return none;
    }
    Index best = none;
    int bestLikeness = -1;
    for (const Index candidate : found->second) {
        const int likeness = (m_nodes[candidate].activity.process == activity.process ? 2 : 0) +
                             (RanAt(candidate, activity.begin) ? 1 : 0);
        if (candidate != child && likeness > bestLikeness) {
            best = candidate;
            bestLikeness = likeness;
        }
    }
    return best;
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
        m_nodes[earliest].link = LinkKind::None;
        const Activity& activity = m_nodes[earliest].activity;
        problems.Report(
            ProblemKind::SponsorCycle, activity.FirstPlace(), activity.name + " " + activity.id);
    }
}

Microseconds ActivityForest::SkewBetween(const Skews& skews,
                                         const ProcessId& process,
                                         const ProcessId& other) {
    const auto found = skews.find({process, other});
    if (found != skews.end()) {
        return found->second;
    }
    const auto opposite = skews.find({other, process});
    return opposite == skews.end() ? 0 : -opposite->second;
}

Microseconds ActivityForest::SelfTime(Index index) const {
    struct Span {
        Microseconds begin;
        Microseconds end;
    };

    const auto spanOf = [this](const Activity& activity) {
        const Microseconds length =
            activity.hasEnd ? activity.Duration() : m_lastTime - activity.begin;
        return Span{activity.begin, activity.begin + std::max<Microseconds>(length, 0)};
    };
    const Activity& activity = m_nodes[index].activity;
    const Span own = spanOf(activity);
    std::vector<Span> parts;
    for (const Index child : m_nodes[index].children) {
        const Activity& other = m_nodes[child].activity;
        const Microseconds skew = SkewBetween(m_skews, activity.process, other.process);
        const Span span = spanOf(other);
        parts.push_back({span.begin - skew, span.end - skew});
    }
    std::sort(
        parts.begin(), parts.end(), [](const Span& a, const Span& b) { return a.begin < b.begin; });
    Microseconds self = own.end - own.begin;
    Microseconds covered = own.begin;  // up to here
    for (const Span& part : parts) {
        const Microseconds begin = std::max(part.begin, covered);
        const Microseconds end = std::min(part.end, own.end);
        self -= std::max<Microseconds>(end - begin, 0);
        covered = std::max(covered, end);
    }
    return self;
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
