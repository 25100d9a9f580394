#pragma once

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

namespace tarn::test {

/// Runs `work` on a thread of its own and waits for the thread's end.
template <class Work>
void OnAnotherThread(Work&& work) {
    std::thread(std::forward<Work>(work)).join();
}

/// Runs `work(0)` to `work(count - 1)` on threads of their own, which begin together, and waits for
/// the end of all.
template <class Work>
void OnThreadsAtOnce(int count, const Work& work) {
    std::atomic<int> missing{count};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&missing, &work, i] {
            --missing;
            while (missing > 0) {
                std::this_thread::yield();
            }
            work(i);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace tarn::test
