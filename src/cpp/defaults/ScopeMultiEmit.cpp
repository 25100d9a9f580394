#include "cvlmetrics/Scope.h"

namespace Metrics {

void Scope::MultiEmit(MetricsEventType type, const ValueView& name, PairSpan pairs) const {
    MultiEmitImpl(type, name.ToValue(), pairs.ToList());
}

}  // namespace Metrics
