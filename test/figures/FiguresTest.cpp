#include "FiguresTest.h"

#include "FakeTime.h"
#include "KnownIds.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/Context.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

namespace figures {

void FiguresTest::SetUp() {
    OptTarn::SetIsTarnEnabled(true);
    OptTarn::SetIsTarnPlatforms(true);
    OptTarn::SetIsServer(true);
    OptTarn::SetIsUnitTest(true);
    m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(Metrics::Context::Create(true)));
    m_monitor->EnableTest(new tarn::test::CapturingSink(m_events), new tarn::test::KnownIds);
    m_monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingAll);
    m_monitor->Register(true);
    TLog::SetThreshold(TLog::Fatal);  // warnings of ends out of order are expected
}

void FiguresTest::TearDown() {
    m_monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingOff);
    m_monitor->Unregister();
}

LoggedScopes FiguresTest::RunAndReadLog(const Script& script, Blocks blocks) {
    OptTarn::SetIsForegroundThreadContextEnabled(script.isForeground);
    OptTarn::SetShouldLogTransparent(script.logsTransparent);
    corvala::memory::SetMemoryTrackingMode(
        static_cast<corvala::memory::MemoryTrackingMode>(script.memoryModeAtStart));
    corvala::cputime::SetCpuTrackingEnabled(script.isCpuTrackedAtStart);
    fake_time::Install(script.HasClockPerThread());
    m_events->clear();
    const uint64 openContexts = m_monitor->GetNumberOpenContexts();

    m_blockSizes = figures::Run(script, m_second, blocks);

    EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(m_monitor->GetNumberOpenContexts(), openContexts);
    return ReadLog(*m_events, script.scopes);
}

}  // namespace figures
