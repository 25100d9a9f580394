#include "EnabledSeverities.h"

#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <atomic>

namespace cvlcoreplatform::EnabledSeverities {

namespace {

// The lowest severity that is enabled. The high bit is set while there is no back end; the number
// is larger than any severity then.
constexpr int32 noBackEnd = 1 << 30;
constinit std::atomic<int32> s_enabledFrom{TLog::Info};

}  // namespace

bool Contain(TLog::Severity severity) noexcept {
    return severity >= s_enabledFrom.load(std::memory_order_relaxed);
}

void SetThreshold(TLog::Severity threshold) noexcept {
    const int32 severity = std::clamp<int32>(threshold, TLog::Trace, TLog::Fatal);
    int32 before = s_enabledFrom.load(std::memory_order_relaxed);
    while (!s_enabledFrom.compare_exchange_weak(
        before, severity | (before & noBackEnd), std::memory_order_relaxed)) {
    }
}

TLog::Severity GetThreshold() noexcept {
    return static_cast<TLog::Severity>(s_enabledFrom.load(std::memory_order_relaxed) & ~noBackEnd);
}

void SetBackEndIsThere(bool isThere) noexcept {
    if (isThere) {
        s_enabledFrom.fetch_and(~noBackEnd, std::memory_order_relaxed);
    } else {
        s_enabledFrom.fetch_or(noBackEnd, std::memory_order_relaxed);
    }
}

}  // namespace cvlcoreplatform::EnabledSeverities

bool TLog::Logger::IsEnabled(Severity severity) const noexcept {
    return cvlcoreplatform::EnabledSeverities::Contain(severity);
}
