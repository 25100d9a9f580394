// Scopes whose events are delivered on a thread of the bus's own: the working thread does not wait
// for a slow sink. What is refused under overload is counted, and nothing stays half.
#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

#include "cvlmetrics/host/Delivery.h"
#include "cvlmetrics/host/Statistics.h"

#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr int steps = 100;

/// A sink as slow as a disk on a bad day.
class SlowSink : public IMetricsMonitorSink {
public:
    explicit SlowSink(std::atomic<int>& events) : m_events(events) {}

    void Log(const TLog::Event& /*event*/) override {
        std::this_thread::sleep_for(1ms);
        ++m_events;
    }

private:
    std::atomic<int>& m_events;
};

void Work() {
    for (int i = 0; i < steps; ++i) {
        const tarn::ActivityScope step("step");
    }
}

std::chrono::steady_clock::duration TimeOf(void (*work)()) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::steady_clock::now() - begin;
}

}  // namespace

int main() {
    // Before the first scope. The queue has room for all that is emitted here at once.
    Metrics::SetDelivery({.mode = Metrics::DeliveryMode::Asynchronous,
                          .whenFull = Metrics::WhenQueueIsFull::Wait,
                          .queueBytes = 1 << 20});

    std::atomic<int> events{0};
    const tarn::TracingSession session;
    session.GetMonitor().SetSink(std::make_unique<SlowSink>(events));

    // Each step has two events, and the sink takes a millisecond for each.
    const auto took = TimeOf(Work);
    std::cout << "worked without waiting for the sink: " << (took < 2 * steps * 1ms ? "yes" : "no")
              << '\n';

    std::cout << "delivered within a millisecond: " << (Metrics::Flush(1ms) ? "yes" : "no") << '\n';
    std::cout << "delivered within a minute: " << (Metrics::Flush(1min) ? "yes" : "no") << '\n';
    std::cout << "events in the sink: " << events << '\n';

    const Metrics::BusStatistics statistics = Metrics::GetBusStatistics();
    std::cout << "waits for room: " << statistics.waits
              << ", refused scopes: " << statistics.refusedScopes << '\n';
}
