#include "ScenarioHost.h"

#include "EventJson.h"
#include "Host.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"

#include <mutex>
#include <new>
#include <utility>

namespace {

int64 (*s_clock)() noexcept = nullptr;

int s_failures = 0;

constexpr std::size_t blockBytes = 1016;

std::mutex s_lock;
std::vector<void*> s_blocks;

void ReleaseLastBlock() {
    const std::lock_guard lock(s_lock);
    TFree(s_blocks.back());
    s_blocks.pop_back();
}

class KeepingSink : public IMetricsMonitorSink {
public:
    explicit KeepingSink(std::shared_ptr<tarn::test::CapturedEvents> events)
        : m_events(std::move(events)) {}

    void Log(const TLog::Event& event) override { m_events->push_back(event); }

private:
    std::shared_ptr<tarn::test::CapturedEvents> m_events;
};

// With its parts in the order in which a log has them.
std::string LineOf(const TLog::Event& event) {
    const nlohmann::json values = tarn::test::JsonOf(TLog::Info, event, {});
    nlohmann::ordered_json line;
    for (const char* const part : {"time",
                                   "severity",
                                   "event",
                                   "pid",
                                   "tid",
                                   "session",
                                   "request",
                                   "user",
                                   "site",
                                   "environment",
                                   "activity",
                                   "attributes",
                                   "body"}) {
        line[part] = values.at(part);
    }
    EXPECT_EQ(line.size(), values.size()) << "a part is missing in the line of " << values;
    return line.dump();
}

}  // namespace

// The clock of the example's host, which it reads for every event.
own_host::Moment own_host::Now() {
    if (s_failures != 0) {
        --s_failures;
        throw std::bad_alloc();
    }
    constexpr int64 start = 1'700'000'000'000'000;
    const int64 passed = s_clock != nullptr ? s_clock() : 0;
    return {passed * 1000, start + passed};
}

namespace tarn::test {

struct ScenarioHost::Saved {
    bool isTarnEnabled = OptTarn::GetIsTarnEnabled();
    bool isTarnPlatforms = OptTarn::GetIsTarnPlatforms();
    bool isForegroundThreadContextEnabled = OptTarn::GetIsForegroundThreadContextEnabled();
    bool isServer = OptTarn::GetIsServer();
    bool isUnitTest = OptTarn::GetIsUnitTest();
    bool shouldLogTransparent = OptTarn::GetShouldLogTransparent();
    TString defaultSiteName = OptTarn::GetDefaultSiteNameGet();
    TString serverEnvironment = OptTarn::GetServerEnvironment();
    TarnSettings::Names offs = TarnSettings::GetInstance().GetCopyOfOffs();
};

ScenarioHost::ScenarioHost() : m_saved(std::make_unique<Saved>()) {}

ScenarioHost::~ScenarioHost() {
    OptTarn::SetIsTarnEnabled(m_saved->isTarnEnabled);
    OptTarn::SetIsTarnPlatforms(m_saved->isTarnPlatforms);
    OptTarn::SetIsForegroundThreadContextEnabled(m_saved->isForegroundThreadContextEnabled);
    OptTarn::SetIsServer(m_saved->isServer);
    OptTarn::SetIsUnitTest(m_saved->isUnitTest);
    OptTarn::SetShouldLogTransparent(m_saved->shouldLogTransparent);
    OptTarn::SetDefaultSiteNameGet(m_saved->defaultSiteName);
    OptTarn::SetServerEnvironment(m_saved->serverEnvironment);
    TarnSettings::GetInstance().SetOffs(m_saved->offs);
    while (!s_blocks.empty()) {
        ReleaseLastBlock();
    }
}

void ScenarioHost::FailToEmit(int events) {
    s_failures = events;
}

void ScenarioHost::Begin(Clock clock) {
    s_clock = clock;
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
}

void ScenarioHost::AllocateAndFree(int allocations, int releases) {
    for (int i = 0; i < allocations; ++i) {
        void* const block = TMalloc(blockBytes);
        const std::lock_guard lock(s_lock);
        s_blocks.push_back(block);
    }
    for (int i = 0; i < releases; ++i) {
        ReleaseLastBlock();
    }
}

std::vector<std::string> ScenarioHost::LinesOf(
    const std::function<void(IMetricsMonitorSink*)>& work) {
    std::vector<std::string> lines;
    for (const TLog::Event& event : EventsOf(work)) {
        lines.push_back(LineOf(event));
    }
    return lines;
}

CapturedEvents ScenarioHost::EventsOf(const std::function<void(IMetricsMonitorSink*)>& work) {
    const auto events = std::make_shared<CapturedEvents>();
    work(new KeepingSink(events));
    return *events;
}

}  // namespace tarn::test
