#include "ScenarioHost.h"

#include "tarn/MetricsMonitor.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TSystem.h"
#include "cvlsys/host/MemoryCharging.h"

#include <filesystem>
#include <fstream>
#include <memory>

namespace tarn::test {

namespace {

// A real allocator may hand out a somewhat larger block, and what is counted is the block.
constexpr uint64 blockBytes = 1016;

constexpr uint64 startInSeconds = 1'700'000'000;

int64 (*s_clock)() noexcept = nullptr;

}  // namespace

void ScenarioHost::Begin(Clock clock) {
    s_clock = clock;
    Metrics::SetClock([]() noexcept -> Metrics::ClockReading {
        const auto passed = static_cast<uint64>(s_clock());
        return {.time = static_cast<int64>(passed) * 1000,
                .wallSeconds = startInSeconds + passed / 1'000'000,
                .wallMicros = static_cast<uint32>(passed % 1'000'000)};
    });
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
}

void ScenarioHost::AllocateAndFree(int allocations, int releases) {
    for (int i = 0; i < allocations; ++i) {
        corvala::memory::ChargeAllocation(blockBytes);
    }
    for (int i = 0; i < releases; ++i) {
        corvala::memory::ChargeRelease(blockBytes);
    }
}

// Through the whole log, to a file.
std::vector<std::string> ScenarioHost::LinesOf(
    const std::function<void(IMetricsMonitorSink*)>& work) {
    const std::filesystem::path path =
        std::filesystem::path(testing::TempDir()) /
        ("scenario-" + std::to_string(TSystem::ProcessID()) + ".jsonl");
    std::filesystem::remove(path);
    TLog::ReplaceBackEnd(TLog::MakeJsonFileBackEnd(path.string()));
    work(new MetricsMonitor::LogSink);
    TLog::FlushLog();

    std::vector<std::string> lines;
    std::ifstream in(path, std::ios::binary);
    for (std::string line; std::getline(in, line);) {
        // Not what the monitor says of itself.
        if (line.find("\"message\":") == std::string::npos) {
            lines.push_back(line);
        }
    }
    std::filesystem::remove(path);
    return lines;
}

CapturedEvents ScenarioHost::EventsOf(const std::function<void(IMetricsMonitorSink*)>& work) {
    const auto events = std::make_shared<CapturedEvents>();
    work(new CapturingSink(events));
    return *events;
}

}  // namespace tarn::test
