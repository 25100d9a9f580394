#pragma once

#include "cvlsys/IntegerTypes.h"
#include "cvlsys/TSystem.h"

#include <atomic>

namespace cvlcoreplatform {

/// The lines of one back end that are lost and not yet mentioned in its log. A forked child begins
/// with none, so that a loss is mentioned once. Any thread may use it.
class UnreportedLosses {
public:
    void Add(uint64 lines) noexcept {
        ForgetParents();
        m_lines.fetch_add(lines, std::memory_order_relaxed);
    }

    bool IsEmpty() const noexcept { return m_lines.load(std::memory_order_relaxed) == 0; }

    /// How many there are; they count as mentioned from then on.
    uint64 Take() noexcept {
        ForgetParents();
        return m_lines.exchange(0, std::memory_order_relaxed);
    }

private:
    void ForgetParents() noexcept {
        const uint32 process = TSystem::ProcessID();
        if (m_owner.exchange(process, std::memory_order_relaxed) != process) {
            m_lines.store(0, std::memory_order_relaxed);
        }
    }

    std::atomic<uint64> m_lines{0};
    std::atomic<uint32> m_owner{TSystem::ProcessID()};
};

}  // namespace cvlcoreplatform
