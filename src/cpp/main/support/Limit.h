#pragma once

#include "cvlcoreplatform/TFormatString.h"
#include "cvlcoreplatform/TLog.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <new>

namespace tarn {

/// How much of something is kept at most, and how often that was too little. One thread at a time
/// uses it; any thread may set it and ask.
class Limit {
public:
    /// `message` is logged once, as a warning, with the limit in place of "%1". It is not copied.
    Limit(uint64 most, const char16_t* message) noexcept : m_most(most), m_message(message) {}

    void Set(uint64 most) noexcept { m_most.store(most, std::memory_order_relaxed); }

    /// Whether there is room for one more.
    bool Admits(uint64 count) const noexcept {
        return count < m_most.load(std::memory_order_relaxed);
    }

    /// One was left out.
    void LeaveOut() noexcept {
        if (m_leftOut.fetch_add(1, std::memory_order_relaxed) == 0) {
            Warn();
        }
    }

    uint64 GetLeftOut() const noexcept { return m_leftOut.load(std::memory_order_relaxed); }

private:
    void Warn() const noexcept {
        TLog::Logger& logger = TLog::Logger::Get();
        if (!logger.IsEnabled(TLog::Warn)) {
            return;
        }
        try {
            logger.LogMessage(
                TLog::Warn,
                TFormatString(m_message).Arg(m_most.load(std::memory_order_relaxed)).ToString());
        } catch (const std::bad_alloc&) {
            return;  // the count says it
        }
    }

    std::atomic<uint64> m_most;
    std::atomic<uint64> m_leftOut{0};
    const char16_t* m_message;
};

}  // namespace tarn
