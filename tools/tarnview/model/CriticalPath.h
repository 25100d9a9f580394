#pragma once

#include "model/ActivityForest.h"

#include <cstddef>
#include <vector>

namespace tarnview {

/// An activity on the critical path.
struct PathStep {
    ActivityForest::Index index = ActivityForest::none;
    std::size_t level = 0;
    Microseconds begin = 0;  ///< of its part of the path
    Microseconds end = 0;
    Microseconds own = 0;  ///< of that, the time in which none of its children is on the path
};

/// What an activity waited for, or did itself, at each moment: going back from its end, the child
/// that ended last before, down to where that one began, and so on; in each of these children the
/// same. Own times add up to the duration of the activity at `top`. Parts of children that lie
/// outside of their parent's time are left out, after clocks that differ have been set right; what
/// never ended went on until the end of the log. Each step before those below it, in the order in
/// which they began.
std::vector<PathStep> CriticalPath(const ActivityForest& forest, ActivityForest::Index top);

}  // namespace tarnview
