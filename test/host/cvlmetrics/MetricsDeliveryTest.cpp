#include "MetricsTestSupport.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::RecordingListener;
using MetricsTest::Subscription;
using MetricsTest::Work;
using tarn::test::Closes;
using tarn::test::ClosesContext;
using tarn::test::ContentOf;
using tarn::test::CreatesContext;
using tarn::test::EventContent;
using tarn::test::IsOfType;
using tarn::test::IsOpeningOf;
using tarn::test::LogCapture;
using tarn::test::Opens;
using tarn::test::OpensContext;
using tarn::test::SendsValue;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StrEq;

/// A listener that counts what runs inside of it, and how deep.
class DepthListener : public Metrics::IMetricsListener {
public:
    void OnMetricsEvent(const MetricsEvent& event) override {
        ++m_depth;
        deepest = std::max(deepest, m_depth);
        if (event.type == MetricsEventType::OpenScope && scopesToOpen > 0) {
            --scopesToOpen;
            Work("echo");
        }
        --m_depth;
    }

    int scopesToOpen = 0;
    int deepest = 0;

private:
    int m_depth = 0;
};

class MetricsDeliveryTest : public MetricsTest::MetricsBusTest {
protected:
    // Runs `action` during the delivery of the opening of the scope "outer".
    template <class Action>
    void WhileOuterOpens(Action action) {
        m_listener->CallOnEach([action](const MetricsEvent& event) {
            if (IsOpeningOf(event, "outer")) {
                action();
            }
        });
    }

    const CurrentContext m_context;
    const Subscription m_subscription{*m_listener, flagTracing, false};
};

TEST_F(MetricsDeliveryTest, IsDoneWhenTheEmittingCallReturns) {
    Scope scope(flagTracing);

    scope.OpenImpl("query");
    EXPECT_EQ(m_listener->Count(), 1U);

    scope.EmitImpl(MetricsEventType::NameValue, "rows", 3);
    EXPECT_EQ(m_listener->Count(), 2U);
}

TEST_F(MetricsDeliveryTest, ReachesAllConsumersInTheOrderOfTheirSubscription) {
    std::vector<std::pair<const char*, EventContent>> calls;
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription subscription(*second, flagTracing, false);
    m_listener->CallOnEach(
        [&](const MetricsEvent& event) { calls.emplace_back("first", ContentOf(event)); });
    second->CallOnEach(
        [&](const MetricsEvent& event) { calls.emplace_back("second", ContentOf(event)); });

    Work("query");

    EXPECT_THAT(calls,
                ElementsAre(Pair(StrEq("first"), Opens("query")),
                            Pair(StrEq("second"), Opens("query")),
                            Pair(StrEq("first"), Closes("query")),
                            Pair(StrEq("second"), Closes("query"))));
}

TEST_F(MetricsDeliveryTest, WhatADeliveryEmitsGoesOutAfterTheCurrentEvent) {
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription subscription(*second, flagTracing, false);
    WhileOuterOpens([] { Work("inner"); });

    Work("outer");

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(Opens("outer"), Opens("inner"), Closes("inner"), Closes("outer")));
    EXPECT_EQ(second->Contents(), m_listener->Contents());
}

TEST_F(MetricsDeliveryTest, WhatADeliveryEmitsKeepsItsOrderOverSeveralRounds) {
    m_listener->CallOnEach([](const MetricsEvent& event) {
        if (IsOpeningOf(event, "outer")) {
            Work("a");
            Work("b");
        } else if (IsOpeningOf(event, "a")) {
            Work("c");
        }
    });

    Work("outer");

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(Opens("outer"),
                            Opens("a"),
                            Closes("a"),
                            Opens("b"),
                            Closes("b"),
                            Opens("c"),
                            Closes("c"),
                            Closes("outer")));
}

TEST_F(MetricsDeliveryTest, WhatADeliveryEmitsGoesOutBeforeTheRestOfAScopesEnd) {
    m_listener->CallOnEach([](const MetricsEvent& event) {
        if (ContentOf(event) == SendsValue("tid", 7)) {
            Work("inner");
            Scope finished(flagTracing);
            finished.OpenImpl("finished");
            finished.Finish({{MetricsEventType::NameValue, "rows", 3}});
        }
    });
    Scope scope(flagTracing);
    scope.OpenImpl("outer");

    scope.Finish({{MetricsEventType::NameValue, "tid", 7}});

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(Opens("outer"),
                            SendsValue("tid", 7),
                            Opens("inner"),
                            Closes("inner"),
                            Opens("finished"),
                            SendsValue("rows", 3),
                            Closes("finished"),
                            Closes("outer")));
}

TEST_F(MetricsDeliveryTest, LetsGoOfTheTextsThatTheHostHoldsToo) {
    const TString name(u"rows");
    const TString value(u"many");
    const Metrics::MetricsValue given(value);
    const long nameOwners = name.SharedCharacters().use_count();
    const long valueOwners = value.SharedCharacters().use_count();
    std::vector<bool> isAsExpected;  // what is heard must not be kept here
    m_listener->CallOnEach([&isAsExpected](const MetricsEvent& event) {
        isAsExpected.push_back(ContentOf(event) ==
                               (event.type == MetricsEventType::OpenScope
                                    ? Opens("query", {{u"rows", u"many"}, {"same", u"many"}})
                                    : SendsValue("rows", 3)));
    });

    Scope scope(flagTracing);
    scope.OpenImpl("query", {{name, value}, {"same", given}});
    m_listener->Clear();

    EXPECT_EQ(name.SharedCharacters().use_count(), nameOwners);
    EXPECT_EQ(value.SharedCharacters().use_count(), valueOwners);
    scope.EmitImpl(MetricsEventType::NameValue, "rows", 3);
    EXPECT_EQ(value, TString(u"many"));
    EXPECT_THAT(isAsExpected, ElementsAre(true, true));
}

TEST_F(MetricsDeliveryTest, WhatADeliveryEmitsIsStampedWhenItIsEmitted) {
    static std::atomic<int64> s_now{0};
    s_now = 0;
    Metrics::SetClock([]() noexcept { return Metrics::ClockReading{.time = ++s_now}; });
    WhileOuterOpens([] {
        Work("inner");
        s_now = 100;
    });

    Work("outer");

    Metrics::SetClock(nullptr);
    std::vector<int64> times;
    for (const MetricsEvent& event : m_listener->Events()) {
        times.push_back(event.time);
    }
    EXPECT_THAT(times, ElementsAre(1, 2, 3, 101));
}

TEST_F(MetricsDeliveryTest, NeverRecurses) {
    const RefCntPtr<DepthListener> listener = new DepthListener;
    const Subscription subscription(*listener, flagTracing, false);
    listener->scopesToOpen = 100;

    Work("outer");

    EXPECT_EQ(listener->scopesToOpen, 0);
    EXPECT_EQ(listener->deepest, 1);
}

TEST_F(MetricsDeliveryTest, ADeliveryMayOpenAContextOfItsOwn) {
    WhileOuterOpens([] {
        const CurrentContext own;
        Work("inner");
    });

    Work("outer");

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(Opens("outer"),
                            CreatesContext(),
                            OpensContext(),
                            IsOfType(MetricsEventType::Attribute),
                            Opens("inner"),
                            Closes("inner"),
                            ClosesContext(),
                            Closes("outer")));
}

TEST_F(MetricsDeliveryTest, AListenerThatRemovesItselfFinishesItsCallAndIsNotCalledAgain) {
    WhileOuterOpens([this] {
        Work("inner");
        m_bus.RemoveConsumer(m_listener);
        EXPECT_FALSE(Metrics::TestBits(flagTracing));
    });

    Work("outer");

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("outer")));
}

TEST_F(MetricsDeliveryTest, AListenerThatDropsItsLastReferenceLivesUntilItsCallEnds) {
    struct LastWords : RecordingListener {
        explicit LastWords(bool& flag) : isDestroyed(flag) {}

        ~LastWords() override { isDestroyed = true; }

        bool& isDestroyed;
    };

    bool isDestroyed = false;
    bool wasAliveAtTheEndOfItsCall = false;
    RefCntPtr<RecordingListener> owner = new LastWords(isDestroyed);
    owner->CallOnEach([&](const MetricsEvent&) {
        m_bus.RemoveConsumer(owner);
        owner = nullptr;
        wasAliveAtTheEndOfItsCall = !isDestroyed;
    });
    m_bus.AddConsumer(owner, flagTracing, false);

    Work("outer");

    EXPECT_TRUE(wasAliveAtTheEndOfItsCall);
    EXPECT_TRUE(isDestroyed);
}

TEST_F(MetricsDeliveryTest, TheDestructorOfARemovedListenerMayEmit) {
    struct Emitting : RecordingListener {
        ~Emitting() override { Work("farewell"); }
    };

    RefCntPtr<RecordingListener> leaving = new Emitting;
    leaving->CallOnEach([&](const MetricsEvent&) {
        m_bus.RemoveConsumer(leaving);
        leaving = nullptr;
    });
    m_bus.AddConsumer(leaving, flagTracing, false);

    Work("outer");

    EXPECT_THAT(
        m_listener->Contents(),
        ElementsAre(Opens("outer"), Opens("farewell"), Closes("farewell"), Closes("outer")));
}

TEST_F(MetricsDeliveryTest, AListenerMayRemoveOneThatIsStillToBeCalled) {
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const RefCntPtr<RecordingListener> third = new RecordingListener;
    const Subscription two(*second, flagTracing, false);
    const Subscription three(*third, flagTracing, false);
    WhileOuterOpens([&] { m_bus.RemoveConsumer(second); });

    Work("outer");

    EXPECT_THAT(second->Events(), IsEmpty());
    EXPECT_THAT(third->Contents(), ElementsAre(Opens("outer"), Closes("outer")));
}

TEST_F(MetricsDeliveryTest, AListenerThatIsAddedDuringADeliveryStartsWithTheNextEvent) {
    const RefCntPtr<RecordingListener> newcomer = new RecordingListener;
    WhileOuterOpens([&] {
        m_bus.AddConsumer(newcomer, flagTracing, false);
        Work("inner");
    });

    Work("outer");

    EXPECT_THAT(newcomer->Contents(),
                ElementsAre(Opens("inner"), Closes("inner"), Closes("outer")));
    m_bus.RemoveConsumer(newcomer);
}

TEST_F(MetricsDeliveryTest, AListenerMayRemoveItselfAndComeBackInOneCall) {
    WhileOuterOpens([this] {
        m_bus.RemoveConsumer(m_listener);
        m_bus.AddConsumer(m_listener, flagTracing, false);
    });

    Work("outer");

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("outer"), Closes("outer")));
    EXPECT_EQ(m_bus.GetConsumerCount(), 1U);
}

TEST_F(MetricsDeliveryTest, AnExceptionOutOfAConsumerReachesNobodyElse) {
    const LogCapture log;
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription subscription(*second, flagTracing, false);
    WhileOuterOpens([] { throw std::runtime_error("no more paper"); });

    EXPECT_NO_THROW(Work("outer"));

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("outer"), Closes("outer")));
    EXPECT_THAT(second->Contents(), ElementsAre(Opens("outer"), Closes("outer")));
}

TEST_F(MetricsDeliveryTest, AnExceptionOutOfAConsumerIsCountedAndLoggedAsAWarning) {
    const LogCapture log;
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;
    WhileOuterOpens([] { throw std::runtime_error("no more paper"); });

    Work("outer");

    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions, before + 1);
    EXPECT_THAT(
        log->Messages(),
        ElementsAre(Pair(TLog::Warn, "A listener of the metrics bus threw: no more paper")));
}

TEST_F(MetricsDeliveryTest, WhateverAConsumerThrowsIsCaught) {
    const LogCapture log;
    WhileOuterOpens([] { throw 42; });

    EXPECT_NO_THROW(Work("outer"));

    EXPECT_THAT(log->Messages(), ElementsAre(Pair(TLog::Warn, HasSubstr("no std::exception"))));
}

TEST_F(MetricsDeliveryTest, AnExceptionDuringUnwindingOfTheHostIsHarmless) {
    const LogCapture log;
    m_listener->CallOnEach([](const MetricsEvent& event) {
        if (event.type == MetricsEventType::CloseScope) {
            throw std::runtime_error("while unwinding");
        }
    });

    EXPECT_THROW(
        {
            Scope scope(flagTracing);
            scope.OpenImpl("query");
            throw std::logic_error("the host's own");
        },
        std::logic_error);

    EXPECT_EQ(log->Messages().size(), 1U);
}

TEST_F(MetricsDeliveryTest, WhatAThrowingConsumerEmittedBeforeStillGoesOut) {
    const LogCapture log;
    WhileOuterOpens([] {
        Work("inner");
        throw std::runtime_error("afterwards");
    });

    Work("outer");

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(Opens("outer"), Opens("inner"), Closes("inner"), Closes("outer")));
}

TEST_F(MetricsDeliveryTest, LeavesTheHostsErrorNumberAlone) {
    m_listener->CallOnEach([](const MetricsEvent&) { errno = EIO; });
    errno = EAGAIN;

    Work("query");

    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(MetricsDeliveryTest, CountsTheEventsThatReachedSomebody) {
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription subscription(*second, 0x1, false);
    const uint64 before = Metrics::GetBusStatistics().deliveredEvents;

    Work("query");
    Scope unheard(0x2);
    unheard.OpenImpl("unheard");

    EXPECT_EQ(Metrics::GetBusStatistics().deliveredEvents, before + 2);
}

TEST_F(MetricsDeliveryTest, WhatDeliveringAllocatesIsNotChargedToTheHost) {
    using corvala::memory::ThreadMemoryCounters;
    const auto mode = corvala::memory::GetMemoryTrackingMode();
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
    ThreadMemoryCounters frame;
    ThreadMemoryCounters* const outer = corvala::memory::SwapPushMemoryCounters(&frame);
    m_listener->CallOnEach([](const MetricsEvent&) { TFree(TMalloc(1000)); });

    Work("query");
    const uint64 chargedWhileDelivering = frame.allocatedCount + frame.deallocatedCount;
    TFree(TMalloc(1000));

    corvala::memory::SwapPopMemoryCounters(outer);
    corvala::memory::SetMemoryTrackingMode(mode);
    EXPECT_EQ(m_listener->Count(), 2U);
    EXPECT_EQ(chargedWhileDelivering, 0U);
    EXPECT_EQ(frame.allocatedCount, 1U) << "the host's own allocation goes uncharged";
    EXPECT_EQ(frame.deallocatedCount, 1U);
}

TEST(MetricsClockTest, TheDefaultClockIsTheSystemsMonotonicAndWallClock) {
    const auto steadyBefore = std::chrono::steady_clock::now().time_since_epoch();
    const auto wallBefore = std::chrono::system_clock::now().time_since_epoch();

    const Metrics::ClockReading reading = Metrics::ReadDefaultClock();

    const auto steadyAfter = std::chrono::steady_clock::now().time_since_epoch();
    const auto wallAfter = std::chrono::system_clock::now().time_since_epoch();
    const std::chrono::nanoseconds steady(reading.time);
    const auto wall =
        std::chrono::seconds(reading.wallSeconds) + std::chrono::microseconds(reading.wallMicros);
    EXPECT_LT(reading.wallMicros, 1'000'000U);
    EXPECT_LE(steadyBefore, steady);
    EXPECT_LE(steady, steadyAfter);
    EXPECT_LE(wallBefore - std::chrono::microseconds(1), wall);
    EXPECT_LE(wall, wallAfter);
}

TEST_F(MetricsDeliveryTest, EventsCarryTheTimeOfTheClockInPlace) {
    const Metrics::ClockFunction before = Metrics::SetClock([]() noexcept {
        return Metrics::ClockReading{.time = 5, .wallSeconds = 6, .wallMicros = 7};
    });

    Work("query");

    const Metrics::ClockReading replaced = Metrics::ReadClock();
    Metrics::SetClock(before);
    EXPECT_EQ(replaced.time, 5);
    EXPECT_EQ(m_listener->Events()[0].time, 5);
    EXPECT_EQ(m_listener->Events()[0].wallSeconds, 6U);
    EXPECT_EQ(m_listener->Events()[0].wallMicros, 7U);
    EXPECT_NE(Metrics::ReadClock().time, 5);
}

// A scope that ends says its figures and its end at one moment: what the consumers take in between
// is not the scope's time.
TEST_F(MetricsDeliveryTest, AllThatAScopeSaysAtItsEndHasOneTime) {
    const Metrics::ClockFunction before = Metrics::SetClock([]() noexcept {
        static std::atomic<int64> reading{0};
        return Metrics::ClockReading{.time = ++reading};
    });
    Scope scope(flagTracing);
    scope.OpenImpl("query");
    scope.SetPostScopeCloseEvents({Metrics::MetricsCloseScopeActions::PopRequestContextAttributes});

    scope.Finish({{MetricsEventType::NameValue, "tid", 7}});
    Metrics::SetClock(before);

    std::vector<int64> sinceOpening;
    for (const MetricsEvent& event : m_listener->Events()) {
        sinceOpening.push_back(event.time - m_listener->Events().front().time);
    }
    EXPECT_THAT(sinceOpening, ElementsAre(0, 1, 1, 1));
}

}  // namespace
