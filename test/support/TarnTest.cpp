#include "TarnTest.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"
#include "tarn/ThreadContextPropagator.h"

#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <functional>
#include <string>

namespace tarn::test {
namespace {

void RestoreMappings(const TarnSettings::Mappings& mappings) {
    TarnSettings& settings = TarnSettings::GetInstance();
    settings.SetEventAttributeMappingToDefaults();
    for (const auto& [name, target] : settings.GetEventAttributeMappings()) {
        settings.RemoveEventAttributeMapping(name);
    }
    for (const auto& [name, target] : mappings) {
        settings.AddEventAttributeMapping(name, target);
    }
}

}  // namespace

struct TarnTest::Saved {
    bool isTarnEnabled = OptTarn::GetIsTarnEnabled();
    bool isTarnPlatforms = OptTarn::GetIsTarnPlatforms();
    bool isForegroundThreadContextEnabled = OptTarn::GetIsForegroundThreadContextEnabled();
    bool isServer = OptTarn::GetIsServer();
    bool isUnitTest = OptTarn::GetIsUnitTest();
    bool shouldLogForegroundActivity = OptTarn::GetShouldLogForegroundActivity();
    bool shouldLogResourceTracking = OptTarn::GetShouldLogResourceTracking();
    bool shouldLogTransparent = OptTarn::GetShouldLogTransparent();

    TString hostName = OptTarn::GetHostName();
    TString defaultSiteName = OptTarn::GetDefaultSiteNameGet();
    TString serverEnvironment = OptTarn::GetServerEnvironment();

    std::function<TString(bool)> getAppProductVersion = OptTarn::GetGetAppProductVersion();
    std::function<void(const std::string&, uint64)> cmonIncrementCounter =
        OptTarn::GetCmonIncrementCounter();

    std::string contextsCreated = OptTarn::GetMetricsMonitorContextsCreatedConst();
    std::string contextsClosed = OptTarn::GetMetricsMonitorContextsClosedConst();
    std::string requestContextsCreated = OptTarn::GetMetricsMonitorRequestContextsCreatedConst();
    std::string requestContextsClosed = OptTarn::GetMetricsMonitorRequestContextsClosedConst();
    std::string scopeOpened = OptTarn::GetMetricsMonitorScopeOpenedConst();
    std::string scopeClosed = OptTarn::GetMetricsMonitorScopedClosedConst();

    TarnSettings::Names offs = TarnSettings::GetInstance().GetCopyOfOffs();
    TraceRank rankOn = TarnSettings::GetInstance().GetRankOn();
    TarnSettings::Mappings mappings = TarnSettings::GetInstance().GetEventAttributeMappings();

    TLog::Severity threshold = TLog::GetThreshold();
    std::shared_ptr<TLog::LogBackEnd> backEnd;

    Metrics::ClockFunction clock = nullptr;
    uint64 consumerCount = Metrics::MetricsManager::GetInstance().GetConsumerCount();

    corvala::memory::MemoryTrackingMode memoryMode = corvala::memory::GetMemoryTrackingMode();
    bool cpuTracking = corvala::cputime::GetCpuTrackingEnabled();

    void Restore() const {
        OptTarn::SetIsTarnEnabled(isTarnEnabled);
        OptTarn::SetIsTarnPlatforms(isTarnPlatforms);
        OptTarn::SetIsForegroundThreadContextEnabled(isForegroundThreadContextEnabled);
        OptTarn::SetIsServer(isServer);
        OptTarn::SetIsUnitTest(isUnitTest);
        OptTarn::SetShouldLogForegroundActivity(shouldLogForegroundActivity);
        OptTarn::SetShouldLogResourceTracking(shouldLogResourceTracking);
        OptTarn::SetShouldLogTransparent(shouldLogTransparent);

        OptTarn::SetHostName(hostName);
        OptTarn::SetDefaultSiteNameGet(defaultSiteName);
        OptTarn::SetServerEnvironment(serverEnvironment);

        OptTarn::SetGetAppProductVersion(getAppProductVersion);
        OptTarn::SetEmitEnvironmentMetrics([] {});
        OptTarn::SetCmonIncrementCounter(cmonIncrementCounter);

        OptTarn::SetMetricsMonitorContextsCreatedConst(contextsCreated);
        OptTarn::SetMetricsMonitorContextsClosedConst(contextsClosed);
        OptTarn::SetMetricsMonitorRequestContextsCreatedConst(requestContextsCreated);
        OptTarn::SetMetricsMonitorRequestContextsClosedConst(requestContextsClosed);
        OptTarn::SetMetricsMonitorScopeOpenedConst(scopeOpened);
        OptTarn::SetMetricsMonitorScopeClosedConst(scopeClosed);

        OptTarn::SetCorvalaCounterContextsCreated(nullptr);
        OptTarn::SetCorvalaCounterContextsClosed(nullptr);
        OptTarn::SetCorvalaCounterRequestContextsCreated(nullptr);
        OptTarn::SetCorvalaCounterRequestContextsClosed(nullptr);
        OptTarn::SetCorvalaCounterScopesOpened(nullptr);
        OptTarn::SetCorvalaCounterScopesClosed(nullptr);

        TarnSettings& settings = TarnSettings::GetInstance();
        settings.SetOffs(offs);
        settings.SetRankOn(rankOn);
        RestoreMappings(mappings);

        Metrics::SetClock(clock);
        corvala::memory::SetMemoryTrackingMode(memoryMode);
        corvala::cputime::SetCpuTrackingEnabled(cpuTracking);
        TLog::SetThreshold(threshold);
    }
};

TarnTest::TarnTest() : m_saved(new Saved), m_log(std::make_shared<CapturingLog>()) {
    m_saved->clock = Metrics::SetClock(nullptr);
    Metrics::SetClock(m_saved->clock);
    m_saved->backEnd = TLog::ReplaceBackEnd(m_log);
    TLog::SetThreshold(TLog::Info);

    // A forked child lacks the other threads; run it from the start instead.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
}

TarnTest::~TarnTest() {
    m_log->CallOnEach({});
    for (const RefCntPtr<RecordingListener>& listener : m_listeners) {
        Metrics::MetricsManager::GetInstance().RemoveConsumer(listener);
    }
    OptTarn::SetShouldLogForegroundActivity(false);
    EXPECT_EQ(Metrics::MetricsManager::GetInstance().GetConsumerCount(), m_saved->consumerCount)
        << "the test must remove the listeners that it registers";
    EXPECT_EQ(ThreadContextPropagator().GetContext(), nullptr)
        << "the test must take its activity contexts off the thread";
    EXPECT_EQ(Metrics::MetricsManager::GetInstance().GetThreadContext().GetMetricsContextId(), 0U)
        << "the test must end its metrics contexts";
    m_saved->Restore();
    TLog::ReplaceBackEnd(m_saved->backEnd);
}

RefCntPtr<RecordingListener> TarnTest::Listen(uint64 bits, bool flag) {
    RefCntPtr<RecordingListener> listener(new RecordingListener);
    Metrics::MetricsManager::GetInstance().AddConsumer(listener, bits, flag);
    m_listeners.push_back(listener);
    return listener;
}

void TarnTest::StopListening(const RefCntPtr<RecordingListener>& listener) {
    Metrics::MetricsManager::GetInstance().RemoveConsumer(listener);
}

}  // namespace tarn::test
