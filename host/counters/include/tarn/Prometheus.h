#pragma once

// What a monitoring system asks of a traced program. With TARN_DISABLE defined there is nothing to
// tell.

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
/// Bus and log count always; the activities by name and the library's own counters only while the
/// session's option `counters` is on, so their families are missing otherwise. All figures of
/// activities are of one moment. Any thread may call it at any time, without a session too; who
/// traces meanwhile waits for a copy of the figures at most, which takes microseconds. A forked
/// child goes on with what its parent had counted. Throws `std::bad_alloc`.
TARN_EXPORT std::string PrometheusText();

}  // namespace enabled

#endif

}  // namespace tarn
