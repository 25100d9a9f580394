#include "support/TracingUnderTest.h"

#include "support/AllocationCounter.h"

#include "tarn/MonitorUUIDGenerator.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <utility>
#include <vector>

namespace benchmarks {

namespace {

// Room that the file system has never touched is several times slower to write to than room
// that a deleted file has left behind; without this the cases that come last would look slow.
// TARN_BENCHMARK_WARM_MIB in the environment overrides how much is written.
void WarmFileSystem(const std::filesystem::path& folder) {
    uint64 mebibytes = 2048;
    if (const char* text = std::getenv("TARN_BENCHMARK_WARM_MIB")) {
        std::from_chars(text, text + std::strlen(text), mebibytes);
    }
    const std::filesystem::path path =
        folder / ("tarn_benchmark_warm_" + std::to_string(TSystem::ProcessID()));
    const std::vector<char> block(std::size_t{1024} * 1024, 'x');
    {
        std::ofstream file(path, std::ios::binary);
        for (uint64 written = 0; written < mebibytes && file; ++written) {
            file.write(block.data(), static_cast<std::streamsize>(block.size()));
        }
    }
    std::filesystem::remove(path);
}

std::filesystem::path NewLogFile() {
    const std::filesystem::path folder = std::filesystem::temp_directory_path();
    static const bool isWarm = [&] {
        WarmFileSystem(folder);
        return true;
    }();
    static_cast<void>(isWarm);
    return folder / ("tarn_benchmark_" + std::to_string(TSystem::ProcessID()) + ".log");
}

uint64 CountLines(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<char> block(std::size_t{1024} * 1024);
    std::ptrdiff_t lines = 0;
    while (file) {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        lines += std::count(block.data(), block.data() + file.gcount(), '\n');
    }
    return static_cast<uint64>(lines);
}

std::string LastLineWith(const std::filesystem::path& path, const std::string& part) {
    // The probe's lines are the last ones but those of whatever else ends meanwhile.
    constexpr std::streamoff tail = std::streamoff{64} * 1024;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    file.seekg(std::max<std::streamoff>(0, static_cast<std::streamoff>(file.tellg()) - tail));
    std::string found;
    for (std::string line; std::getline(file, line);) {
        if (line.find(part) != std::string::npos) {
            found = line;
        }
    }
    return found;
}

std::string BeginEventName(const char* name) {
    return std::string("begin-") + name;
}

}  // namespace

// Deliveries never overlap, so plain members do.
class TracingUnderTest::NullSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& event) override {
        ++m_events;
        if (m_isProbing && event.GetName() == m_wanted) {
            m_probed = event;
        }
    }

    uint64 Events() const noexcept { return m_events; }

    void Probe(const char* name) {
        m_wanted = TString(BeginEventName(name));
        m_isProbing = true;
    }

    std::string ProbedLine() {
        m_isProbing = false;
        return m_probed ? TLog::FormatJsonLine(TLog::Info, *m_probed, TLog::EventTimePoint())
                        : std::string();
    }

private:
    uint64 m_events = 0;
    bool m_isProbing = false;
    TString m_wanted;
    std::optional<TLog::Event> m_probed;
};

std::unique_ptr<TracingUnderTest> TracingUnderTest::s_current;

void TracingUnderTest::Start(Receiver receiver, int threads) {
    s_current.reset(new TracingUnderTest(receiver, threads));
}

void TracingUnderTest::Stop(const benchmark::State& /*state*/) {
    s_current.reset();
}

TracingUnderTest::TracingUnderTest(Receiver receiver, int threads)
    : m_receiver(receiver),
      m_rendezvous(threads) {
    std::shared_ptr<TLog::LogBackEnd> backEnd;
    if (receiver == Receiver::File) {
        m_logFile = NewLogFile();
        TLog::LogFileLimits limits;
        limits.maxBytes = 0;
        backEnd = TLog::MakeJsonFileBackEnd(m_logFile.string(), limits);
    }
    m_formerBackEnd = TLog::ReplaceBackEnd(std::move(backEnd));
    OptTarn::SetIsTarnEnabled(true);
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    OptTarn::SetIsServer(true);
    OptTarn::SetCorvalaCounterScopesOpened(&m_scopesOpened);
    if (receiver == Receiver::Nobody) {
        return;
    }
    m_monitor = new MetricsMonitor(Metrics::Context::Create(true));
    if (receiver == Receiver::NullSink) {
        m_nullSink = new NullSink();
        m_monitor->EnableTest(m_nullSink, new MonitorUUIDGenerator());
    }
    m_monitor->Register(true);
}

TracingUnderTest::~TracingUnderTest() {
    if (m_monitor) {
        m_monitor->Unregister();
    }
    OptTarn::SetCorvalaCounterScopesOpened(nullptr);
    OptTarn::SetIsServer(false);
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    OptTarn::SetIsTarnEnabled(false);
    TLog::ReplaceBackEnd(std::move(m_formerBackEnd));
    if (!m_logFile.empty()) {
        std::filesystem::remove(m_logFile);
    }
}

uint64 TracingUnderTest::Events() const {
    switch (m_receiver) {
        case Receiver::Nobody:
            return 0;
        case Receiver::NullSink:
            return m_nullSink->Events();
        case Receiver::File:
            TLog::FlushLog();
            return CountLines(m_logFile);
    }
    return 0;
}

std::string TracingUnderTest::LineOfProbe(const char* name, Metrics::NameValueList&& attributes) {
    if (m_nullSink != nullptr) {
        m_nullSink->Probe(name);
    }
    { const tarn::ActivityScope probe(name, std::move(attributes)); }
    if (m_nullSink != nullptr) {
        return m_nullSink->ProbedLine();
    }
    TLog::FlushLog();
    return LastLineWith(m_logFile, "\"event\":\"" + BeginEventName(name) + "\"");
}

OpenParents::OpenParents(int64 depth) : m_context(0, Metrics::Context::Create(true)) {
    m_context.OpenScope();
    for (int64 level = 0; level < depth; ++level) {
        m_scopes.emplace_back("parent");
    }
}

OpenParents::~OpenParents() {
    while (!m_scopes.empty()) {
        m_scopes.pop_back();
    }
}

void ReportAllocations(benchmark::State& state, uint64 allocationsBefore) {
    const uint64 allocations = AllocationsOfThisThread() - allocationsBefore;
    state.counters["allocs/scope"] = benchmark::Counter(
        static_cast<double>(allocations) / static_cast<double>(state.iterations()),
        benchmark::Counter::kAvgThreads);
}

void Expect(benchmark::State& state, const char* what, uint64 expected, uint64 found) {
    if (found != expected) {
        state.SkipWithError((std::string(what) + ": " + std::to_string(found) + " instead of " +
                             std::to_string(expected))
                                .c_str());
    }
}

void ExpectPart(benchmark::State& state, const std::string& line, const std::string& part) {
    if (line.find(part) == std::string::npos) {
        state.SkipWithError(("no " + part + " in: " + line).c_str());
    }
}

}  // namespace benchmarks
