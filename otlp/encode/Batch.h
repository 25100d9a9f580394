#pragma once

#include "encode/LineEncoder.h"

#include <vector>

namespace tarn::otlp {

/// The spans by their resources, in the order in which these come first. Refers to the spans.
std::vector<ResourceSpans> GroupByResource(const std::vector<EncodedSpan>& spans);

}  // namespace tarn::otlp
