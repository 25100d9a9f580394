#pragma once

#include "Deadline.h"

#include "tarn/ActivityScope.h"

#include <chrono>

namespace packagesearch {

/// Watches one step of an activity, from construction to destruction. A step that took too long
/// leaves a log supplement in the activity's end line: what it was, and how long it took. Neither
/// outlives the activity. The step's name must be a literal.
class SlowStep {
public:
    SlowStep(tarn::ActivityScope& activity, const char* step, const WorkLimits& limits);
    ~SlowStep();
    SlowStep(const SlowStep&) = delete;
    SlowStep& operator=(const SlowStep&) = delete;

private:
    tarn::ActivityScope& m_activity;
    const char* m_step;
    std::chrono::milliseconds m_limit;
    Deadline::Clock::time_point m_begin;
};

}  // namespace packagesearch
