#pragma once

#include "tarn/otlp/Options.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

namespace tarn::otlp {

/// Whether a request that was answered with this status may be sent again.
bool IsRetryable(int status);

/// What the header says: seconds, or a time, which has passed if it is negative. Nothing if it says
/// neither.
std::optional<std::chrono::milliseconds> ParseRetryAfter(
    const std::string& text,
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

/// How long to wait before one more try. Used by one thread.
class RetryPolicy {
public:
    /// `seed` makes each process wait for other times, so that they do not all come back at once.
    RetryPolicy(const Options& options, std::uint32_t seed);

    /// Doubles each time, up to the longest; at random up to a half shorter.
    std::chrono::milliseconds NextWait();

    /// A request went well.
    void Reset() { m_next = m_first; }

private:
    const std::chrono::milliseconds m_first;
    const std::chrono::milliseconds m_longest;
    std::chrono::milliseconds m_next;
    std::minstd_rand m_random;
};

}  // namespace tarn::otlp
