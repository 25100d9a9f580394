#pragma once

#include "encode/LineEncoder.h"
#include "send/BatchSender.h"

#include <cstdint>
#include <functional>
#include <span>

namespace tarn::otlp {

/// Sends spans as one batch; what the receiver finds too large it sends in halves, until it is
/// single spans. `onResult` hears of each part what has become of it, and of how many spans; false
/// keeps the rest from being sent. Throws what it throws.
void SendInParts(BatchSender& sender,
                 std::span<const EncodedSpan> spans,
                 const std::function<bool(const BatchResult&, std::uint64_t spans)>& onResult);

}  // namespace tarn::otlp
