#pragma once

// Counters of a traced program for a monitoring system. With TARN_DISABLE defined the text is
// empty.

#include "tarn/Export.h"

#include <string>

namespace tarn {

/// The value of the header `Content-Type` that goes with the text.
inline constexpr const char* prometheusContentType = "text/plain; version=0.0.4; charset=utf-8";

#if defined(TARN_DISABLE)

inline namespace disabled {

inline std::string PrometheusText() {
    return {};
}

}  // namespace disabled

#else

inline namespace enabled {

/// What the process has counted, in the text format of Prometheus: an answer to GET /metrics.
/// Bus and log always count; activities by name and the library's own counters only while the
/// session's option `counters` is on, so their families are missing otherwise. The figures of
/// activities are a snapshot. Any thread may call it at any time, without a session too; threads
/// that trace meanwhile wait at most for a copy of the figures, which takes microseconds. A forked
/// child continues with its parent's counts. Throws `std::bad_alloc`.
TARN_EXPORT std::string PrometheusText();

}  // namespace enabled

#endif

}  // namespace tarn
