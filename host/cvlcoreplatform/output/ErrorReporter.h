#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <chrono>
#include <string_view>

namespace cvlcoreplatform {

/// Tells on the standard error stream that the log itself is in trouble; once a minute at the
/// most, because a full disk would otherwise fill the stream instead. Nothing is written to a
/// stream that was closed when the library was loaded. Any thread may call it.
class ErrorReporter {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::minutes interval{1};

    /// Writes the line "log: <what>: <reason>, <total> so far" unless there was one within the
    /// interval before `now`. Whether it did.
    bool Report(Clock::time_point now,
                std::string_view what,
                std::string_view reason,
                uint64 total) noexcept;

private:
    // Ticks of the clock; the smallest value stands for "at once".
    std::atomic<Clock::rep> m_next{Clock::time_point::min().time_since_epoch().count()};
};

}  // namespace cvlcoreplatform
