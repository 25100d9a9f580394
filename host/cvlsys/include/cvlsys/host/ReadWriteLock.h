#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>

namespace cvlsys {

/// The lock behind `TReadWriteLock`, with what its owner needs around a fork. Many threads read at
/// a time, or one writes. A writer keeps new readers out while it waits for those inside; readers
/// that wait when a writer leaves get in before the next one, so that neither can shut the other
/// out. Not recursive, and both ends belong to one thread. Its last holder may destroy it:
/// threads that have left it no longer touch it. Keeps `errno`.
///
/// Reading is cheap, some thirty instructions and none that locks the bus; a writer interrupts all
/// processors that run threads of the process, which takes some microseconds.
class CVLSYS_API ReadWriteLock {
public:
    using Clock = std::chrono::steady_clock;

    ReadWriteLock();
    ~ReadWriteLock();
    ReadWriteLock(const ReadWriteLock&) = delete;
    ReadWriteLock& operator=(const ReadWriteLock&) = delete;

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    void lock_shared() noexcept;
    void unlock_shared() noexcept;

    void lock() noexcept { LockUntil(std::nullopt); }

    void unlock() noexcept;

    // NOLINTEND(readability-identifier-naming)

    /// Locks for writing. Without an end it waits for ever. Returns whether it has the lock.
    bool LockUntil(std::optional<Clock::time_point> end) noexcept;

    /// Whether the calling thread holds it in either way. A thread that holds more than
    /// `maxTrackedReads` different locks for reading may be told no for the others.
    bool IsHeldByThisThread() const noexcept;

    static constexpr std::size_t maxTrackedReads = 4;

    /// What different threads write lies two cache lines apart, as processors fetch them in pairs.
    static constexpr std::size_t separation = 128;

    /// For the only thread of a forked child: nobody holds it or waits for it any more, but the
    /// calling thread, if it does.
    void FreeInForkedChild() noexcept;

private:
    struct ReaderSlot;

    ReaderSlot& SlotOfThisThread() const noexcept;
    void StepBackAndWait(bool isCounted) noexcept;
    void LeaveSlot() noexcept;
    bool CloseGate(std::optional<Clock::time_point> end) noexcept;
    void OpenGate() noexcept;
    bool AwaitNoted(std::optional<Clock::time_point> end) const noexcept;
    bool AwaitCounted(std::optional<Clock::time_point> end) const noexcept;

    // On cache lines that readers only read, until a writer comes.
    alignas(separation) std::atomic<uint32> m_gate{0};
    const bool m_readersAreNoted;
    const std::size_t m_slotCount;
    const std::unique_ptr<ReaderSlot[]> m_slots;
    // The number of the thread inside that writes.
    std::atomic<uint64> m_writer{0};
};

}  // namespace cvlsys
