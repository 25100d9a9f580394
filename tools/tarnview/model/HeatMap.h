#pragma once

#include "read/Timestamp.h"

#include <cstddef>
#include <cstdint>
#include <map>

namespace tarnview {

/// Counts what happened by time and by a class, as of durations. Holds at most 20,000 times of each
/// class: with more of them, they become coarser, in steps that divide every interval that is asked
/// for. Used by one thread.
class HeatMap {
public:
    using Classes = std::map<std::size_t, std::uint64_t>;
    using Columns = std::map<Microseconds, Classes>;

    void Add(Microseconds time, std::size_t classNumber);

    bool IsEmpty() const { return m_cells.empty(); }

    Microseconds First() const { return m_first; }

    Microseconds Last() const { return m_last; }

    /// By the time at which each interval begins, a multiple of `length` since 1970; without those
    /// in which nothing happened. `length` comes from IntervalFor() for at most 1,000 intervals.
    Columns In(Microseconds length) const;

private:
    static Columns Coarser(const Columns& cells, Microseconds length);

    Columns m_cells;
    std::size_t m_step = 0;
    Microseconds m_first = 0;
    Microseconds m_last = 0;
};

/// The latest multiple of `length` that is not after `time`.
Microseconds BeginOfInterval(Microseconds time, Microseconds length);

}  // namespace tarnview
