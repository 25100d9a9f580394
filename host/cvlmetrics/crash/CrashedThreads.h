#pragma once

#include "cvlcoreplatform/host/InterruptedLogging.h"
#include "cvlsys/IntegerTypes.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace Metrics {

/// What a thread was in the middle of when it crashed. If that is anything, it does not go on
/// before the rescue is over.
struct CrashedThread {
    uint64 id = 0;  ///< the kernel's
    TLog::InterruptedLogging logging;
};

/// The threads that have crashed, for the rescue: the first one, and those that crash meanwhile.
/// Entries are made in signal handlers, without allocation or lock, and read by the rescue. More
/// than there is room for are ignored.
class CrashedThreads {
public:
    static constexpr std::size_t most = 8;

    /// Takes note of the calling thread.
    void AddCurrent(uint64 id) noexcept;

    /// Whether the calling thread is in the middle of something that a rescue goes on with.
    static bool IsCurrentInTheMiddle() noexcept;

    /// Whether one of them has the bus's delivering role, lock included.
    const std::atomic<bool>& HaveRole() const noexcept { return m_haveRole; }

    /// Calls `action` for each that it was not called for before.
    template <class Action>
    void ForEachNew(const Action& action) {
        for (Entry& entry : m_entries) {
            if (entry.isComplete.load(std::memory_order_acquire) && !entry.isSeen) {
                entry.isSeen = true;
                action(entry.thread);
            }
        }
    }

    /// When they go on after all.
    void Clear() noexcept;

private:
    struct Entry {
        std::atomic<bool> isComplete{false};
        bool isSeen = false;
        CrashedThread thread;
    };

    std::array<Entry, most> m_entries;
    std::atomic<std::size_t> m_count{0};
    std::atomic<bool> m_haveRole{false};
};

}  // namespace Metrics
