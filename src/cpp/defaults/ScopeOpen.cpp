#include "cvlmetrics/Scope.h"

namespace Metrics {

void Scope::Open(const ValueView& name, PairSpan pairs) {
    OpenImpl(name.ToValue(), pairs.ToList());
}

}  // namespace Metrics
