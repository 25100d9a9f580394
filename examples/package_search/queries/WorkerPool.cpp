#include "WorkerPool.h"

namespace packagesearch {

WorkerPool::WorkerPool(std::size_t workers) {
    m_threads.reserve(workers);
    for (std::size_t worker = 0; worker < workers; ++worker) {
        m_threads.emplace_back([this, worker] { Work(worker); });
    }
}

WorkerPool::~WorkerPool() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

void WorkerPool::Enqueue(Task task) {
    {
        const std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    m_changed.notify_one();
}

void WorkerPool::Work(std::size_t worker) {
    for (;;) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_stopping || !m_tasks.empty(); });
        if (m_tasks.empty()) {
            return;
        }
        Task task = std::move(m_tasks.front());
        m_tasks.pop_front();
        lock.unlock();
        task(worker);
    }
}

}  // namespace packagesearch
