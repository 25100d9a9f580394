#pragma once

#include <mutex>
#include <thread>

namespace Metrics {

/// A mutex for work of a few microseconds: who finds it locked looks again for about as long before
/// it sleeps, as falling asleep and being woken take longer.
class AdaptiveMutex {
public:
    void lock() {
        for (int left = s_isWorthLooking ? looks : 0; left != 0; --left) {
            if (m_mutex.try_lock()) {
                return;
            }
            Pause();
        }
        m_mutex.lock();
    }

    bool try_lock() { return m_mutex.try_lock(); }

    void unlock() { m_mutex.unlock(); }

private:
    static constexpr int looks = 100;

    // Nobody unlocks it meanwhile where there is one processor.
    static inline const bool s_isWorthLooking = std::thread::hardware_concurrency() > 1;

    static void Pause() noexcept {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    }

    std::mutex m_mutex;
};

}  // namespace Metrics
