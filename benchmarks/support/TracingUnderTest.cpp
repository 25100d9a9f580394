#include "support/TracingUnderTest.h"

#include "tarn/IMetricsMonitorSink.h"
#include "tarn/MonitorUUIDGenerator.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace benchmarks {

namespace {

constexpr std::chrono::minutes timeout{5};

// Holds two batches of scopes of all kinds, so that nobody waits for room within the measured time.
constexpr std::size_t queueBytes = std::size_t{4} << 20;

std::string BeginEventName(const std::string& name) {
    return "begin-" + name;
}

std::string EndEventName(const std::string& name) {
    return "end-" + name;
}

std::string EventField(const std::string& name) {
    return "\"event\":\"" + name + "\"";
}

tarn::TarnSettings::Names NamesThatAreOff(const Setup& setup) {
    tarn::TarnSettings::Names names;
    for (int64 number = 0; number < setup.namesOff; ++number) {
        names.insert("other-activity-" + std::to_string(number));
    }
    if (setup.isMeasuredOff) {
        names.insert(measuredName);
    }
    return names;
}

template <class T>
void EndInReverse(std::deque<T>& items) {
    while (!items.empty()) {
        items.pop_back();
    }
}

// What a scope has used is charged to all that are open below it on its thread, so a thread has
// not too many of them.
int64 ThreadsFor(int64 scopes, int64 contexts) {
    constexpr int64 openOnThread = 2000;
    return (scopes + contexts + openOnThread - 1) / openOnThread;
}

int64 Share(int64 all, int64 part, int64 parts) {
    return all * (part + 1) / parts - all * part / parts;
}

/// A few scopes in a root context of their own.
class Request {
public:
    explicit Request(int64 scopes) : m_context(0, Metrics::Context::Create(true)) {
        m_context.OpenScope();
        for (int64 i = 0; i < scopes; ++i) {
            m_scopes.emplace_back();
        }
    }

    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    ~Request() { EndInReverse(m_scopes); }

private:
    Metrics::Context m_context;
    std::deque<MeasuredScope> m_scopes;
};

}  // namespace

// Deliveries never overlap, so plain members do.
class TracingUnderTest::NullSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& event) override {
        ++m_events;
        if (m_isProbing) {
            Keep(event);
        }
    }

    uint64 Events() const noexcept { return m_events; }

    void BeginProbe(const std::string& name) {
        m_beginName = TString(BeginEventName(name));
        m_endName = TString(EndEventName(name));
        m_isProbing = true;
    }

    ScopeLines EndProbe() {
        m_isProbing = false;
        return std::move(m_lines);
    }

private:
    void Keep(const TLog::Event& event) {
        const std::string line = TLog::FormatJsonLine(TLog::Info, event, TLog::EventTimePoint());
        if (event.GetName() == m_beginName) {
            m_lines.begin = line;
        } else if (event.GetName() == m_endName) {
            m_lines.end = line;
        }
    }

    uint64 m_events = 0;
    bool m_isProbing = false;
    TString m_beginName;
    TString m_endName;
    ScopeLines m_lines;
};

/// In front of the file: while closed, it lets nothing through.
class TracingUnderTest::Gate : public TLog::LogBackEnd {
public:
    explicit Gate(std::shared_ptr<TLog::LogBackEnd> behind) : m_behind(std::move(behind)) {}

    void Write(TLog::Severity severity, const TLog::Event& event) override {
        m_isClosed.wait(true, std::memory_order_acquire);
        m_behind->Write(severity, event);
    }

    void WriteMessage(TLog::Severity severity, const TString& text) override {
        m_behind->WriteMessage(severity, text);
    }

    void Flush() override { m_behind->Flush(); }

    void Close() noexcept { m_isClosed.store(true, std::memory_order_release); }

    void Open() noexcept {
        m_isClosed.store(false, std::memory_order_release);
        m_isClosed.notify_all();
    }

private:
    std::shared_ptr<TLog::LogBackEnd> m_behind;
    std::atomic<bool> m_isClosed{false};
};

std::unique_ptr<TracingUnderTest> TracingUnderTest::s_current;

void TracingUnderTest::Start(const benchmark::State& state, const Setup& setup) {
    s_current = std::make_unique<TracingUnderTest>(setup, state.threads());
}

void TracingUnderTest::Stop(const benchmark::State& /*state*/) {
    s_current.reset();
}

TracingUnderTest::TracingUnderTest(const Setup& setup, int threads)
    : m_setup(setup),
      m_threads(threads) {
    // Switching names off is logged; that line would not be a scope's.
    m_formerBackEnd = TLog::ReplaceBackEnd(nullptr);
    tarn::TarnSettings::GetInstance().SetOffs(NamesThatAreOff(setup));
    SetUpLog();
    OptTarn::SetIsTarnEnabled(true);
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    OptTarn::SetIsServer(true);
    OptTarn::SetCorvalaCounterScopesOpened(&m_scopesOpened);
    corvala::cputime::SetCpuTrackingEnabled(setup.tracksCpu);
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAllocations);
    Metrics::SetDelivery({.mode = setup.isAsynchronous ? Metrics::DeliveryMode::Asynchronous
                                                       : Metrics::DeliveryMode::Synchronous,
                          .queueBytes = queueBytes});
    SetUpMonitor();
    m_elsewhere.emplace(setup.otherOpenScopes, setup.otherContexts);
}

void TracingUnderTest::SetUpLog() {
    if (m_setup.receiver != Receiver::File) {
        return;
    }
    m_logFile.emplace();
    TLog::LogFileLimits limits;
    limits.maxBytes = 0;
    limits.useJournal = m_setup.useJournal;
    std::shared_ptr<TLog::LogBackEnd> backEnd =
        TLog::MakeJsonFileBackEnd(m_logFile->Path().string(), limits);
    if (m_setup.canHoldDelivery) {
        m_gate = std::make_shared<Gate>(std::move(backEnd));
        backEnd = m_gate;
    }
    TLog::ReplaceBackEnd(std::move(backEnd));
}

void TracingUnderTest::SetUpMonitor() {
    if (m_setup.receiver == Receiver::Nobody) {
        return;
    }
    m_monitor = new MetricsMonitor(Metrics::Context::Create(true));
    if (m_setup.receiver == Receiver::NullSink) {
        m_nullSink = new NullSink();
        m_monitor->EnableTest(m_nullSink, new MonitorUUIDGenerator());
    }
    m_monitor->Register(true);
}

TracingUnderTest::~TracingUnderTest() {
    m_elsewhere.reset();
    Deliver();
    if (m_monitor) {
        m_monitor->Unregister();
    }
    Metrics::Shutdown(timeout);
    Metrics::SetDelivery({});
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingOff);
    corvala::cputime::SetCpuTrackingEnabled(false);
    OptTarn::SetCorvalaCounterScopesOpened(nullptr);
    OptTarn::SetIsServer(false);
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    OptTarn::SetIsTarnEnabled(false);
    TLog::ReplaceBackEnd(nullptr);
    tarn::TarnSettings::GetInstance().SetOffs({});
    TLog::ReplaceBackEnd(std::move(m_formerBackEnd));
}

void TracingUnderTest::Deliver() {
    ReleaseDelivery();
    if (!m_setup.isAsynchronous) {
        TLog::FlushLog();
    } else if (!Metrics::Flush(timeout)) {
        std::fputs("events were not delivered in time\n", stderr);
        std::abort();
    }
}

uint64 TracingUnderTest::Events() const {
    if (m_nullSink != nullptr) {
        return m_nullSink->Events();
    }
    return m_logFile ? m_logFile->Lines() : 0;
}

uint64 TracingUnderTest::FileBytes() const {
    return m_logFile ? m_logFile->Bytes() : 0;
}

ScopeLines TracingUnderTest::LinesOfProbe(const char* name) {
    if (m_nullSink != nullptr) {
        m_nullSink->BeginProbe(name);
    }
    { const MeasuredScope probe(name); }
    Deliver();
    if (m_nullSink != nullptr) {
        return m_nullSink->EndProbe();
    }
    if (!m_logFile) {
        return {};
    }
    return {m_logFile->LastLineWith(EventField(BeginEventName(name))),
            m_logFile->LastLineWith(EventField(EndEventName(name)))};
}

void TracingUnderTest::HoldDelivery() noexcept {
    if (m_gate) {
        m_gate->Close();
    }
}

void TracingUnderTest::ReleaseDelivery() noexcept {
    if (m_gate) {
        m_gate->Open();
    }
}

OpenElsewhere::OpenElsewhere(int64 scopes, int64 contexts)
    : m_isComplete(ThreadsFor(scopes, contexts)) {
    const int64 threads = ThreadsFor(scopes, contexts);
    for (int64 i = 0; i < threads; ++i) {
        m_threads.emplace_back([this,
                                mine = Share(scopes, i, threads),
                                theirs = Share(contexts, i, threads)] { Run(mine, theirs); });
    }
    m_isComplete.wait();
}

OpenElsewhere::~OpenElsewhere() {
    m_mayGo.count_down();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

void OpenElsewhere::Run(int64 scopes, int64 contexts) {
    constexpr int64 scopesInRequest = 10;
    std::deque<Metrics::Context> empty;
    for (int64 i = 0; i < contexts; ++i) {
        empty.emplace_back(0, Metrics::Context::Create(true)).OpenScope();
    }
    std::deque<Request> requests;
    for (int64 left = scopes; left > 0; left -= scopesInRequest) {
        requests.emplace_back(std::min(left, scopesInRequest));
    }
    m_isComplete.count_down();
    m_mayGo.wait();
    EndInReverse(requests);
    EndInReverse(empty);
}

OpenParents::OpenParents(int64 depth) : m_context(0, Metrics::Context::Create(true)) {
    m_context.OpenScope();
    for (int64 level = 0; level < depth; ++level) {
        m_scopes.emplace_back("parent");
    }
}

OpenParents::~OpenParents() {
    EndInReverse(m_scopes);
}

}  // namespace benchmarks
