#pragma once

#include "cvlcoreplatform/TLogForm.h"
#include "cvlmetrics/MetricsValue.h"

namespace tarn {

inline bool IsText(const Metrics::MetricsValue& value) noexcept {
    return value.type == Metrics::MetricsValue::MV_Utf8String ||
           value.type == Metrics::MetricsValue::MV_Utf16String;
}

/// What `TarnMetricsUtils::ConvertMetricsValueToTString` makes a string of, lent: valid as long as
/// the value. Raises the same.
TLog::TextView ViewOfText(const Metrics::MetricsValue& value);

}  // namespace tarn
