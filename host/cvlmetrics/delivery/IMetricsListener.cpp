#include "cvlmetrics/IMetricsListener.h"

namespace Metrics {

IMetricsListener::~IMetricsListener() = default;

}  // namespace Metrics
