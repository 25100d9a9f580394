#pragma once

namespace tarn {

/// One request more whose headers were refused, for `ActivityTracer::GetRefusedHeaders`.
void CountRefusedHeaders() noexcept;

}  // namespace tarn
