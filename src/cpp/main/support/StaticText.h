#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsValue.h"

#include <memory>
#include <string>

// A static text lives as long as the process: what points to it owns nothing, so that no copy
// counts anything, and its address says which text it is.
namespace tarn {

/// Whether the pointer leads to a static text, or nowhere.
template <class Text>
bool IsStaticText(const std::shared_ptr<const Text>& text) noexcept {
    return text.use_count() == 0;
}

/// The same name as a static text. Names come out of the host's source code and are few; a host
/// that makes them up gets ordinary strings once there are some thousand, and always for long ones.
/// Any thread may call it. Throws `std::bad_alloc`.
TString MakeStaticText(const TString& name);

/// A value that refers to a narrow text, which must live as long as the process.
Metrics::MetricsValue ReferToStaticText(const std::string& text) noexcept;

}  // namespace tarn
