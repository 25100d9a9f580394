#include "SlowStep.h"

#include "ActivityNames.h"

namespace packagesearch {

SlowStep::SlowStep(tarn::ActivityScope& activity, const char* step, const WorkLimits& limits)
    : m_activity(activity),
      m_step(step),
      m_limit(limits.slowAfter),
      m_begin(Deadline::Clock::now()) {}

SlowStep::~SlowStep() {
    const auto taken =
        std::chrono::duration_cast<std::chrono::milliseconds>(Deadline::Clock::now() - m_begin);
    if (taken <= m_limit) {
        return;
    }
    try {
        m_activity.Log({{attribute::slowStep, m_step},
                        {attribute::milliseconds, taken.count()},
                        {attribute::limitMilliseconds, m_limit.count()}});
    } catch (...) {
        // Out of memory: the step itself went well, so the remark is what is given up.
    }
}

}  // namespace packagesearch
