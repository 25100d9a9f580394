#pragma once

#include "cvlcoreplatform/TLogEventBuilder.h"
#include "cvlmetrics/MetricsValue.h"

namespace tarn {

/// What `TarnMetricsUtils::ConvertMetricsValueToTString` makes a string of, lent: valid as long as
/// the value. Raises the same.
TLog::TextView ViewOfText(const Metrics::MetricsValue& value);

}  // namespace tarn
