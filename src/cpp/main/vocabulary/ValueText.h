#pragma once

#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"

namespace tarn {

inline bool IsText(const Metrics::MetricsValue& value) noexcept {
    return value.type == Metrics::MetricsValue::MV_Utf8String ||
           value.type == Metrics::MetricsValue::MV_Utf16String;
}

/// What `TarnMetricsUtils::ConvertMetricsValueToTString` makes a string of, lent: valid as long as
/// the value. Raises the same.
TLog::TextView ViewOfText(const Metrics::MetricsValue& value);

// The same of what is lent: each means what it would mean of the value that is made of it.

bool IsText(const Metrics::ValueView& value) noexcept;
bool IsInteger(const Metrics::ValueView& value) noexcept;

/// As `TarnMetricsUtils::MetricsValueToInt`.
int64 IntegerOf(const Metrics::ValueView& value) noexcept;

/// As `TarnMetricsUtils::MetricsValueToString`.
TString TextOf(const Metrics::ValueView& value);

/// Of a text that is there as such: wide text and digits are made first.
TLog::TextView ViewOfText(const Metrics::ValueView& value);

}  // namespace tarn
