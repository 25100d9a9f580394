#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace Metrics {

/// Waiting for another thread that is within a few instructions of what it is waited for. Yielding
/// is enough nearly always; but a thread that yields with a real-time policy never lets an ordinary
/// one run, so after some tries it sleeps.
class Backoff {
public:
    void Pause() noexcept {
        if (m_yields < mostYields) {
            ++m_yields;
            std::this_thread::yield();
            return;
        }
        std::this_thread::sleep_for(m_sleep);
        m_sleep = std::min(2 * m_sleep, longestSleep);
    }

private:
    static constexpr int mostYields = 50;
    static constexpr std::chrono::microseconds longestSleep{1000};

    int m_yields = 0;
    std::chrono::microseconds m_sleep{20};
};

}  // namespace Metrics
