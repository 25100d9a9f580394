// Coroutines that go on on the threads of a pool: each is an activity wherever it runs.
#include "tarn/Coroutine.h"
#include "tarn/Session.h"

#include <condition_variable>
#include <coroutine>
#include <deque>
#include <exception>
#include <future>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace {

class Pool {
public:
    explicit Pool(int threads) {
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this] { Run(); });
        }
    }

    ~Pool() {
        {
            const std::lock_guard guard(m_lock);
            m_isOver = true;
        }
        m_changed.notify_all();
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    /// Awaited, it goes on on a thread of the pool.
    auto GoOn() {
        struct Awaiter {
            Pool& pool;

            bool await_ready() const noexcept { return false; }

            void await_suspend(std::coroutine_handle<> handle) const { pool.Submit(handle); }

            void await_resume() const noexcept {}
        };

        return Awaiter{*this};
    }

private:
    void Submit(std::coroutine_handle<> handle) {
        {
            const std::lock_guard guard(m_lock);
            m_waiting.push_back(handle);
        }
        m_changed.notify_one();
    }

    void Run() {
        std::unique_lock guard(m_lock);
        while (true) {
            m_changed.wait(guard, [this] { return m_isOver || !m_waiting.empty(); });
            if (m_waiting.empty()) {
                return;
            }
            const std::coroutine_handle<> next = m_waiting.front();
            m_waiting.pop_front();
            guard.unlock();
            next.resume();
            guard.lock();
        }
    }

    std::mutex m_lock;
    std::condition_variable m_changed;
    std::deque<std::coroutine_handle<>> m_waiting;
    bool m_isOver = false;
    std::vector<std::thread> m_threads;
};

/// Begins at once, and can be waited for.
struct Task {
    struct promise_type : tarn::TracedPromise {  // one base,

        Task get_return_object() { return {m_result.get_future()}; }

        auto initial_suspend() { return OnStart(std::suspend_never()); }  // and two words

        auto final_suspend() noexcept {
            const auto end = OnEnd(std::suspend_never());
            m_result.set_value(m_value);  // its activities have ended
            return end;
        }

        void return_value(int value) { m_value = value; }

        void unhandled_exception() { std::terminate(); }

    private:
        std::promise<int> m_result;
        int m_value = 0;
    };

    std::future<int> result;
};

Task Compute(Pool& pool, int number) {
    auto compute = co_await tarn::Begin("compute", "number", number);
    co_await pool.GoOn();
    int sum = 0;
    for (int i = 1; i <= number; ++i) {
        const tarn::Scope step("step");
        sum += i;
    }
    co_await pool.GoOn();  // perhaps on another thread
    compute.Add("sum", sum);
    co_return sum;
}

}  // namespace

int main() {
    const tarn::Session session;
    Pool pool(2);
    const tarn::Scope serve("serve");
    Compute(pool, 2).result.get();
}
