#pragma once

#include "encode/LineEncoder.h"

#include <span>
#include <vector>

namespace tarn::otlp {

/// The spans by their resources, in the order in which these come first. Refers to the spans.
std::vector<ResourceSpans> GroupByResource(std::span<const EncodedSpan> spans);

}  // namespace tarn::otlp
