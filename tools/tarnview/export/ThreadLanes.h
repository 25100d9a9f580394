#pragma once

#include "model/ActivityForest.h"

#include <cstdint>
#include <vector>

namespace tarnview {

/// The times of an activity as all exports use them: never negative, and one that never ended goes
/// on for a microsecond longer than the log.
struct TimeSpan {
    Microseconds begin = 0;
    Microseconds end = 0;
};

TimeSpan SpanOf(const ActivityForest& forest, ActivityForest::Index index);

/// Activities of one thread that lie within or beside each other, never across, so that they can be
/// drawn as a stack.
struct ThreadLane {
    ProcessId process{};
    std::int64_t thread = 0;
    std::size_t number = 0;  ///< 0: the thread itself; else what overlaps with the lanes before
    std::vector<ActivityForest::Index> activities;  ///< each before those that lie within
};

/// Spreads all activities over lanes, ordered by process, thread and number. What ended on another
/// thread than it began on is in none of the lanes 0.
std::vector<ThreadLane> MakeThreadLanes(const ActivityForest& forest);

}  // namespace tarnview
