#pragma once

#include "MetricsTestSupport.h"
#include "Threads.h"

#include "cvlmetrics/host/Delivery.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace MetricsTest {

/// Longer than anything here takes, on the busiest machine.
inline constexpr std::chrono::milliseconds timeout{20'000};

/// Long enough to see that somebody waits.
inline constexpr std::chrono::milliseconds moment{30};

inline constexpr std::size_t smallQueue = std::size_t{16} << 10;

/// A gate at which a consumer can be held.
class Gate {
public:
    void Close() {
        const std::lock_guard lock(m_mutex);
        m_isOpen = false;
    }

    void Open() {
        const std::lock_guard lock(m_mutex);
        m_isOpen = true;
        m_changed.notify_all();
    }

    void Pass() {
        std::unique_lock lock(m_mutex);
        m_someoneWaits = !m_isOpen;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_isOpen; });
    }

    void AwaitSomeoneBefore() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_someoneWaits; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isOpen = true;
    bool m_someoneWaits = false;
};

/// Asynchronous delivery for the time of a test.
class MetricsAsynchronousTest : public MetricsBusTest {
protected:
    MetricsAsynchronousTest() { Choose(Metrics::WhenQueueIsFull::Wait); }

    ~MetricsAsynchronousTest() override {
        EXPECT_TRUE(Metrics::Shutdown(timeout));
        Metrics::SetDelivery({});
    }

    static void Choose(Metrics::WhenQueueIsFull whenFull,
                       std::chrono::milliseconds exitDeadline = std::chrono::milliseconds{5000}) {
        Metrics::SetDelivery({.mode = Metrics::DeliveryMode::Asynchronous,
                              .whenFull = whenFull,
                              .queueBytes = smallQueue,
                              .exitDeadline = exitDeadline});
    }

    static void FlushAll() { ASSERT_TRUE(Metrics::Flush(timeout)); }

    /// Emits an event, and holds the consumer at the gate with it.
    void HoldConsumer() {
        FlushAll();  // what calls the consumer must not be set while it is called
        m_gate.Close();
        m_listener->CallOnEach([this](const Metrics::MetricsEvent&) { m_gate.Pass(); });
        tarn::test::OnAnotherThread([] { const CurrentContext context; });
        m_gate.AwaitSomeoneBefore();
    }

    Gate m_gate;
};

}  // namespace MetricsTest
