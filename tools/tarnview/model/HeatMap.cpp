#include "model/HeatMap.h"

#include <algorithm>
#include <iterator>

namespace tarnview {

namespace {

constexpr std::size_t mostTimes = 20'000;
// Each divides the next one, and all longer intervals of IntervalFor().
constexpr Microseconds steps[] = {1,
                                  10,
                                  100,
                                  1'000,
                                  10'000,
                                  100'000,
                                  1'000'000,
                                  10'000'000,
                                  60'000'000,
                                  600'000'000,
                                  3'600'000'000,
                                  86'400'000'000};

}  // namespace

Microseconds BeginOfInterval(Microseconds time, Microseconds length) {
    // Towards the past, also for times before 1970.
    return time - (time % length + length) % length;
}

void HeatMap::Add(Microseconds time, std::size_t classNumber) {
    m_first = m_cells.empty() ? time : std::min(m_first, time);
    m_last = m_cells.empty() ? time : std::max(m_last, time);
    ++m_cells[BeginOfInterval(time, steps[m_step])][classNumber];
    while (m_cells.size() > mostTimes && m_step + 1 < std::size(steps)) {
        m_cells = Coarser(m_cells, steps[++m_step]);
    }
}

HeatMap::Columns HeatMap::In(Microseconds length) const {
    return Coarser(m_cells, length);
}

HeatMap::Columns HeatMap::Coarser(const Columns& cells, Microseconds length) {
    Columns coarser;
    for (const auto& [time, classes] : cells) {
        Classes& sum = coarser[BeginOfInterval(time, length)];
        for (const auto& [number, count] : classes) {
            sum[number] += count;
        }
    }
    return coarser;
}

}  // namespace tarnview
