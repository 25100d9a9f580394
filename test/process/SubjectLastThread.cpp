#include "Subject.h"

#include "tarn/TracingSession.h"

#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/host/Delivery.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <memory>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace ProcessTest {

namespace {

// The test waits for it.
void SayThatMainLeaves() {
    GetSubject().progress->Count(Progress::threadCount - 1);
}

int MainLeaves() {
    TraceForEver();
    std::thread([] { Work(1, GetSubject().count); }).detach();
    Work(0, GetSubject().count);
    pthread_exit(nullptr);
}

int MainLeavesThreadsThatWork() {
    TraceForEver();
    std::thread([] {
        for (;;) {
            Work(1, 1);
        }
    }).detach();
    SayThatMainLeaves();
    pthread_exit(nullptr);
}

int MainLeavesAHangingLog() {
    TraceForEver();
    std::thread([] { Work(1, GetSubject().count); }).detach();
    GetSubject().isLogStuck.wait(false);
    SayThatMainLeaves();
    pthread_exit(nullptr);
}

class CrashingLog : public TLog::LogBackEnd {
public:
    void Write(TLog::Severity, const TLog::Event&) override { __builtin_trap(); }

    void WriteMessage(TLog::Severity, const TString&) override {}
};

int SinkCrashes() {
    for (const int fault : {SIGILL, SIGTRAP}) {
        std::signal(fault, [](int) { _exit(3); });
    }
    TLog::ReplaceBackEnd(std::make_shared<CrashingLog>());
    TraceForEver();
    Work(0, 1);
    Metrics::Flush(std::chrono::seconds(60));
    return 1;
}

int SessionEndsWhileLogHangs() {
    const tarn::TracingSession session;
    std::thread([] { Work(1, GetSubject().count); }).detach();
    GetSubject().isLogStuck.wait(false);
    return 3;
}

/// Takes its time for the ends of one context's work. Called before the monitor, which logs.
class SlowListener : public Metrics::IMetricsListener {
public:
    explicit SlowListener(const std::atomic<uint64>& contextId) : m_contextId(contextId) {}

    void OnMetricsEvent(const Metrics::MetricsEvent& event) override {
        if (event.type == Metrics::MetricsEventType::CloseScope && event.contextId == m_contextId &&
            event.name.utf8 != nullptr && *event.name.utf8 == "work") {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

private:
    const std::atomic<uint64>& m_contextId;
};

// The other thread delivers by itself as soon as the end of the process has begun, and then it is
// this one's last event that it takes first.
int ReturnWhileAnotherEmits() {
    static std::atomic<uint64> mainsContext{0};
    Metrics::MetricsManager& bus = Metrics::MetricsManager::GetInstance();
    bus.AddConsumer(new SlowListener(mainsContext), Metrics::flagTracing, false);
    TraceForEver();
    mainsContext = bus.GetThreadContext().GetMetricsContextId();
    std::thread([] {
        for (;;) {
            Work(1, 1);
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    }).detach();
    while (GetSubject().progress->Ended(1) < 10) {
        std::this_thread::yield();
    }
    Work(0, GetSubject().count);
    return 3;
}

}  // namespace

const std::map<std::string, Scenario>& LastThreadScenarios() {
    static const auto& scenarios = *new std::map<std::string, Scenario>{
        {"main-leaves", MainLeaves},
        {"main-leaves-threads-that-work", MainLeavesThreadsThatWork},
        {"main-leaves-a-hanging-log", MainLeavesAHangingLog},
        {"sink-crashes", SinkCrashes},
        {"session-ends-while-log-hangs", SessionEndsWhileLogHangs},
        {"return-while-another-emits", ReturnWhileAnotherEmits}};
    return scenarios;
}

}  // namespace ProcessTest
