#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <utility>

namespace stress {

/// Work that one thread hands over and another one does. Any thread may call it.
class TaskQueue {
public:
    /// Returns when some other thread has done the work.
    void Do(std::function<void()> work) {
        std::packaged_task<void()> task(std::move(work));
        std::future<void> done = task.get_future();
        {
            const std::lock_guard lock(m_mutex);
            m_tasks.push_back(std::move(task));
        }
        m_changed.notify_one();
        done.get();
    }

    /// Lets go who works off, once there is nothing left.
    void Close() {
        const std::lock_guard lock(m_mutex);
        m_isClosed = true;
        m_changed.notify_all();
    }

    void Open() {
        const std::lock_guard lock(m_mutex);
        m_isClosed = false;
    }

    void WorkOff() {
        for (std::unique_lock lock(m_mutex);;) {
            m_changed.wait(lock, [this] { return m_isClosed || !m_tasks.empty(); });
            if (m_tasks.empty()) {
                return;
            }
            std::packaged_task<void()> task = std::move(m_tasks.front());
            m_tasks.pop_front();
            lock.unlock();
            task();
            lock.lock();
        }
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::packaged_task<void()>> m_tasks;
    bool m_isClosed = false;
};

}  // namespace stress
