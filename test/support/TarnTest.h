#pragma once

#include "CapturingLog.h"
#include "RecordingListener.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <atomic>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tarn::test {

/// Base of the tests. Afterwards all that is process-wide is as it was before: options, settings,
/// mappings, rank, the bus's clock, the logger's threshold and back end, the memory mode and
/// processor time tracking. Counter pointers are null again. While a test runs the logger writes
/// into `Log()`, from Info on. The test fails when it leaves a listener on the bus, or a context
/// current on its thread.
class TarnTest : public testing::Test {
protected:
    TarnTest();
    ~TarnTest() override;

    CapturingLog& Log() { return *m_log; }

    /// Puts a new listener on the bus, until the test ends or `StopListening`.
    RefCntPtr<RecordingListener> Listen(uint64 bits = Metrics::flagTracing, bool flag = true);
    void StopListening(const RefCntPtr<RecordingListener>& listener);

private:
    struct Saved;

    std::unique_ptr<Saved> m_saved;
    std::shared_ptr<CapturingLog> m_log;
    std::vector<RefCntPtr<RecordingListener>> m_listeners;
};

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
