#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tarn::otlp {

/// Says until when work may go on. Any thread may use it.
class StopSignal {
public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    /// Work ends at `time` at the latest; an earlier end that was named before holds.
    void StopAt(Time time) {
        const std::lock_guard lock(m_mutex);
        m_end = time < m_end ? time : m_end;
        m_changed.notify_all();
    }

    Time End() const {
        const std::lock_guard lock(m_mutex);
        return m_end;
    }

    bool HasStopped() const { return Clock::now() >= End(); }

    /// False, at once, if work ends before `time`.
    bool WaitUntil(Time time) {
        std::unique_lock lock(m_mutex);
        while (Clock::now() < time) {
            if (m_end < time) {
                return false;
            }
            m_changed.wait_until(lock, time);
        }
        return Clock::now() < m_end;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    Time m_end = Time::max();
};

}  // namespace tarn::otlp
