#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>

namespace Metrics {

/// What the consumers, taken together, would receive. Any thread reads it at any time without a
/// lock; one thread at a time publishes. An answer is advice that may be out of date at once, but
/// an event that was wanted before a change and is wanted after it is never refused.
class Admission {
public:
    /// Whether somebody would receive an event with these flag bits.
    bool Admits(uint64 bits) const noexcept {
        return m_everything.load(std::memory_order_acquire) ||
               (m_bits.load(std::memory_order_relaxed) & bits) != 0;
    }

    /// `bits` are all the consumers' bits together; with `everything` somebody also wants what
    /// carries none of them.
    void Publish(uint64 bits, bool everything) noexcept;

private:
    // While m_everything is set, m_bits holds at least what it held before.
    std::atomic<bool> m_everything{false};
    std::atomic<uint64> m_bits{0};
};

}  // namespace Metrics
