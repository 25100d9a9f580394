#include "cvlmetrics/Scope.h"

namespace Metrics {

void Scope::Emit(MetricsEventType type, const ValueView& name, const ValueView& value) const {
    EmitImpl(type, name.ToValue(), value.ToValue());
}

}  // namespace Metrics
