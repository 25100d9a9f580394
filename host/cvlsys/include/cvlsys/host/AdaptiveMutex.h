#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace cvlsys {

/// A mutex for critical sections of a few microseconds: a waiting thread spins for about as long
/// before it sleeps, because to sleep and be woken takes longer. Threads that lock it again and
/// again can starve a sleeping one; `LockNext` is for a thread that must not wait for long.
class CVLSYS_API AdaptiveMutex {
public:
    // NOLINTBEGIN(readability-identifier-naming): named by the language

    void lock() {
        for (int left = s_canSpin ? spins : 0; left != 0; --left) {
            YieldToUrgent();
            if (m_mutex.try_lock()) {
                return;
            }
            Pause();
        }
        YieldToUrgent();
        m_mutex.lock();
    }

    bool try_lock() { return m_mutex.try_lock(); }

    void unlock() { m_mutex.unlock(); }

    // NOLINTEND(readability-identifier-naming)

    /// Locks it before any thread that is not asleep in `lock` already.
    void LockNext() {
        if (!m_mutex.try_lock()) {
            LockAsUrgent();
        }
    }

    /// As `LockNext`, but gives up once `isOver` returns true. Returns whether it has locked. It
    /// polls: thread sanitizer does not know `std::timed_mutex`.
    template <class Condition>
    bool LockNextUnless(const Condition& isOver) {
        if (m_mutex.try_lock()) {
            return true;
        }
        BeginUrgent();
        bool isLocked = false;
        while (!(isLocked = m_mutex.try_lock()) && !isOver()) {
            std::this_thread::sleep_for(urgentPollInterval);
        }
        EndUrgent();
        return isLocked;
    }

    /// For the only thread of a forked child, which holds the mutex or not: nobody waits any more,
    /// and what another thread held is free.
    void ForgetOtherThreads(bool isHeldByThisThread) noexcept;

private:
    static constexpr int spins = 100;
    static constexpr std::chrono::microseconds urgentPollInterval{200};

    // On one processor the holder cannot unlock it meanwhile.
    static inline const bool s_canSpin = std::thread::hardware_concurrency() > 1;

    void YieldToUrgent() noexcept {
        if (m_urgent.load(std::memory_order_relaxed) != 0) {
            AwaitUrgent();
        }
    }

    void LockAsUrgent();
    void BeginUrgent() noexcept;
    void EndUrgent() noexcept;
    void AwaitUrgent() noexcept;

    static void Pause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    }

    std::mutex m_mutex;
    std::atomic<uint32> m_urgent{0};
};

}  // namespace cvlsys
