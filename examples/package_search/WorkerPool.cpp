#include "WorkerPool.h"

#include "ActivityNames.h"

#include "tarn/ActivityScope.h"

namespace packagesearch {

HandedOverActivity::HandedOverActivity()
    : m_context(std::make_unique<Metrics::Context>(0, Metrics::Context::Create(false))),
      m_handedOver(std::chrono::steady_clock::now()) {}

void HandedOverActivity::Run(const char* name,
                             std::size_t worker,
                             const std::function<void()>& work) {
    const auto waited = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - m_handedOver);
    // Ends behind the scope below, also when the work throws.
    const std::unique_ptr<Metrics::Context> context = std::move(m_context);
    context->OpenScope();
    tarn::ActivityScope scope(
        name,
        tarn::CustomContext(Metrics::NameValueList()),
        tarn::Traits(),
        {{attribute::worker, worker}, {attribute::waitedMicroseconds, waited.count()}},
        tarn::ActivityContextInitializer{m_asking.GetContext(), false});
    try {
        work();
    } catch (const DeadlineExceeded&) {
        scope.Cancel({{attribute::reason, "deadline"}});
        throw;
    }
}

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
