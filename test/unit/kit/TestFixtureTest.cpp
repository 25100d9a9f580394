// That the fixture restores what it says, and that the tools for allocations tell right from
// wrong.
#include "AllocationCounter.h"
#include "TarnTest.h"
#include "ThreadActivityRegistry.h"

#include "tarn/ActivityContext.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

Metrics::ClockReading StoppedClock() noexcept {
    return {1, 2, 3};
}

/// The fixture of a test within a test.
class InnerTest : public TarnTest {
public:
    using TarnTest::Listen;
    using TarnTest::Log;

private:
    void TestBody() override {}
};

class TestFixtureTest : public TarnTest {};

void ChangeEverything(bool on, const char* text, int rank) {
    OptTarn::SetIsTarnEnabled(on);
    OptTarn::SetIsTarnPlatforms(on);
    OptTarn::SetIsForegroundThreadContextEnabled(on);
    OptTarn::SetIsServer(on);
    OptTarn::SetIsUnitTest(on);
    OptTarn::SetShouldLogForegroundActivity(on);
    OptTarn::SetShouldLogResourceTracking(on);
    OptTarn::SetShouldLogTransparent(on);
    OptTarn::SetHostName(TString(text));
    OptTarn::SetDefaultSiteNameGet(TString(text));
    OptTarn::SetServerEnvironment(TString(text));
    OptTarn::SetGetAppProductVersion([text](bool) { return TString(text); });
    OptTarn::SetCmonIncrementCounter({});
    OptTarn::SetMetricsMonitorContextsCreatedConst(text);
    OptTarn::SetMetricsMonitorContextsClosedConst(text);
    OptTarn::SetMetricsMonitorRequestContextsCreatedConst(text);
    OptTarn::SetMetricsMonitorRequestContextsClosedConst(text);
    OptTarn::SetMetricsMonitorScopeOpenedConst(text);
    OptTarn::SetMetricsMonitorScopeClosedConst(text);
    TarnSettings& settings = TarnSettings::GetInstance();
    settings.SetOffs({text});
    settings.SetRankOn(TraceRank{rank});
    settings.SetEventAttributeMappingToDefaults();
    settings.AddEventAttributeMapping(TString(text), TString(u"site"));
    settings.RemoveEventAttributeMapping(TString(u"rid"));
    TLog::SetThreshold(on ? TLog::Error : TLog::Warn);
    Metrics::SetClock(on ? &StoppedClock : nullptr);
    corvala::memory::SetMemoryTrackingMode(on ? corvala::memory::MemoryTrackingAll
                                              : corvala::memory::MemoryTrackingAllocations);
    corvala::cputime::SetCpuTrackingEnabled(on);
}

void ExpectEverything(bool on, const char* text, int rank) {
    EXPECT_EQ(OptTarn::GetIsTarnEnabled(), on);
    EXPECT_EQ(OptTarn::GetIsTarnPlatforms(), on);
    EXPECT_EQ(OptTarn::GetIsForegroundThreadContextEnabled(), on);
    EXPECT_EQ(OptTarn::GetIsServer(), on);
    EXPECT_EQ(OptTarn::GetIsUnitTest(), on);
    EXPECT_EQ(OptTarn::GetShouldLogForegroundActivity(), on);
    EXPECT_EQ(OptTarn::GetShouldLogResourceTracking(), on);
    EXPECT_EQ(OptTarn::GetShouldLogTransparent(), on);
    EXPECT_EQ(OptTarn::GetHostName(), TString(text));
    EXPECT_EQ(OptTarn::GetDefaultSiteNameGet(), TString(text));
    EXPECT_EQ(OptTarn::GetServerEnvironment(), TString(text));
    EXPECT_EQ(OptTarn::GetGetAppProductVersion()(true), TString(text));
    EXPECT_FALSE(OptTarn::GetCmonIncrementCounter());
    EXPECT_EQ(OptTarn::GetMetricsMonitorContextsCreatedConst(), text);
    EXPECT_EQ(OptTarn::GetMetricsMonitorContextsClosedConst(), text);
    EXPECT_EQ(OptTarn::GetMetricsMonitorRequestContextsCreatedConst(), text);
    EXPECT_EQ(OptTarn::GetMetricsMonitorRequestContextsClosedConst(), text);
    EXPECT_EQ(OptTarn::GetMetricsMonitorScopeOpenedConst(), text);
    EXPECT_EQ(OptTarn::GetMetricsMonitorScopedClosedConst(), text);
    const TarnSettings& settings = TarnSettings::GetInstance();
    EXPECT_THAT(settings.GetCopyOfOffs(), ElementsAre(text));
    EXPECT_FALSE(settings.IsOff(TraceRank{rank}));
    EXPECT_TRUE(settings.IsOff(TraceRank{rank + 1}));
    EXPECT_THAT(settings.GetEventAttributeMappings(), SizeIs(7));
    EXPECT_TRUE(settings.GetEventAttributeMapping(TString(text)).first);
    EXPECT_FALSE(settings.GetEventAttributeMapping(TString(u"rid")).first);
    EXPECT_EQ(TLog::GetThreshold(), on ? TLog::Error : TLog::Warn);
    EXPECT_EQ(Metrics::ReadClock().time == StoppedClock().time, on);
    EXPECT_EQ(corvala::memory::GetMemoryTrackingMode(),
              on ? corvala::memory::MemoryTrackingAll : corvala::memory::MemoryTrackingAllocations);
    EXPECT_EQ(corvala::cputime::GetCpuTrackingEnabled(), on);
}

TEST_F(TestFixtureTest, WhatATestChangesIsRestored) {
    ChangeEverything(true, "outer", -4);
    {
        InnerTest inner;
        ChangeEverything(false, "inner", 9);
        ExpectEverything(false, "inner", 9);
    }
    ExpectEverything(true, "outer", -4);

    ChangeEverything(false, "outer", 2147483646);
    {
        InnerTest inner;
        ChangeEverything(true, "inner", -2147483647);
    }
    ExpectEverything(false, "outer", 2147483646);
}

TEST_F(TestFixtureTest, CountersOfATestAreForgotten) {
    std::atomic<int64> counter{0};
    {
        InnerTest inner;
        OptTarn::SetCorvalaCounterContextsCreated(&counter);
        OptTarn::SetCorvalaCounterContextsClosed(&counter);
        OptTarn::SetCorvalaCounterRequestContextsCreated(&counter);
        OptTarn::SetCorvalaCounterRequestContextsClosed(&counter);
        OptTarn::SetCorvalaCounterScopesOpened(&counter);
        OptTarn::SetCorvalaCounterScopesClosed(&counter);
    }

    OptTarn::IncrementCorvalaCounterContextsCreated();
    OptTarn::IncrementCorvalaCounterContextsClosed();
    OptTarn::IncrementCorvalaCounterRequestContextsCreated();
    OptTarn::IncrementCorvalaCounterRequestContextsClosed();
    OptTarn::IncrementCorvalaCounterScopesOpened();
    OptTarn::IncrementCorvalaCounterScopesClosed();

    EXPECT_EQ(counter.load(), 0);
}

TEST_F(TestFixtureTest, ATestsLogIsItsOwn) {
    {
        InnerTest inner;
        TLog::Logger::Get().LogMessage(TLog::Info, TString(u"inside"));
        EXPECT_THAT(inner.Log().Messages(), SizeIs(1));
    }
    TLog::Logger::Get().LogMessage(TLog::Info, TString(u"outside"));

    EXPECT_THAT(Log().Messages(), ElementsAre(testing::Pair(TLog::Info, "outside")));
    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(TestFixtureTest, ListenersOfATestLeaveTheBus) {
    {
        InnerTest inner;
        inner.Listen();
        inner.Listen();
    }

    EXPECT_EQ(Metrics::MetricsManager::GetInstance().GetConsumerCount(), 0U);
}

TEST_F(TestFixtureTest, AListenerThatATestForgetsFailsIt) {
    static RefCntPtr<Metrics::IMetricsListener> forgotten;

    EXPECT_NONFATAL_FAILURE(
        {
            InnerTest inner;
            forgotten = new RecordingListener;
            Metrics::MetricsManager::GetInstance().AddConsumer(forgotten, 1, true);
        },
        "must remove the listeners");

    Metrics::MetricsManager::GetInstance().RemoveConsumer(forgotten);
    forgotten = nullptr;
}

TEST_F(TestFixtureTest, AnActivityContextThatATestForgetsFailsIt) {
    static std::shared_ptr<ActivityContext> forgotten;

    EXPECT_NONFATAL_FAILURE(
        {
            InnerTest inner;
            forgotten = std::make_shared<ActivityContext>();
            ThreadActivityRegistry::GetInstance().Push(forgotten);
        },
        "must take its activity contexts off");

    ThreadActivityRegistry::GetInstance().Remove(forgotten);
    forgotten = nullptr;
}

TEST_F(TestFixtureTest, AMetricsContextThatATestForgetsFailsIt) {
    static std::unique_ptr<Metrics::Context> forgotten;

    EXPECT_NONFATAL_FAILURE(
        {
            InnerTest inner;
            forgotten = std::make_unique<Metrics::Context>(0, Metrics::Context::Create(true));
            forgotten->OpenScope();
        },
        "must end its metrics contexts");

    forgotten = nullptr;
}

// ---- Allocations

TEST_F(TestFixtureTest, AllocationsAreCounted) {
    const AllocationCounter counter;

    ::operator delete(::operator new(100));
    const auto array = std::make_unique<std::string[]>(3);

    EXPECT_EQ(counter.Allocations(), 2U);
    EXPECT_EQ(counter.Releases(), 1U);
    EXPECT_GE(counter.AllocatedBytes(), 100 + 3 * sizeof(std::string));
}

TEST_F(TestFixtureTest, AllocationsOfTheHostLibrariesAreCounted) {
    const AllocationCounter counter;

    const TString text(u"a text that lies in a library");

    EXPECT_GE(counter.Allocations(), 1U);
}

TEST_F(TestFixtureTest, AllocationsOfOtherThreadsAreNotCounted) {
    uint64 there = 0;
    std::thread thread([&there] {
        const AllocationCounter counter;
        ::operator delete(::operator new(100));
        there = counter.Allocations();
    });
    const AllocationCounter counter;
    thread.join();

    EXPECT_EQ(there, 1U);
    EXPECT_EQ(counter.Allocations(), 0U);
}

TEST_F(TestFixtureTest, OneChosenAllocationFails) {
    int succeeded = 0;
    bool threw = false;
    {
        const FailingAllocation failing(2);
        try {
            for (; succeeded < 5; ++succeeded) {
                ::operator delete(::operator new(100));
            }
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        EXPECT_TRUE(failing.HasFailed());
        EXPECT_EQ(failing.FailedBytes(), 100U);
        ::operator delete(::operator new(100));
    }

    EXPECT_TRUE(threw);
    EXPECT_EQ(succeeded, 2);
}

TEST_F(TestFixtureTest, MemoryCanRunOut) {
    {
        const MemoryThatRunsOut memory(1);

        ::operator delete(::operator new(100));
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(::operator new(100, std::nothrow), nullptr);
        }
    }

    ::operator delete(::operator new(100));
}

TEST_F(TestFixtureTest, ATestsOwnAllocationsCanBeExcepted) {
    const FailingAllocation failing(0);
    {
        const UnfailingAllocations unfailing;
        ::operator delete(::operator new(100));
    }
    EXPECT_FALSE(failing.HasFailed());

    EXPECT_EQ(::operator new(100, std::nothrow), nullptr);
    EXPECT_TRUE(failing.HasFailed());
}

}  // namespace
}  // namespace tarn::test
