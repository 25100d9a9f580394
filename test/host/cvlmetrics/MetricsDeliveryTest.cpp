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
using MetricsTest::Describe;
using MetricsTest::RecordingListener;
using MetricsTest::Subscription;
using MetricsTest::Work;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Everything that is logged while it exists, as "3: text".
class CapturedMessages {
public:
    CapturedMessages() : m_before(TLog::ReplaceBackEnd(m_backEnd)) {}

    ~CapturedMessages() { TLog::ReplaceBackEnd(m_before); }

    CapturedMessages(const CapturedMessages&) = delete;
    CapturedMessages& operator=(const CapturedMessages&) = delete;

    const std::vector<std::string>& Get() const { return m_backEnd->messages; }

private:
    struct BackEnd : TLog::LogBackEnd {
        void Write(TLog::Severity, const TLog::Event&) override {}

        void WriteMessage(TLog::Severity severity, const TString& text) override {
            messages.push_back(std::to_string(severity) + ": " + text.ToUtf8());
        }

        std::vector<std::string> messages;
    };

    std::shared_ptr<BackEnd> m_backEnd = std::make_shared<BackEnd>();
    std::shared_ptr<TLog::LogBackEnd> m_before;
};

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
        m_listener->reaction = [action](const MetricsEvent& event) {
            if (Describe(event) == "open outer") {
                action();
            }
        };
    }

    const CurrentContext m_context;
    const Subscription m_subscription{*m_listener, flagTracing, false};
};

TEST_F(MetricsDeliveryTest, IsDoneWhenTheEmittingCallReturns) {
    Scope scope(flagTracing);

    scope.OpenImpl("query");
    EXPECT_EQ(m_listener->events.size(), 1U);

    scope.EmitImpl(MetricsEventType::NameValue, "rows", 3);
    EXPECT_EQ(m_listener->events.size(), 2U);
}

TEST_F(MetricsDeliveryTest, ReachesAllConsumersInTheOrderOfTheirSubscription) {
    std::vector<std::string> calls;
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription subscription(*second, flagTracing, false);
    m_listener->reaction = [&](const MetricsEvent& event) {
        calls.push_back("first: " + Describe(event));
    };
    second->reaction = [&](const MetricsEvent& event) {
        calls.push_back("second: " + Describe(event));
    };

    Work("query");

    EXPECT_THAT(calls,
                ElementsAre("first: open query",
                            "second: open query",
                            "first: close query",
                            "second: close query"));
}

TEST_F(MetricsDeliveryTest, WhatADeliveryEmitsGoesOutAfterTheCurrentEvent) {
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription subscription(*second, flagTracing, false);
    WhileOuterOpens([] { Work("inner"); });

    Work("outer");

    EXPECT_THAT(m_listener->Descriptions(),
                ElementsAre("open outer", "open inner", "close inner", "close outer"));
    EXPECT_EQ(second->Descriptions(), m_listener->Descriptions());
}

TEST_F(MetricsDeliveryTest, WhatADeliveryEmitsKeepsItsOrderOverSeveralRounds) {
    m_listener->reaction = [](const MetricsEvent& event) {
        const std::string description = Describe(event);
        if (description == "open outer") {
            Work("a");
            Work("b");
        } else if (description == "open a") {
            Work("c");
        }
    };

    Work("outer");

    EXPECT_THAT(m_listener->Descriptions(),
                ElementsAre("open outer",
                            "open a",
                            "close a",
                            "open b",
                            "close b",
                            "open c",
                            "close c",
                            "close outer"));
}

TEST_F(MetricsDeliveryTest, WhatADeliveryEmitsGoesOutBeforeTheRestOfAScopesEnd) {
    m_listener->reaction = [](const MetricsEvent& event) {
        if (Describe(event) == "value tid=7") {
            Work("inner");
            Scope finished(flagTracing);
            finished.OpenImpl("finished");
            finished.Finish({{MetricsEventType::NameValue, "rows", 3}});
        }
    };
    Scope scope(flagTracing);
    scope.OpenImpl("outer");

    scope.Finish({{MetricsEventType::NameValue, "tid", 7}});

    EXPECT_THAT(m_listener->Descriptions(),
                ElementsAre("open outer",
                            "value tid=7",
                            "open inner",
                            "close inner",
                            "open finished",
                            "value rows=3",
                            "close finished",
                            "close outer"));
}

TEST_F(MetricsDeliveryTest, LetsGoOfTheTextsThatTheHostHoldsToo) {
    const TString name(u"rows");
    const TString value(u"many");
    const Metrics::MetricsValue given(value);
    const long nameOwners = name.SharedCharacters().use_count();
    const long valueOwners = value.SharedCharacters().use_count();
    std::vector<std::string> heard;
    m_listener->reaction = [&heard](const MetricsEvent& event) {
        heard.push_back(Describe(event));
    };

    Scope scope(flagTracing);
    scope.OpenImpl("query", {{name, value}, {"same", given}});
    m_listener->events.clear();

    EXPECT_EQ(name.SharedCharacters().use_count(), nameOwners);
    EXPECT_EQ(value.SharedCharacters().use_count(), valueOwners);
    scope.EmitImpl(MetricsEventType::NameValue, "rows", 3);
    EXPECT_EQ(value, TString(u"many"));
    EXPECT_THAT(heard, ElementsAre("open query(rows=many, same=many)", "value rows=3"));
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
    for (const MetricsEvent& event : m_listener->events) {
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

    EXPECT_THAT(m_listener->Descriptions(),
                ElementsAre("open outer",
                            "create context",
                            "open context",
                            HasSubstr("attribute tid="),
                            "open inner",
                            "close inner",
                            "close context",
                            "close outer"));
}

TEST_F(MetricsDeliveryTest, AListenerThatRemovesItselfFinishesItsCallAndIsNotCalledAgain) {
    WhileOuterOpens([this] {
        Work("inner");
        m_bus.RemoveConsumer(m_listener);
        EXPECT_FALSE(Metrics::TestBits(flagTracing));
    });

    Work("outer");

    EXPECT_THAT(m_listener->Descriptions(), ElementsAre("open outer"));
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
    owner->reaction = [&](const MetricsEvent&) {
        m_bus.RemoveConsumer(owner);
        owner = nullptr;
        wasAliveAtTheEndOfItsCall = !isDestroyed;
    };
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
    leaving->reaction = [&](const MetricsEvent&) {
        m_bus.RemoveConsumer(leaving);
        leaving = nullptr;
    };
    m_bus.AddConsumer(leaving, flagTracing, false);

    Work("outer");

    EXPECT_THAT(m_listener->Descriptions(),
                ElementsAre("open outer", "open farewell", "close farewell", "close outer"));
}

TEST_F(MetricsDeliveryTest, AListenerMayRemoveOneThatIsStillToBeCalled) {
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const RefCntPtr<RecordingListener> third = new RecordingListener;
    const Subscription two(*second, flagTracing, false);
    const Subscription three(*third, flagTracing, false);
    WhileOuterOpens([&] { m_bus.RemoveConsumer(second); });

    Work("outer");

    EXPECT_THAT(second->events, IsEmpty());
    EXPECT_THAT(third->Descriptions(), ElementsAre("open outer", "close outer"));
}

TEST_F(MetricsDeliveryTest, AListenerThatIsAddedDuringADeliveryStartsWithTheNextEvent) {
    const RefCntPtr<RecordingListener> newcomer = new RecordingListener;
    WhileOuterOpens([&] {
        m_bus.AddConsumer(newcomer, flagTracing, false);
        Work("inner");
    });

    Work("outer");

    EXPECT_THAT(newcomer->Descriptions(), ElementsAre("open inner", "close inner", "close outer"));
    m_bus.RemoveConsumer(newcomer);
}

TEST_F(MetricsDeliveryTest, AListenerMayRemoveItselfAndComeBackInOneCall) {
    WhileOuterOpens([this] {
        m_bus.RemoveConsumer(m_listener);
        m_bus.AddConsumer(m_listener, flagTracing, false);
    });

    Work("outer");

    EXPECT_THAT(m_listener->Descriptions(), ElementsAre("open outer", "close outer"));
    EXPECT_EQ(m_bus.GetConsumerCount(), 1U);
}

TEST_F(MetricsDeliveryTest, AnExceptionOutOfAConsumerReachesNobodyElse) {
    const CapturedMessages messages;
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription subscription(*second, flagTracing, false);
    WhileOuterOpens([] { throw std::runtime_error("no more paper"); });

    EXPECT_NO_THROW(Work("outer"));

    EXPECT_THAT(m_listener->Descriptions(), ElementsAre("open outer", "close outer"));
    EXPECT_THAT(second->Descriptions(), ElementsAre("open outer", "close outer"));
}

TEST_F(MetricsDeliveryTest, AnExceptionOutOfAConsumerIsCountedAndLoggedAsAWarning) {
    const CapturedMessages messages;
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;
    WhileOuterOpens([] { throw std::runtime_error("no more paper"); });

    Work("outer");

    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions, before + 1);
    EXPECT_THAT(messages.Get(),
                ElementsAre("3: A listener of the metrics bus threw: no more paper"));
}

TEST_F(MetricsDeliveryTest, WhateverAConsumerThrowsIsCaught) {
    const CapturedMessages messages;
    WhileOuterOpens([] { throw 42; });

    EXPECT_NO_THROW(Work("outer"));

    EXPECT_THAT(messages.Get(), ElementsAre(HasSubstr("no std::exception")));
}

TEST_F(MetricsDeliveryTest, AnExceptionDuringUnwindingOfTheHostIsHarmless) {
    const CapturedMessages messages;
    m_listener->reaction = [](const MetricsEvent& event) {
        if (event.type == MetricsEventType::CloseScope) {
            throw std::runtime_error("while unwinding");
        }
    };

    EXPECT_THROW(
        {
            Scope scope(flagTracing);
            scope.OpenImpl("query");
            throw std::logic_error("the host's own");
        },
        std::logic_error);

    EXPECT_EQ(messages.Get().size(), 1U);
}

TEST_F(MetricsDeliveryTest, WhatAThrowingConsumerEmittedBeforeStillGoesOut) {
    const CapturedMessages messages;
    WhileOuterOpens([] {
        Work("inner");
        throw std::runtime_error("afterwards");
    });

    Work("outer");

    EXPECT_THAT(m_listener->Descriptions(),
                ElementsAre("open outer", "open inner", "close inner", "close outer"));
}

TEST_F(MetricsDeliveryTest, LeavesTheHostsErrorNumberAlone) {
    m_listener->reaction = [](const MetricsEvent&) { errno = EIO; };
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
    m_listener->reaction = [](const MetricsEvent&) { TFree(TMalloc(1000)); };

    Work("query");
    const uint64 chargedWhileDelivering = frame.allocatedCount + frame.deallocatedCount;
    TFree(TMalloc(1000));

    corvala::memory::SwapPopMemoryCounters(outer);
    corvala::memory::SetMemoryTrackingMode(mode);
    EXPECT_EQ(m_listener->events.size(), 2U);
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
    EXPECT_EQ(m_listener->events[0].time, 5);
    EXPECT_EQ(m_listener->events[0].wallSeconds, 6U);
    EXPECT_EQ(m_listener->events[0].wallMicros, 7U);
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
    for (const MetricsEvent& event : m_listener->events) {
        sinceOpening.push_back(event.time - m_listener->events.front().time);
    }
    EXPECT_THAT(sinceOpening, ElementsAre(0, 1, 1, 1));
}

}  // namespace
