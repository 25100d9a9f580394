#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"

#include <string>

// Metrics values and events as text, so that a test compares and prints sentences. The kind of a
// value is visible: 7, true, 1.5, "narrow", L"wide".
namespace tarn::test {

std::string Text(const Metrics::MetricsValue& value);

/// {"first"=1, L"second"=L"two"}
std::string Text(const Metrics::NameValueList& pairs);

/// The kind of event and what it carries: OpenScope "load" {"path"="/tmp"}. Ids, flags and times
/// are left out.
std::string Text(const Metrics::MetricsEvent& event);

/// As a wide value reads: L"text".
std::string Wide(const TString& text);

}  // namespace tarn::test
