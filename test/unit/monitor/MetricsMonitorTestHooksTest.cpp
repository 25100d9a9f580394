#include "CapturingSink.h"
#include "EventBuilder.h"
#include "KnownIds.h"
#include "Matchers.h"
#include "MetricsMonitorRegistrationTest.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/CorvalaException.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::CapturingSink;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::IsLogicError;
using tarn::test::KnownIds;
using tarn::test::MetricsMonitorRegistrationTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Throws;

// ---- Test hooks.

/// Says into a list when it is destroyed.
class MortalSink : public IMetricsMonitorSink {
public:
    explicit MortalSink(std::vector<std::string>& deaths) : m_deaths(deaths) {}

    ~MortalSink() override { m_deaths.emplace_back("sink"); }

    void Log(const TLog::Event& /*event*/) override {}

private:
    std::vector<std::string>& m_deaths;
};

class MortalIds : public IMetricsMonitorUUID {
public:
    explicit MortalIds(std::vector<std::string>& deaths) : m_deaths(deaths) {}

    ~MortalIds() override { m_deaths.emplace_back("generator"); }

    TUUID CreateUUID() override { return {}; }

private:
    std::vector<std::string>& m_deaths;
};

TEST_F(MetricsMonitorRegistrationTest, AMonitorIsNotInTestModeUntilTestObjectsAreGiven) {
    const Monitor monitor(new MetricsMonitor(rootContext));
    EXPECT_FALSE(monitor->IsEnabledForTest());

    monitor->EnableTest(new CapturingSink(m_events), new KnownIds);

    EXPECT_TRUE(monitor->IsEnabledForTest());
}

TEST_F(MetricsMonitorRegistrationTest, ANullSinkIsALogicError) {
    const Monitor monitor(new MetricsMonitor(rootContext));
    const auto ids = std::make_unique<KnownIds>();

    EXPECT_THAT([&] { monitor->EnableTest(nullptr, ids.get()); },
                Throws<LogicException>(
                    IsLogicError("src/cpp/main/MetricsMonitor", 303, "sink", 0x92C72FA5)));

    EXPECT_FALSE(monitor->IsEnabledForTest());
}

TEST_F(MetricsMonitorRegistrationTest, ANullGeneratorIsALogicError) {
    const Monitor monitor(new MetricsMonitor(rootContext));
    const auto sink = std::make_unique<CapturingSink>(m_events);

    EXPECT_THAT([&] { monitor->EnableTest(sink.get(), nullptr); },
                Throws<LogicException>(
                    IsLogicError("src/cpp/main/MetricsMonitor", 304, "uuidGenerator", 0xCFD85784)));

    EXPECT_FALSE(monitor->IsEnabledForTest());
}

TEST_F(MetricsMonitorRegistrationTest, OfTwoNullArgumentsTheSinkIsReported) {
    const Monitor monitor(new MetricsMonitor(rootContext));

    EXPECT_THAT([&] { monitor->EnableTest(nullptr, nullptr); },
                Throws<LogicException>(
                    IsLogicError("src/cpp/main/MetricsMonitor", 303, "sink", 0x92C72FA5)));
}

TEST_F(MetricsMonitorRegistrationTest, ANullArgumentLeavesSinkAndGeneratorInPlace) {
    const Monitor monitor = MakeMonitor();
    std::vector<std::string> deaths;
    const auto sink = std::make_unique<MortalSink>(deaths);
    const auto ids = std::make_unique<MortalIds>(deaths);

    EXPECT_THROW(monitor->EnableTest(sink.get(), nullptr), LogicException);
    EXPECT_THROW(monitor->EnableTest(nullptr, ids.get()), LogicException);

    EXPECT_THAT(deaths, IsEmpty());
    EXPECT_TRUE(monitor->IsEnabledForTest());
    monitor->OnMetricsEvent(EventBuilder::OpenContext(rootContext));
    monitor->OnMetricsEvent(EventBuilder::OpenScope(1, "query").In(rootContext));
    EXPECT_THAT(*m_events,
                ElementsAre(AllOf(Begins("query"), HasActivityField("id", KnownIds::Text(1)))));
}

TEST_F(MetricsMonitorRegistrationTest, WhatIsReplacedIsDestroyed) {
    std::vector<std::string> deaths;
    const Monitor monitor(new MetricsMonitor(rootContext));
    monitor->EnableTest(new MortalSink(deaths), new MortalIds(deaths));
    EXPECT_THAT(deaths, IsEmpty());

    monitor->EnableTest(new CapturingSink(m_events), new KnownIds);

    EXPECT_THAT(deaths, testing::UnorderedElementsAre("sink", "generator"));
}

TEST_F(MetricsMonitorRegistrationTest, HandingOverWhatIsOwnedAlreadyDoesNotDestroyIt) {
    std::vector<std::string> deaths;
    const Monitor monitor(new MetricsMonitor(rootContext));
    auto* const sink = new MortalSink(deaths);
    auto* const ids = new MortalIds(deaths);
    monitor->EnableTest(sink, ids);

    monitor->EnableTest(sink, new MortalIds(deaths));
    EXPECT_THAT(deaths, ElementsAre("generator"));

    monitor->EnableTest(sink, new MortalIds(deaths));
    EXPECT_THAT(deaths, ElementsAre("generator", "generator"));
}

TEST_F(MetricsMonitorRegistrationTest, HandingOverBothOwnedObjectsAgainChangesNothing) {
    std::vector<std::string> deaths;
    Monitor monitor(new MetricsMonitor(rootContext));
    auto* const sink = new MortalSink(deaths);
    auto* const ids = new MortalIds(deaths);
    monitor->EnableTest(sink, ids);

    monitor->EnableTest(sink, ids);
    EXPECT_THAT(deaths, IsEmpty());

    monitor = {};
    EXPECT_THAT(deaths, ElementsAre("generator", "sink"));
}

TEST_F(MetricsMonitorRegistrationTest, TheGeneratorGoesBeforeTheSink) {
    std::vector<std::string> deaths;
    Monitor monitor(new MetricsMonitor(rootContext));
    monitor->EnableTest(new MortalSink(deaths), new MortalIds(deaths));

    monitor = {};

    EXPECT_THAT(deaths, ElementsAre("generator", "sink"));
}

// ---- The sink that a monitor starts with.

TLog::Event SomeEvent() {
    return TLog::Event(TString("begin-query"), TLog::Object::Make({}));
}

TEST_F(MetricsMonitorRegistrationTest, TheDefaultSinkLogsAtInfoSeverity) {
    MetricsMonitor::LogSink sink;

    sink.Log(SomeEvent());

    const auto logged = Log().Events();
    ASSERT_EQ(logged.size(), 1U);
    EXPECT_EQ(logged.front().first, TLog::Info);
    EXPECT_EQ(logged.front().second.GetName(), TString("begin-query"));
}

TEST_F(MetricsMonitorRegistrationTest, TheDefaultSinkLogsNothingWhileInfoIsDisabled) {
    MetricsMonitor::LogSink sink;
    TLog::SetThreshold(TLog::Warn);

    sink.Log(SomeEvent());

    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(MetricsMonitorRegistrationTest, WithoutTestObjectsEventsGoToTheLoggerWithRandomIds) {
    const Monitor monitor(new MetricsMonitor(rootContext));
    monitor->OnMetricsEvent(EventBuilder::OpenContext(rootContext));

    monitor->OnMetricsEvent(EventBuilder::OpenScope(1, "query").In(rootContext));
    monitor->OnMetricsEvent(EventBuilder::CloseScope(1).In(rootContext));
    monitor->OnMetricsEvent(EventBuilder::OpenScope(2, "query").In(rootContext));

    std::vector<TLog::Event> logged;
    for (const auto& [severity, event] : Log().Events()) {
        EXPECT_EQ(severity, TLog::Info);
        logged.push_back(event);
    }
    ASSERT_THAT(logged, ElementsAre(Begins("query"), Ends("query"), Begins("query")));
    const auto id = [](const TLog::Event& event) {
        return tarn::test::Field(event, tarn::test::Table::Activity, "id");
    };
    EXPECT_EQ(id(logged[0]), id(logged[1]));
    EXPECT_NE(id(logged[0]), id(logged[2]));
}

// ---- The memory mode for tests.

class MemoryModeOverrideTest : public MetricsMonitorRegistrationTest {
protected:
    /// The field "res" of the end event of a fresh scope.
    std::optional<tarn::test::LogValue> ReportedResources() {
        const Monitor monitor = MakeMonitor();
        monitor->OnMetricsEvent(EventBuilder::OpenContext(rootContext));
        monitor->OnMetricsEvent(EventBuilder::OpenScope(1, "query").In(rootContext));
        monitor->OnMetricsEvent(EventBuilder::CloseScope(1).In(rootContext));
        return tarn::test::Field(m_events->back(), tarn::test::Table::Activity, "res");
    }

    void Override(corvala::memory::MemoryTrackingMode mode) {
        // The setting is the library's, so any monitor will do.
        const RefCntPtr<const MetricsMonitor> monitor(new MetricsMonitor(rootContext));
        monitor->OverrideMemoryTrackingModeForTest(mode);
    }

    void SetUp() override { OptTarn::SetIsTarnPlatforms(true); }

    void TearDown() override { Override(corvala::memory::MemoryTrackingOff); }
};

TEST_F(MemoryModeOverrideTest, InUnitTestModeEventsGoByTheOverrideOnEachCall) {
    OptTarn::SetIsUnitTest(true);
    Override(corvala::memory::MemoryTrackingOff);
    const auto withoutTracking = ReportedResources();

    Override(corvala::memory::MemoryTrackingAll);
    const auto withTracking = ReportedResources();

    ASSERT_NE(withTracking, std::nullopt);
    ASSERT_NE(withoutTracking, std::nullopt);
    EXPECT_THAT(withTracking->Text(), testing::HasSubstr("\"free\""));
    EXPECT_THAT(withoutTracking->Text(), testing::Not(testing::HasSubstr("\"free\"")));
}

TEST_F(MemoryModeOverrideTest, OutsideUnitTestModeTheOverrideIsIgnored) {
    OptTarn::SetIsUnitTest(false);
    Override(corvala::memory::MemoryTrackingOff);
    const auto before = ReportedResources();

    Override(corvala::memory::MemoryTrackingAll);

    ASSERT_NE(before, std::nullopt);
    EXPECT_EQ(ReportedResources(), before);
}

TEST_F(MemoryModeOverrideTest, OutsideUnitTestModeThreadsAreCountedExactlyIfProcessorTimesAre) {
    OptTarn::SetIsUnitTest(false);

    const auto resources = ReportedResources();

    ASSERT_NE(resources, std::nullopt);
    const auto has = [&](const char* field) {
        return resources->Text().find(field) != std::string::npos;
    };
    EXPECT_TRUE(has("\"alloc\""));
    EXPECT_EQ(has("\"ntid\""), has("\"kcpu\""));
    EXPECT_EQ(has("\"ntid\""), has("\"ucpu\""));
}

TEST_F(MemoryModeOverrideTest, OutsideUnitTestModeTheProcessesAnswersAreReadOnceAndKept) {
    OptTarn::SetIsUnitTest(false);
    const auto before = ReportedResources();

    const auto flipped =
        corvala::memory::GetMemoryTrackingMode() == corvala::memory::MemoryTrackingAll
            ? corvala::memory::MemoryTrackingOff
            : corvala::memory::MemoryTrackingAll;
    corvala::memory::SetMemoryTrackingMode(flipped);
    corvala::cputime::SetCpuTrackingEnabled(!corvala::cputime::GetCpuTrackingEnabled());

    ASSERT_NE(before, std::nullopt);
    EXPECT_EQ(ReportedResources(), before);
}

}  // namespace
