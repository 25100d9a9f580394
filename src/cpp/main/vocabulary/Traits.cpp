#include "tarn/Traits.h"

#include "cvlmetrics/MetricsEvent.h"

namespace tarn {

uint64 GetFlagsForTraceType(TraceType type) noexcept {
    switch (type) {
        case TraceType::Transparent:
            return Metrics::flagTracing | Metrics::flagTransparent;
        case TraceType::Untracked:
            return Metrics::flagTracing | Metrics::flagUntracked;
        case TraceType::Normal:
            break;
    }
    return Metrics::flagTracing;
}

}  // namespace tarn
