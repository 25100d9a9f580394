// One mode of tracing, run under callgrind: between warm-up and tear-down it collects what a number
// of scopes with three attributes takes. Outside of callgrind it only runs.
//
// Usage: tarn_instructions <mode>[-front-door] <scopes> [log file]

#include "tarn/ActivityName.h"
#include "tarn/ActivityScope.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/MonitorUUIDGenerator.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"
#include "tarn/Trace.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/Context.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlsys/CpuTime.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <stdexcept>
#include <string>
#include <valgrind/callgrind.h>

namespace {

constexpr std::chrono::seconds timeout{300};
constexpr int warmUp = 2000;

// Scopes of tarn/Trace.h in place of `ActivityScope`, which they are compared with.
const char* const frontDoor = "-front-door";
bool isThroughFrontDoor = false;

bool isNamed = false;
constinit tarn::ActivityName measuredName{"measured"};

struct Mode {
    bool isOff = false;
    bool isNamed = false;  // a name at the call site, which remembers whether it is off
    bool hasMonitor = true;
    bool hasSink = true;
    bool isAsynchronous = false;
    bool tracksCpu = false;
    bool useJournal = false;
    bool hasSession = true;  // else nobody has ever asked for anything
};

const std::map<std::string, Mode>& Modes() {
    static const std::map<std::string, Mode> modes{
        {"off", {.isOff = true, .hasMonitor = false}},
        {"off-named", {.isOff = true, .isNamed = true, .hasMonitor = false}},
        {"no-session", {.hasMonitor = false, .hasSession = false}},
        {"nobody-listens", {.hasMonitor = false}},
        {"asynchronous", {.isAsynchronous = true}},
        {"asynchronous-cpu", {.isAsynchronous = true, .tracksCpu = true}},
        {"synchronous", {}},
        {"synchronous-cpu", {.tracksCpu = true}},
        {"journal", {.useJournal = true}},
        {"null-sink", {.hasSink = false}}};
    return modes;
}

class NullSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& event) override { m_names += event.GetName().IsEmpty() ? 0U : 1U; }

private:
    std::size_t m_names = 0;
};

void TraceThroughFrontDoor(int scopes) {
    for (int i = 0; i < scopes; ++i) {
        const tarn::Scope scope(
            "measured", {{"table", "packages"}, {"order", "by name"}, {"client", "browser"}});
    }
}

void TraceNamedThroughFrontDoor(int scopes) {
    for (int i = 0; i < scopes; ++i) {
        TARN_SCOPE("measured", "table", "packages", "order", "by name", "client", "browser");
    }
}

void TraceNamed(int scopes) {
    for (int i = 0; i < scopes; ++i) {
        const tarn::ActivityScope scope(
            measuredName, {{"table", "packages"}, {"order", "by name"}, {"client", "browser"}});
    }
}

void Trace(int scopes) {
    if (isNamed) {
        isThroughFrontDoor ? TraceNamedThroughFrontDoor(scopes) : TraceNamed(scopes);
        return;
    }
    if (isThroughFrontDoor) {
        TraceThroughFrontDoor(scopes);
        return;
    }
    for (int i = 0; i < scopes; ++i) {
        const tarn::ActivityScope scope(
            "measured", {{"table", "packages"}, {"order", "by name"}, {"client", "browser"}});
    }
}

void SwitchThousandNamesOff(bool andMeasured) {
    tarn::TarnSettings::Names names;
    for (int i = 0; i < 1000; ++i) {
        names.insert("some-other-name-" + std::to_string(i));
    }
    if (andMeasured) {
        names.insert("measured");
    }
    tarn::TarnSettings::GetInstance().SetOffs(names);
}

uint64 LinesSoFar() {
    return TLog::GetLogStatistics().lines;
}

// Collection is switched for this thread, so that only its share is counted; instrumentation for
// the whole process.
void CollectOfThisThread(int scopes) {
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_TOGGLE_COLLECT;
    Trace(scopes);
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_STOP_INSTRUMENTATION;
    Metrics::Flush(timeout);
}

void CollectOfAllThreads(int scopes) {
    CALLGRIND_START_INSTRUMENTATION;
    Trace(scopes);
    Metrics::Flush(timeout);
    CALLGRIND_STOP_INSTRUMENTATION;
}

void RunWithoutSession(int scopes) {
    const tarn::ActivityScope parent("parent");
    Trace(warmUp);
    CollectOfThisThread(scopes);
}

void Run(const Mode& mode, int scopes, const std::string& logFile) {
    // Logging is off until names are set: setting them is logged.
    TLog::ReplaceBackEnd(nullptr);
    OptTarn::SetIsTarnEnabled(true);
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    OptTarn::SetIsServer(true);
    corvala::cputime::SetCpuTrackingEnabled(mode.tracksCpu);
    SwitchThousandNamesOff(mode.isOff);
    TLog::ReplaceBackEnd(
        TLog::MakeJsonFileBackEnd(logFile, {.maxBytes = 0, .useJournal = mode.useJournal}));

    // Room for a whole run, so that the emitting thread does not wait.
    Metrics::SetDelivery({.mode = mode.isAsynchronous ? Metrics::DeliveryMode::Asynchronous
                                                      : Metrics::DeliveryMode::Synchronous,
                          .queueBytes = std::size_t{64} << 20});
    RefCntPtr<MetricsMonitor> monitor;
    if (mode.hasMonitor) {
        monitor = new MetricsMonitor(Metrics::Context::Create(true));
        if (!mode.hasSink) {
            monitor->EnableTest(new NullSink, new MonitorUUIDGenerator);
        }
        monitor->Register(true);
    }
    {
        Metrics::Context context(0, Metrics::Context::Create(true));
        context.OpenScope();
        const tarn::ActivityScope parent("parent");
        Trace(warmUp);
        Metrics::Flush(timeout);
        const uint64 before = LinesSoFar();

        if (std::getenv("TARN_INSTRUCTIONS_OF_ALL_THREADS") != nullptr) {
            CollectOfAllThreads(scopes);
        } else {
            CollectOfThisThread(scopes);
        }

        const uint64 expected =
            mode.hasMonitor && mode.hasSink ? 2 * static_cast<uint64>(scopes) : 0;
        if (LinesSoFar() - before != expected) {
            throw std::runtime_error("expected " + std::to_string(expected) + " lines, found " +
                                     std::to_string(LinesSoFar() - before));
        }
    }
    if (monitor) {
        monitor->Unregister();
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc < 3) {
            throw std::invalid_argument("usage: tarn_instructions <mode> <scopes> [log file]");
        }
        std::string mode = argv[1];
        if (const std::size_t end = mode.find(frontDoor); end != std::string::npos) {
            isThroughFrontDoor = true;
            mode.erase(end);
        }
        isNamed = Modes().at(mode).isNamed;
        if (Modes().at(mode).hasSession) {
            Run(Modes().at(mode), std::stoi(argv[2]), argc > 3 ? argv[3] : "/dev/null");
        } else {
            RunWithoutSession(std::stoi(argv[2]));
        }
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tarn_instructions: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
