#include "AllocationCounter.h"
#include "Matchers.h"
#include "ScopeTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include "cvlsys/CorvalaException.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/host/MemoryCharging.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using corvala::memory::ChargeAllocation;
using corvala::memory::ChargeRelease;
using corvala::memory::MemoryTrackingMode;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::NameValueList;
using Metrics::NameValuePair;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Throws;

// ---- The private operations whose misuse is checked

void InitializeAgain(ActivityScope& scope);
void PretendToBeUntracked(ActivityScope& scope);

template <auto Initialize>
struct InitializeAccess {
    friend void InitializeAgain(ActivityScope& scope) { (scope.*Initialize)(); }
};

template <auto TrackResources>
struct TrackResourcesAccess {
    friend void PretendToBeUntracked(ActivityScope& scope) { scope.*TrackResources = false; }
};

// Names in an explicit instantiation are not checked for access.
template struct InitializeAccess<&ActivityScope::InitializeResourceTracking>;
template struct TrackResourcesAccess<&ActivityScope::m_trackResources>;

class ActivityScopeResourcesTest : public ScopeTest {
protected:
    static void TrackMemory(MemoryTrackingMode mode) {
        corvala::memory::SetMemoryTrackingMode(mode);
    }

    /// The pairs under this name that the only scope of that name sent; nothing if it sent none.
    std::optional<NameValueList> FiguresOf(const std::string& scopeName, const char16_t* listName) {
        uint64 id = 0;
        for (const MetricsEvent& event : m_events->Events()) {
            if (event.type == MetricsEventType::OpenScope && event.name == scopeName) {
                id = event.id;
            }
            if (event.type == MetricsEventType::NameValuePairs && event.id == id &&
                event.name == listName) {
                return event.pairs;
            }
        }
        return std::nullopt;
    }

    std::optional<NameValueList> MemoryOf(const std::string& scopeName) {
        return FiguresOf(scopeName, u"memoryAttrs");
    }

    std::optional<NameValueList> CpuTimesOf(const std::string& scopeName) {
        return FiguresOf(scopeName, u"cpuAttrs");
    }

    /// One figure of the processor time, in microseconds.
    int64 CpuOf(const std::string& scopeName, const char16_t* figure) {
        for (const auto& [name, value] : CpuTimesOf(scopeName).value_or(NameValueList())) {
            if (name == figure && value.type == Metrics::MetricsValue::MV_Int64) {
                return value.integer;
            }
        }
        ADD_FAILURE() << "no such figure was sent";
        return -1;
    }
};

// The figures of mode 1, and of mode 2, in the order in which they are sent.
NameValueList Allocations(int64 ai, int64 ani) {
    return {{u"ai", ai}, {u"ani", ani}};
}

NameValueList AllFigures(int64 di, int64 dni, int64 apeak, int64 ai, int64 ani) {
    return Joined({{u"di", di}, {u"dni", dni}, {u"apeak", apeak}}, Allocations(ai, ani));
}

// ---- What is sent

TEST_F(ActivityScopeResourcesTest, MemoryIsSentBeforeProcessorTimeAndBothBeforeTheClose) {
    for (const MemoryTrackingMode mode : {corvala::memory::MemoryTrackingOff,
                                          corvala::memory::MemoryTrackingAllocations,
                                          corvala::memory::MemoryTrackingAll}) {
        TrackMemory(mode);
        m_events->Clear();
        { const ActivityScope scope("work"); }

        NameValueList kindsAndNames;
        for (const MetricsEvent& event : m_events->Events()) {
            kindsAndNames.emplace_back(static_cast<uint32>(event.type), event.name);
        }
        EXPECT_EQ(
            kindsAndNames,
            (NameValueList{
                {5, "work"}, {7, u"tid"}, {9, u"memoryAttrs"}, {9, u"cpuAttrs"}, {6, "work"}}))
            << mode;
    }
}

TEST_F(ActivityScopeResourcesTest, WithoutTrackingZeroesAreSent) {
    {
        const ActivityScope scope("work");
        ChargeAllocation(100);
    }

    EXPECT_EQ(MemoryOf("work"), Allocations(0, 0));
    EXPECT_EQ(CpuTimesOf("work"), (NameValueList{{u"ki", 0}, {u"ui", 0}}));
}

TEST_F(ActivityScopeResourcesTest, TheFirstModeSendsAllocations) {
    TrackMemory(corvala::memory::MemoryTrackingAllocations);
    {
        const ActivityScope scope("work");
        ChargeAllocation(100);
        ChargeAllocation(20);
        ChargeRelease(100);
    }

    EXPECT_EQ(MemoryOf("work"), Allocations(120, 2));
}

TEST_F(ActivityScopeResourcesTest, TheSecondModeSendsReleasesAndThePeakToo) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope scope("work");
        ChargeAllocation(100);
        ChargeRelease(100);
        ChargeAllocation(70);
    }

    EXPECT_EQ(MemoryOf("work"), AllFigures(100, 1, 100, 170, 2));
}

TEST_F(ActivityScopeResourcesTest, AnyOtherModeSendsZeroes) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    for (const int mode : {3, -1, 0}) {
        const std::string name = "mode " + std::to_string(mode);
        {
            const ActivityScope scope(name.c_str());
            ChargeAllocation(100);
            TrackMemory(static_cast<MemoryTrackingMode>(mode));
        }
        TrackMemory(corvala::memory::MemoryTrackingAll);

        EXPECT_EQ(MemoryOf(name), Allocations(0, 0)) << mode;
    }
}

TEST_F(ActivityScopeResourcesTest, TheModeIsReadWhenTheScopeEnds) {
    {
        const ActivityScope scope("work");
        TrackMemory(corvala::memory::MemoryTrackingAll);
        ChargeAllocation(30);
    }
    EXPECT_EQ(MemoryOf("work"), AllFigures(0, 0, 30, 30, 1));

    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope scope("other");
        ChargeAllocation(30);
        TrackMemory(corvala::memory::MemoryTrackingAllocations);
    }
    EXPECT_EQ(MemoryOf("other"), Allocations(30, 1));
}

TEST_F(ActivityScopeResourcesTest, TheUnitTestOptionDoesNotChangeWhatScopesSend) {
    OptTarn::SetIsUnitTest(true);
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope scope("work");
        ChargeAllocation(30);
    }

    EXPECT_EQ(MemoryOf("work"), AllFigures(0, 0, 30, 30, 1));
}

TEST_F(ActivityScopeResourcesTest, AScopeThatUsesNothingSendsZeroesInEveryMode) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    { const ActivityScope scope("work"); }

    EXPECT_EQ(MemoryOf("work"), AllFigures(0, 0, 0, 0, 0));
}

TEST_F(ActivityScopeResourcesTest, LargeAmountsAreNotCut) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope scope("work");
        ChargeAllocation(std::size_t{5} << 32);
        ChargeRelease(std::size_t{5} << 32);
    }

    EXPECT_EQ(MemoryOf("work"), AllFigures(5LL << 32, 1, 5LL << 32, 5LL << 32, 1));
}

// ---- Nesting

TEST_F(ActivityScopeResourcesTest, WhatAnInnerScopeAllocatesCountsForTheOuterToo) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope outer("outer");
        ChargeAllocation(100);
        {
            const ActivityScope inner("inner");
            ChargeAllocation(50);
            ChargeRelease(50);
        }
        ChargeAllocation(30);
    }

    EXPECT_EQ(MemoryOf("inner"), AllFigures(50, 1, 50, 50, 1));
    EXPECT_EQ(MemoryOf("outer"), AllFigures(50, 1, 150, 180, 3));
}

TEST_F(ActivityScopeResourcesTest, FiguresReachEveryScopeAround) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope first("first");
        const ActivityScope second("second");
        const ActivityScope third("third");
        ChargeAllocation(8);
    }

    EXPECT_EQ(MemoryOf("third"), AllFigures(0, 0, 8, 8, 1));
    EXPECT_EQ(MemoryOf("second"), AllFigures(0, 0, 8, 8, 1));
    EXPECT_EQ(MemoryOf("first"), AllFigures(0, 0, 8, 8, 1));
}

TEST_F(ActivityScopeResourcesTest, AnUntrackedScopeInBetweenPassesFiguresOn) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope outer("outer");
        const ActivityScope untracked("untracked", TraceType::Untracked);
        const ActivityScope inner("inner");
        ChargeAllocation(8);
    }

    EXPECT_EQ(MemoryOf("outer"), AllFigures(0, 0, 8, 8, 1));
    EXPECT_EQ(MemoryOf("untracked"), std::nullopt);
}

TEST_F(ActivityScopeResourcesTest, WhatAnotherThreadAllocatesDoesNotCount) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope here("here");
        OnAnotherThread([] {
            const ActivityScope there("there");
            ChargeAllocation(8);
        });
        ChargeAllocation(3);
    }

    EXPECT_EQ(MemoryOf("here"), AllFigures(0, 0, 3, 3, 1));
    EXPECT_EQ(MemoryOf("there"), AllFigures(0, 0, 8, 8, 1));
}

TEST_F(ActivityScopeResourcesTest, ReleasingAnOlderBlockCountsAsReleaseAndNeverAsPeak) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope scope("work");
        ChargeRelease(500);
        ChargeAllocation(100);
    }

    EXPECT_EQ(MemoryOf("work"), AllFigures(500, 1, 0, 100, 1));
}

// ---- Which scopes are measured

TEST_F(ActivityScopeResourcesTest, AnUntrackedScopeMakesNoFrameAndSendsNoFigures) {
    {
        const ActivityScope scope("work", TraceType::Untracked);
        EXPECT_EQ(CurrentMemoryFrame(), nullptr);
    }

    EXPECT_THAT(m_events->Contents(), ElementsAre(Opens("work"), ThreadIdEvent(), Closes("work")));
}

TEST_F(ActivityScopeResourcesTest, ATrackedScopeHasAFrameOfItsThread) {
    const ActivityScope outer("outer");
    const auto* const outerFrame = CurrentMemoryFrame();
    const ActivityScope inner("inner");
    const auto* const innerFrame = CurrentMemoryFrame();

    ASSERT_NE(outerFrame, nullptr);
    ASSERT_NE(innerFrame, nullptr);
    EXPECT_EQ(outerFrame->parentThreadMemoryCounters, nullptr);
    EXPECT_EQ(innerFrame->parentThreadMemoryCounters, outerFrame);
    EXPECT_NE(outerFrame->counter, nullptr);
    EXPECT_NE(outerFrame->counter, innerFrame->counter);
    EXPECT_EQ(innerFrame->threadId, corvala::memory::MemoryScope::GetCurrentThreadId());
    EXPECT_GT(innerFrame->orderingId, outerFrame->orderingId);
}

TEST_F(ActivityScopeResourcesTest, EveryTypeButUntrackedIsMeasured) {
    for (const TraceType type : {TraceType::Normal, TraceType::Transparent, TraceType{7}}) {
        m_events->Clear();
        { const ActivityScope scope("work", type); }
        EXPECT_EQ(MemoryOf("work"), Allocations(0, 0)) << static_cast<int32>(type);
    }
}

TEST_F(ActivityScopeResourcesTest, TheTypeDecidesAndNotTheBitOfUntrackedScopes) {
    {
        const ActivityScope scope("work", Traits(Metrics::flagUntracked));
        EXPECT_NE(CurrentMemoryFrame(), nullptr);
    }

    EXPECT_EQ(m_events->First(MetricsEventType::OpenScope).flags, 0x0060000000000000U);
    EXPECT_EQ(MemoryOf("work"), Allocations(0, 0));
}

TEST_F(ActivityScopeResourcesTest, AScopeThatIsOffIsNotMeasured) {
    const ActivityScope scope("work", TraceRank{1});

    EXPECT_EQ(CurrentMemoryFrame(), nullptr);
}

TEST_F(ActivityScopeResourcesTest, TheFrameIsGoneAfterTheScope) {
    { const ActivityScope scope("work"); }

    EXPECT_EQ(CurrentMemoryFrame(), nullptr);
}

TEST_F(ActivityScopeResourcesTest, WhatTheHostAllocatesWithOperatorNewCounts) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    {
        const ActivityScope scope("work");
        const ChargedAllocations charged;
        ::operator delete(::operator new(100));
    }

    const NameValueList memory = MemoryOf("work").value_or(NameValueList());
    EXPECT_THAT(memory,
                AllOf(Contains(NameValuePair(u"dni", 1)), Contains(NameValuePair(u"ani", 1))));
}

TEST_F(ActivityScopeResourcesTest, WhatListenersAllocateIsNotChargedToTheScopeTheyHearOf) {
    TrackMemory(corvala::memory::MemoryTrackingAll);
    constexpr std::size_t bytes = 1 << 20;
    m_events->CallOnEach([](const MetricsEvent&) { ::operator delete(::operator new(bytes)); });
    {
        ActivityScope scope("work");
        const ChargedAllocations charged;
        scope.Add({{"a", 1}});
    }
    m_events->CallOnEach({});

    const MetricsEvent memory = m_events->First(MetricsEventType::NameValuePairs);
    EXPECT_EQ(memory.name, "multiNVPs");
    for (const MetricsEvent& event : m_events->Events()) {
        if (event.name == u"memoryAttrs") {
            ASSERT_EQ(event.pairs[3].first, u"ai");
            EXPECT_LT(event.pairs[3].second.integer, int64{bytes});
        }
    }
}

// ---- Processor time

// Microseconds of this thread.
struct ThreadTimes {
    int64 kernel;
    int64 user;
};

ThreadTimes Now() {
    rusage usage = {};
    EXPECT_EQ(::getrusage(RUSAGE_THREAD, &usage), 0);
    return {int64{usage.ru_stime.tv_sec} * 1000000 + usage.ru_stime.tv_usec,
            int64{usage.ru_utime.tv_sec} * 1000000 + usage.ru_utime.tv_usec};
}

void Burn(int64 microseconds) {
    const int64 start = Now().user;
    volatile uint64 sum = 0;
    while (Now().user - start < microseconds) {
        for (uint64 i = 0; i < 10000; ++i) {
            sum = sum + i;
        }
    }
}

TEST_F(ActivityScopeResourcesTest, TheProcessorTimeOfTheThreadIsSent) {
    corvala::cputime::SetCpuTrackingEnabled(true);
    const ThreadTimes before = Now();
    ThreadTimes beginsWithin = {};
    ThreadTimes endsWithin = {};
    {
        const ActivityScope scope("work");
        beginsWithin = Now();
        Burn(20000);
        endsWithin = Now();
    }
    const ThreadTimes after = Now();

    EXPECT_GE(CpuOf("work", u"ui"), endsWithin.user - beginsWithin.user);
    EXPECT_LE(CpuOf("work", u"ui"), after.user - before.user);
    EXPECT_GE(CpuOf("work", u"ki"), endsWithin.kernel - beginsWithin.kernel);
    EXPECT_LE(CpuOf("work", u"ki"), after.kernel - before.kernel);
    EXPECT_GE(CpuOf("work", u"ui"), 20000);
}

// Reading a clock in the work would bring the kernel's totals up to date and hide that the scope
// does not.
TEST_F(ActivityScopeResourcesTest, NoScopeThatComputesForAMillisecondIsSaidToHaveTakenNoTime) {
    constexpr int64 rounds = 2'000'000;
    constexpr int scopes = 20;
    corvala::cputime::SetCpuTrackingEnabled(true);

    for (int i = 0; i < scopes; ++i) {
        const std::string name = "work " + std::to_string(i);
        {
            const ActivityScope scope(name.c_str());
            volatile uint64 sum = 0;
            for (uint64 j = 0; j < rounds; ++j) {
                sum = sum + j;
            }
        }

        EXPECT_GT(CpuOf(name, u"ui") + CpuOf(name, u"ki"), 0) << name;
    }
}

TEST_F(ActivityScopeResourcesTest, TheOuterScopeIncludesTheProcessorTimeOfTheInner) {
    corvala::cputime::SetCpuTrackingEnabled(true);
    {
        const ActivityScope outer("outer");
        const ActivityScope inner("inner");
        Burn(10000);
    }

    EXPECT_GE(CpuOf("inner", u"ui"), 10000);
    EXPECT_GE(CpuOf("outer", u"ui"), CpuOf("inner", u"ui"));
    EXPECT_GE(CpuOf("outer", u"ki"), CpuOf("inner", u"ki"));
}

TEST_F(ActivityScopeResourcesTest, WithoutTrackingProcessorTimesAreZero) {
    {
        const ActivityScope scope("work");
        Burn(5000);
    }

    EXPECT_EQ(CpuTimesOf("work"), (NameValueList{{u"ki", 0}, {u"ui", 0}}));
}

TEST_F(ActivityScopeResourcesTest, NamesOfFiguresAreWideAndValuesAreIntegers) {
    { const ActivityScope scope("work"); }

    int figures = 0;
    for (const MetricsEvent& event : m_events->Events()) {
        if (event.type == MetricsEventType::NameValuePairs) {
            for (const auto& [name, value] : event.pairs) {
                EXPECT_EQ(name.type, Metrics::MetricsValue::MV_Utf16String);
                EXPECT_EQ(value.type, Metrics::MetricsValue::MV_Int64);
                ++figures;
            }
        }
    }
    EXPECT_EQ(figures, 4) << "bytes and number of allocations, both processor times";
}

// ---- Misuse

TEST_F(ActivityScopeResourcesTest, BeginningToMeasureTwiceRaisesALogicError) {
    ActivityScope scope("work");

    EXPECT_THAT([&scope] { InitializeAgain(scope); },
                Throws<LogicException>(
                    IsLogicError("src/cpp/main/ActivityScope", 484, "!m_memoryScope", 0x592EEA0E)));
}

TEST_F(ActivityScopeResourcesTest, BeginningToMeasureAScopeThatIsOffOrUntrackedDoesNothing) {
    ActivityScope off("work", TraceRank{1});
    ActivityScope untracked("work", TraceType::Untracked);

    InitializeAgain(off);
    InitializeAgain(untracked);

    EXPECT_EQ(CurrentMemoryFrame(), nullptr);
}

using ActivityScopeResourcesDeathTest = ActivityScopeResourcesTest;

TEST_F(ActivityScopeResourcesDeathTest, AMeasuredScopeThatEndsOnAnotherThreadEndsTheProcess) {
    EXPECT_DEATH(
        {
            auto scope = std::make_unique<ActivityScope>("work");
            OnAnotherThread([&scope] { scope.reset(); });
        },
        "MemoryScope can only be used on single thread.*LogicException_LogicAssert_0x4A90166D");
}

TEST_F(ActivityScopeResourcesDeathTest, MeasuredScopesThatEndInTheWrongOrderEndTheProcess) {
    EXPECT_DEATH(
        {
            auto outer = std::make_unique<ActivityScope>("outer");
            const ActivityScope inner("inner");
            outer.reset();
        },
        "counters == &this->m_threadMemoryCounters.*LogicException_LogicAssert_0xB05D80FE");
}

TEST_F(ActivityScopeResourcesDeathTest, AMeasurementThatAnUntrackedScopeHoldsEndsTheProcess) {
    EXPECT_DEATH(
        {
            ActivityScope scope("work");
            PretendToBeUntracked(scope);
        },
        "m_trackResources \\|\\| \\(!m_memoryScope && "
        "!m_cpuScope\\).*src/cpp/main/ActivityScope:249"
        ".*LogicException_LogicAssert_0xDDDE9A38");
}

TEST_F(ActivityScopeResourcesTest, AnUntrackedScopeMayEndOnAnotherThread) {
    auto scope = std::make_unique<ActivityScope>("work", TraceType::Untracked);

    OnAnotherThread([&scope] { scope.reset(); });

    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 1U);
}

// ---- The frame by itself

testing::Matcher<const LogicException&> IsFrameError(int line,
                                                     const std::string& text,
                                                     uint32 code) {
    return testing::AllOf(testing::Property("line", &LogicException::GetLine, line),
                          testing::Property("text", &LogicException::GetText, text),
                          testing::Property("code", &LogicException::GetErrorCode, code));
}

TEST_F(ActivityScopeResourcesTest, TheFieldsOfAFrameAndOfATimeStandInTheirOrder) {
    using Frame = corvala::memory::ThreadMemoryCounters;
    using Time = corvala::cputime::ThreadTimeValue;

    EXPECT_EQ(offsetof(Frame, parentThreadMemoryCounters), 0U);
    EXPECT_EQ(offsetof(Frame, counter), 8U);
    EXPECT_EQ(offsetof(Frame, inUse), 48U) << "the fifth of the figures";
    EXPECT_EQ(offsetof(Frame, orderingId), 56U);
    EXPECT_EQ(offsetof(Frame, threadId), 64U);
    EXPECT_EQ(offsetof(Time, kernel), 0U);
    EXPECT_EQ(offsetof(Time, user), 4U);
}

TEST_F(ActivityScopeResourcesTest, AFrameWithoutACounterNeedsOneAround) {
    try {
        const corvala::memory::MemoryScope frame(nullptr);
        ADD_FAILURE() << "nothing was raised";
    } catch (const LogicException& error) {
        EXPECT_EQ(error.GetLine(), 149);
        EXPECT_EQ(error.GetText(),
                  "counter != nullptr || "
                  "m_threadMemoryCounters.parentThreadMemoryCounters != nullptr");
    }
    EXPECT_EQ(CurrentMemoryFrame(), nullptr);

    const ActivityScope scope("work");
    EXPECT_NO_THROW({ const corvala::memory::MemoryScope frame(nullptr); });
}

TEST_F(ActivityScopeResourcesTest, AFrameThatIsReleasedOnAnotherThreadRaisesALogicError) {
    corvala::memory::MemoryCounter counter;
    auto* const frame = new corvala::memory::MemoryScope(&counter);

    OnAnotherThread([frame] {
        EXPECT_THAT([frame] { delete frame; },
                    Throws<LogicException>(IsFrameError(
                        162, "MemoryScope can only be used on single thread", 0x4A90166D)));
    });

    // The thread that pushed the frame still has it, though it is gone.
    corvala::memory::SwapPopMemoryCounters(nullptr);
    EXPECT_EQ(CurrentMemoryFrame(), nullptr);
}

TEST_F(ActivityScopeResourcesTest, AFrameThatIsReleasedOutOfOrderRaisesALogicError) {
    corvala::memory::MemoryCounter counter;
    auto* const outer = new corvala::memory::MemoryScope(&counter);
    auto* const inner = new corvala::memory::MemoryScope(&counter);

    EXPECT_THAT([outer] { delete outer; },
                Throws<LogicException>(
                    IsFrameError(185, "counters == &this->m_threadMemoryCounters", 0xB05D80FE)));

    // The inner frame was taken off instead; it still points at the outer, so it only goes back to
    // the allocator.
    EXPECT_EQ(CurrentMemoryFrame(), nullptr);
    ::operator delete(inner);
}

}  // namespace
}  // namespace tarn::test
