#include "model/CriticalPath.h"

#include <algorithm>

namespace tarnview {

namespace {

using Index = ActivityForest::Index;

Microseconds EndOf(const ActivityForest& forest, Index index) {
    const Activity& activity = forest[index];
    return activity.hasEnd ? activity.begin + activity.Duration() : forest.LastTime();
}

// The walk through one activity, backwards.
struct Frame {
    std::size_t step = 0;
    Microseconds cursor = 0;
    Microseconds skew = 0;  // of its process's clock against the top's
    std::vector<Index>
        waiting{};  // children that began before the cursor, the last to end at the back
};

class Walk {
public:
    explicit Walk(const ActivityForest& forest) : m_forest(forest) {}

    // Not by recursion: a log may nest as deeply as it likes.
    std::vector<PathStep> Run(Index top) {
        Enter(top, 0, m_forest[top].begin, EndOf(m_forest, top), 0);
        while (!m_frames.empty()) {
            if (!EnterNextChild()) {
                Frame& frame = m_frames.back();
                PathStep& step = m_steps[frame.step];
                step.own += frame.cursor - step.begin;
                m_frames.pop_back();
            }
        }
        return InOrder();
    }

private:
    void Enter(
        Index index, std::size_t level, Microseconds begin, Microseconds end, Microseconds skew) {
        Frame frame;
        frame.step = m_steps.size();
        frame.cursor = end;
        frame.skew = skew;
        frame.waiting = m_forest.ChildrenOf(index);
        std::stable_sort(frame.waiting.begin(), frame.waiting.end(), [&](Index a, Index b) {
            const auto endOf = [&](Index child) {
                return std::min(EndOf(m_forest, child) - SkewOf(child, index, skew), end);
            };
            return endOf(a) < endOf(b);
        });
        m_parents.push_back(m_frames.empty() ? noParent : m_frames.back().step);
        m_steps.push_back({index, level, begin, end, 0});
        m_frames.push_back(std::move(frame));
    }

    Microseconds SkewOf(Index child, Index parent, Microseconds skewOfParent) const {
        return skewOfParent + ActivityForest::SkewBetween(m_forest.ClockSkews(),
                                                          m_forest[parent].process,
                                                          m_forest[child].process);
    }

    // False if no child is left that the activity waited for.
    bool EnterNextChild() {
        Frame& frame = m_frames.back();
        PathStep& step = m_steps[frame.step];
        while (!frame.waiting.empty()) {
            const Index child = frame.waiting.back();
            frame.waiting.pop_back();
            const Microseconds skew = SkewOf(child, step.index, frame.skew);
            const Microseconds begin = std::max(m_forest[child].begin - skew, step.begin);
            const Microseconds end = std::min(EndOf(m_forest, child) - skew, step.end);
            // One that was still running when the next one began was not waited for there.
            if (end <= frame.cursor && begin < end) {
                step.own += frame.cursor - end;
                frame.cursor = begin;
                Enter(child, step.level + 1, begin, end, skew);
                return true;
            }
        }
        return false;
    }

    // The walk goes back in time; parents come before their children all the same.
    std::vector<PathStep> InOrder() const {
        std::vector<std::vector<std::size_t>> children(m_steps.size());
        for (std::size_t step = 1; step < m_steps.size(); ++step) {
            children[m_parents[step]].push_back(step);
        }
        std::vector<PathStep> steps;
        std::vector<std::size_t> waiting{0};
        while (!waiting.empty()) {
            const std::size_t step = waiting.back();
            waiting.pop_back();
            steps.push_back(m_steps[step]);
            // The last that was found is the earliest, and to be on top.
            waiting.insert(waiting.end(), children[step].begin(), children[step].end());
        }
        return steps;
    }

    static constexpr auto noParent = static_cast<std::size_t>(-1);

    const ActivityForest& m_forest;
    std::vector<PathStep> m_steps;
    std::vector<std::size_t> m_parents;
    std::vector<Frame> m_frames;
};

}  // namespace

std::vector<PathStep> CriticalPath(const ActivityForest& forest, Index top) {
    return Walk(forest).Run(top);
}

}  // namespace tarnview
