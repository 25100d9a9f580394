#include "MetricsTestSupport.h"
#include "Sanitizers.h"

#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlmetrics/host/Statistics.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::DeliveryMode;
using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using Metrics::WhenQueueIsFull;
using MetricsTest::CurrentContext;
using MetricsTest::Subscription;
using MetricsTest::Work;
using std::chrono::milliseconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr milliseconds patience{20'000};
constexpr milliseconds moment{30};
constexpr std::size_t smallQueue = std::size_t{16} << 10;

/// A door that a consumer can be made to stand before.
class Gate {
public:
    void Close() {
        const std::lock_guard lock(m_mutex);
        m_isOpen = false;
    }

    void Open() {
        const std::lock_guard lock(m_mutex);
        m_isOpen = true;
        m_changed.notify_all();
    }

    void Pass() {
        std::unique_lock lock(m_mutex);
        m_someoneWaits = !m_isOpen;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_isOpen; });
    }

    void AwaitSomeoneBefore() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_someoneWaits; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isOpen = true;
    bool m_someoneWaits = false;
};

/// Asynchronous delivery for the time of a test.
class MetricsAsynchronousTest : public MetricsTest::MetricsBusTest {
protected:
    MetricsAsynchronousTest() { Choose(WhenQueueIsFull::Wait); }

    ~MetricsAsynchronousTest() override {
        EXPECT_TRUE(Metrics::Shutdown(patience));
        Metrics::SetDelivery({});
    }

    static void Choose(WhenQueueIsFull whenFull, milliseconds exitDeadline = milliseconds{5000}) {
        Metrics::SetDelivery({.mode = DeliveryMode::Asynchronous,
                              .whenFull = whenFull,
                              .queueBytes = smallQueue,
                              .exitDeadline = exitDeadline});
    }

    static void FlushAll() { ASSERT_TRUE(Metrics::Flush(patience)); }

    /// Runs it on a thread of its own, with a queue of its own.
    static void OnAnotherThread(const std::function<void()>& body) { std::thread(body).join(); }

    /// Makes the consumer stand before the gate with the next event, and an event get there.
    void HoldConsumer() {
        m_gate.Close();
        m_listener->reaction = [this](const MetricsEvent&) { m_gate.Pass(); };
        OnAnotherThread([] { const CurrentContext context; });
        m_gate.AwaitSomeoneBefore();
    }

    Gate m_gate;
};

TEST_F(MetricsAsynchronousTest, EventsArriveInOrderOnAThreadOfTheBus) {
    const Subscription subscription(*m_listener, flagTracing, false);
    std::thread::id deliverer;
    m_listener->reaction = [&](const MetricsEvent&) { deliverer = std::this_thread::get_id(); };
    const CurrentContext context;
    FlushAll();
    m_listener->events.clear();

    {
        Scope scope(flagTracing);
        scope.OpenImpl("query", {{"text", "select"}, {u"rows", 3}, {"done", true}, {"x", 0.5}});
        scope.EmitImpl(MetricsEventType::NameValue, "rows", 4);
        scope.MultiEmitImpl(MetricsEventType::SupplementalPairs, "log", {{"step", u"\u00e9"}});
        scope.SetPostScopeCloseEvents(
            {Metrics::MetricsCloseScopeActions::PopRequestContextAttributes});
    }
    FlushAll();

    EXPECT_NE(deliverer, std::this_thread::get_id());
    EXPECT_THAT(m_listener->DescriptionsOf(context.Id()),
                ElementsAre("open query(text=select, rows=3, done=true, x=0.500000)",
                            "value rows=4",
                            "supplement log(step=\u00e9)",
                            "close query",
                            "post-close query 0"));
}

TEST_F(MetricsAsynchronousTest, AnEventIsStampedWhenItIsEmitted) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    const CurrentContext context;

    const int64 before = Metrics::ReadClock().time;
    Work("query");
    const int64 after = Metrics::ReadClock().time;
    std::this_thread::sleep_for(moment);
    m_gate.Open();
    FlushAll();

    ASSERT_GE(m_listener->events.size(), 2U);
    EXPECT_GE(m_listener->events[m_listener->events.size() - 2].time, before);
    EXPECT_LE(m_listener->events.back().time, after);
}

TEST_F(MetricsAsynchronousTest, WhatNoQueueTakesAsItIsArrivesAllTheSame) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    const std::string large(100'000, 'x');
    Metrics::MetricsValue odd;
    odd.type = 77;
    Metrics::MetricsValue hollow;
    hollow.type = Metrics::MetricsValue::MV_Utf16String;

    {
        Scope scope(flagTracing);
        scope.OpenImpl("query", {{"text", large}});
        scope.EmitImpl(MetricsEventType::NameValue, "odd", Metrics::MetricsValue(odd));
        scope.EmitImpl(MetricsEventType::NameValue, "hollow", Metrics::MetricsValue(hollow));
        scope.EmitImpl(MetricsEventType::NameValue, "", "");
    }
    FlushAll();

    std::vector<MetricsEvent> ofScope;
    std::copy_if(m_listener->events.begin(),
                 m_listener->events.end(),
                 std::back_inserter(ofScope),
                 [](const MetricsEvent& event) { return event.id != 0 && event.flags != 0; });
    ASSERT_EQ(ofScope.size(), 5U);
    EXPECT_EQ(*ofScope[0].pairs.at(0).second.utf8, large);
    EXPECT_EQ(ofScope[1].value.type, 77U);
    EXPECT_EQ(ofScope[2].value.type, Metrics::MetricsValue::MV_Utf16String);
    EXPECT_EQ(ofScope[2].value.utf16, nullptr);
    EXPECT_EQ(*ofScope[3].name.utf8, "");
    EXPECT_EQ(*ofScope[3].value.utf8, "");
}

TEST_F(MetricsAsynchronousTest, RecordsOfEverySizeGoRoundTheRing) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    std::vector<std::size_t> sizes;
    {
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        for (std::size_t size = 0; size < 5000; size += 7) {
            scope.EmitImpl(MetricsEventType::NameValue, "text", std::string(size, 'y'));
            sizes.push_back(size);
        }
    }
    FlushAll();

    std::vector<std::size_t> arrived;
    for (const MetricsEvent& event : m_listener->events) {
        if (event.type == MetricsEventType::NameValue) {
            arrived.push_back(event.value.utf8->size());
            EXPECT_EQ(event.value.utf8->find_first_not_of('y'), std::string::npos);
        }
    }
    EXPECT_EQ(arrived, sizes);
}

TEST_F(MetricsAsynchronousTest, WhatAConsumerEmitsArrivesAfterTheEventThatItAnswers) {
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->reaction = [](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope && *event.name.utf8 == "query") {
            const CurrentContext own;
            Work("answer");
        }
    };
    const CurrentContext context;

    Work("query");
    FlushAll();

    const std::vector<std::string> all = m_listener->Descriptions();
    const auto query = std::find(all.begin(), all.end(), "open query");
    ASSERT_NE(query, all.end());
    EXPECT_THAT(std::vector<std::string>(query + 1, all.end()), Contains("open answer"));
    EXPECT_EQ(all.back(), "close query");
}

TEST_F(MetricsAsynchronousTest, AConsumerThatThrowsIsCountedAndGetsTheNextEvent) {
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->reaction = [](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            throw std::runtime_error("no");
        }
    };
    const CurrentContext context;
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;

    Work("query");
    FlushAll();

    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions, before + 1);
    EXPECT_EQ(m_listener->Descriptions().back(), "close query");
}

/// Contexts that wander from thread to thread. Every event of a context carries the next number.
class WanderingContexts {
public:
    static constexpr int threads = 4;
    static constexpr int contexts = 3;
    static constexpr int steps = 4000;

    void Run() {
        for (int i = 0; i < contexts; ++i) {
            m_contexts.push_back(std::make_unique<Wanderer>());
            m_ready.push_back(m_contexts.back().get());
        }
        std::vector<std::thread> all;
        for (int i = 0; i < threads; ++i) {
            all.emplace_back([this] { Walk(); });
        }
        for (std::thread& thread : all) {
            thread.join();
        }
        m_contexts.clear();
    }

private:
    struct Wanderer {
        Wanderer() : context(0, Metrics::Context::Create(true)) {
            context.OpenScope();
            scope.OpenImpl("wanderer");
            context.DetachFromThread();
        }

        Metrics::Context context;
        Scope scope{flagTracing};
        int next = 0;
    };

    // The mutex is the hand-over: what one thread emits before it, another one emits after it.
    Wanderer* Take() {
        const std::lock_guard lock(m_mutex);
        if (m_ready.empty()) {
            return nullptr;
        }
        Wanderer* const taken = m_ready.front();
        m_ready.pop_front();
        return taken;
    }

    void Walk() {
        while (m_left.load() > 0) {
            Wanderer* const wanderer = Take();
            if (wanderer == nullptr) {
                std::this_thread::yield();
                continue;
            }
            m_left.fetch_sub(1);
            wanderer->context.AttachToThread();
            for (int i = 0; i < 3; ++i) {
                wanderer->scope.EmitImpl(MetricsEventType::NameValue, "step", wanderer->next++);
            }
            wanderer->context.DetachFromThread();
            const std::lock_guard lock(m_mutex);
            m_ready.push_back(wanderer);
        }
    }

    std::atomic<int> m_left{steps};
    std::mutex m_mutex;
    std::deque<Wanderer*> m_ready;
    std::vector<std::unique_ptr<Wanderer>> m_contexts;
};

/// How many numbered events arrived, and how many of them not behind the one before.
std::pair<std::size_t, std::size_t> CountSteps(const std::vector<MetricsEvent>& events) {
    std::map<uint64, int64> next;
    std::size_t steps = 0;
    std::size_t outOfOrder = 0;
    for (const MetricsEvent& event : events) {
        if (event.type == MetricsEventType::NameValue) {
            ++steps;
            outOfOrder += event.value.integer == next[event.contextId]++ ? 0U : 1U;
        }
    }
    return {steps, outOfOrder};
}

TEST_F(MetricsAsynchronousTest, AContextThatWandersBetweenThreadsKeepsTheOrderOfItsEvents) {
    const Subscription subscription(*m_listener, flagTracing, false);

    WanderingContexts().Run();
    FlushAll();

    const auto [steps, outOfOrder] = CountSteps(m_listener->events);
    EXPECT_GT(steps, 1000U);
    EXPECT_EQ(outOfOrder, 0U);
}

TEST_F(MetricsAsynchronousTest, TheOrderNeedsNoClock) {
    Metrics::SetClock([]() noexcept { return Metrics::ClockReading{.time = 7}; });
    {
        const Subscription subscription(*m_listener, flagTracing, false);

        WanderingContexts().Run();
        FlushAll();
    }
    Metrics::SetClock(nullptr);

    EXPECT_EQ(CountSteps(m_listener->events).second, 0U);
    EXPECT_EQ(m_listener->events.back().time, 7);
}

TEST_F(MetricsAsynchronousTest, TheOrderHoldsWhileTheWayOfDeliveryChanges) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 lostBefore = Metrics::GetBusStatistics().lostEvents;
    std::atomic<bool> isOver{false};
    std::thread switcher([&isOver] {
        for (int i = 0; !isOver.load(); ++i) {
            if (i % 3 == 2) {
                Metrics::Shutdown(patience);
            } else {
                Metrics::SetDelivery(
                    {.mode = i % 2 == 0 ? DeliveryMode::Synchronous : DeliveryMode::Asynchronous,
                     .queueBytes = smallQueue});
            }
            std::this_thread::yield();
        }
    });

    WanderingContexts().Run();
    isOver.store(true);
    switcher.join();
    FlushAll();

    EXPECT_EQ(CountSteps(m_listener->events).second, 0U);
    EXPECT_EQ(Metrics::GetBusStatistics().lostEvents, lostBefore);
}

TEST_F(MetricsAsynchronousTest, AThreadWhoseQueueIsFullWaitsAndLosesNothing) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 waitsBefore = Metrics::GetBusStatistics().waits;
    const uint64 waitedBefore = Metrics::GetBusStatistics().waitedNanoseconds;
    HoldConsumer();
    constexpr int scopes = 500;
    std::thread emitter([] {
        const CurrentContext context;
        for (int i = 0; i < scopes; ++i) {
            Work("query");
        }
    });

    std::this_thread::sleep_for(moment);
    m_gate.Open();
    emitter.join();
    FlushAll();

    const std::vector<std::string> all = m_listener->Descriptions();
    EXPECT_EQ(std::count(all.begin(), all.end(), "open query"), scopes);
    EXPECT_EQ(std::count(all.begin(), all.end(), "close query"), scopes);
    EXPECT_GT(Metrics::GetBusStatistics().waits, waitsBefore);
    EXPECT_GT(Metrics::GetBusStatistics().waitedNanoseconds, waitedBefore);
    EXPECT_GT(Metrics::GetBusStatistics().highestQueueFill, smallQueue / 2);
}

class MetricsRefusalTest : public MetricsAsynchronousTest {
protected:
    MetricsRefusalTest() { Choose(WhenQueueIsFull::Refuse); }

    /// How often an event of a kind arrived.
    std::ptrdiff_t Count(MetricsEventType type) const {
        return std::count_if(m_listener->events.begin(),
                             m_listener->events.end(),
                             [type](const MetricsEvent& event) { return event.type == type; });
    }
};

TEST_F(MetricsRefusalTest, WholeScopesAreMissingAndEachIsCounted) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 refusedBefore = Metrics::GetBusStatistics().refusedScopes;
    HoldConsumer();
    constexpr int scopes = 2000;
    OnAnotherThread([] {
        const CurrentContext context;
        for (int i = 0; i < scopes; ++i) {
            Scope scope(flagTracing);
            scope.OpenImpl("query");
            scope.EmitImpl(MetricsEventType::NameValue, "rows", i);
        }
    });
    m_gate.Open();
    FlushAll();

    const auto refused =
        static_cast<std::ptrdiff_t>(Metrics::GetBusStatistics().refusedScopes - refusedBefore);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(Count(MetricsEventType::OpenScope), scopes - refused);
    EXPECT_EQ(Count(MetricsEventType::CloseScope), scopes - refused);
    EXPECT_EQ(Count(MetricsEventType::NameValue), scopes - refused);
}

TEST_F(MetricsRefusalTest, AScopeThatIsOpenFindsRoomForItsEnd) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 waitsBefore = Metrics::GetBusStatistics().waits;
    HoldConsumer();
    OnAnotherThread([] {
        const CurrentContext context;
        std::list<Scope> scopes;
        while (scopes.empty() || scopes.back().IsOpen()) {
            scopes.emplace_back(flagTracing).OpenImpl("query");
        }
        while (!scopes.empty()) {
            scopes.pop_back();
        }
    });
    const uint64 waitsAfter = Metrics::GetBusStatistics().waits;
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(waitsAfter, waitsBefore);
    EXPECT_GT(Count(MetricsEventType::OpenScope), 10);
    EXPECT_EQ(Count(MetricsEventType::OpenScope), Count(MetricsEventType::CloseScope));
}

TEST_F(MetricsRefusalTest, WhatARefusedScopeHasAddedToItsContextIsTakenBack) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    OnAnotherThread([] {
        const CurrentContext context;
        while (true) {
            Scope filler(flagTracing);
            filler.OpenImpl("filler");
            if (!filler.IsOpen()) {
                break;
            }
        }
        Scope scope(flagTracing);
        Metrics::MultiAttributeImpl("layer", {{"user", "ann"}}, flagTracing);
        scope.OpenImpl("refused");
        EXPECT_FALSE(scope.IsOpen());
        scope.SetPostScopeCloseEvents(
            {Metrics::MetricsCloseScopeActions::PopRequestContextAttributes});
    });
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(Count(MetricsEventType::AttributePairs), 1);
    EXPECT_EQ(Count(MetricsEventType::PostCloseScope), 1);
    EXPECT_THAT(m_listener->Descriptions(), testing::Not(Contains("open refused")));
}

TEST_F(MetricsRefusalTest, ThreadsThatMakeContextsDoNotWaitEither) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 waitsBefore = Metrics::GetBusStatistics().waits;
    HoldConsumer();
    OnAnotherThread([] {
        for (int i = 0; i < 2000; ++i) {
            const CurrentContext context;
            Work("query");
        }
    });
    const uint64 waitsAfter = Metrics::GetBusStatistics().waits;
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(waitsAfter, waitsBefore);
    EXPECT_EQ(Count(MetricsEventType::CreateContext), Count(MetricsEventType::CloseContext));
    EXPECT_EQ(Count(MetricsEventType::OpenContext), Count(MetricsEventType::CloseContext));
    EXPECT_EQ(Count(MetricsEventType::OpenScope), Count(MetricsEventType::CloseScope));
}

TEST_F(MetricsRefusalTest, AContextThatFoundNoRoomIsAnnouncedWithTheFirstScopeThatDoes) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    uint64 lateId = 0;
    OnAnotherThread([&] {
        std::list<CurrentContext> fillers;
        std::optional<CurrentContext> late;
        for (int i = 0; i < 500; ++i) {
            fillers.emplace_back();
        }
        late.emplace();
        lateId = late->Id();
        Work("too early");
        m_gate.Open();
        FlushAll();
        Work("query");
    });
    FlushAll();

    EXPECT_THAT(m_listener->DescriptionsOf(lateId),
                ElementsAre("create context",
                            "open context",
                            HasSubstr("attribute tid="),
                            "open query",
                            "close query",
                            "close context"));
    EXPECT_EQ(Count(MetricsEventType::CreateContext), Count(MetricsEventType::OpenContext));
}

TEST_F(MetricsRefusalTest, AContextThatHasLostAttributesStaysUnknownWithItsScopes) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    uint64 lateId = 0;
    OnAnotherThread([&] {
        std::list<CurrentContext> fillers;
        for (int i = 0; i < 500; ++i) {
            fillers.emplace_back();
        }
        const CurrentContext late;
        lateId = late.Id();
        Metrics::AttributeImpl("user", "ann", flagTracing);
        m_gate.Open();
        FlushAll();
        Work("query");
    });
    FlushAll();

    EXPECT_THAT(m_listener->DescriptionsOf(lateId), IsEmpty());
    EXPECT_EQ(Count(MetricsEventType::OpenContext), Count(MetricsEventType::CloseContext));
}

/// Keeps what is logged.
class KeepingBackEnd : public TLog::LogBackEnd {
public:
    void Write(TLog::Severity, const TLog::Event&) override {}

    void WriteMessage(TLog::Severity, const TString& text) override {
        const std::lock_guard lock(m_mutex);
        m_messages.push_back(text.ToUtf8());
    }

    void Flush() override { ++flushes; }

    std::vector<std::string> Messages() {
        const std::lock_guard lock(m_mutex);
        return m_messages;
    }

    std::atomic<int> flushes{0};

private:
    std::mutex m_mutex;
    std::vector<std::string> m_messages;
};

TEST_F(MetricsRefusalTest, TheLogSaysWhatIsMissingInIt) {
    const auto backEnd = std::make_shared<KeepingBackEnd>();
    const auto former = TLog::ReplaceBackEnd(backEnd);
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        HoldConsumer();
        OnAnotherThread([] {
            const CurrentContext context;
            for (int i = 0; i < 2000; ++i) {
                Work("query");
            }
        });
        m_gate.Open();
        FlushAll();
    }
    TLog::ReplaceBackEnd(former);

    EXPECT_THAT(backEnd->Messages(), Contains(HasSubstr("scopes refused for want of room")));
    EXPECT_GT(backEnd->flushes, 0);
}

TEST_F(MetricsAsynchronousTest, FlushReturnsInTimeWhileAConsumerHangs) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();

    const auto begin = std::chrono::steady_clock::now();
    const bool isFlushed = Metrics::Flush(moment);
    const auto took = std::chrono::steady_clock::now() - begin;
    m_gate.Open();

    EXPECT_FALSE(isFlushed);
    EXPECT_GE(took, moment);
    EXPECT_LT(took, patience);
    EXPECT_TRUE(Metrics::Flush(patience));
}

TEST_F(MetricsAsynchronousTest, AConsumerCannotWaitForItself) {
    const Subscription subscription(*m_listener, flagTracing, false);
    std::optional<bool> isFlushed;
    std::optional<bool> isShutDown;
    m_listener->reaction = [&](const MetricsEvent&) {
        isFlushed = Metrics::Flush(patience);
        isShutDown = Metrics::Shutdown(patience);
    };
    { const CurrentContext context; }
    FlushAll();

    EXPECT_EQ(isFlushed, false);
    EXPECT_EQ(isShutDown, false);
}

TEST_F(MetricsAsynchronousTest, AfterShutdownEventsAreDeliveredAtOnce) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    Work("before");

    EXPECT_TRUE(Metrics::Shutdown(patience));
    const std::size_t afterShutdown = m_listener->events.size();
    Work("after");

    EXPECT_EQ(m_listener->events.size(), afterShutdown + 2);
    EXPECT_THAT(m_listener->DescriptionsOf(context.Id()),
                ElementsAre("create context",
                            "open context",
                            "attribute tid=" + std::to_string(gettid()),
                            "open before",
                            "close before",
                            "open after",
                            "close after"));
}

TEST_F(MetricsAsynchronousTest, AShutdownThatGivesUpLetsNobodyWaitAndCountsWhatIsLost) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 lostBefore = Metrics::GetBusStatistics().lostEvents;
    HoldConsumer();
    std::thread waiting([] {
        const CurrentContext context;
        for (int i = 0; i < 500; ++i) {
            Work("query");
        }
    });
    std::this_thread::sleep_for(moment);

    EXPECT_FALSE(Metrics::Shutdown(moment));
    waiting.join();
    const CurrentContext context;
    Work("late");

    EXPECT_GT(Metrics::GetBusStatistics().lostEvents, lostBefore + 2);
    m_gate.Open();
    EXPECT_TRUE(Metrics::Shutdown(patience));
}

TEST_F(MetricsAsynchronousTest, DeliveryBeginsAnewAfterAShutdown) {
    const Subscription subscription(*m_listener, flagTracing, false);
    EXPECT_TRUE(Metrics::Shutdown(patience));

    Choose(WhenQueueIsFull::Wait);
    std::thread::id deliverer;
    m_listener->reaction = [&](const MetricsEvent&) { deliverer = std::this_thread::get_id(); };
    { const CurrentContext context; }
    FlushAll();

    EXPECT_NE(deliverer, std::thread::id());
    EXPECT_NE(deliverer, std::this_thread::get_id());
    EXPECT_EQ(Metrics::GetDelivery().mode, DeliveryMode::Asynchronous);
    EXPECT_EQ(Metrics::GetDelivery().queueBytes, smallQueue);
}

TEST_F(MetricsAsynchronousTest, AConsumerGetsWhatWasEmittedBeforeItIsRemoved) {
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        const CurrentContext context;
        Work("query");
    }

    EXPECT_THAT(m_listener->Descriptions(), Contains("close query"));
}

TEST_F(MetricsAsynchronousTest, AConsumerGetsNothingThatWasEmittedBeforeItCame) {
    const Subscription first(*m_listener, flagTracing, false);
    const RefCntPtr<MetricsTest::RecordingListener> newcomer = new MetricsTest::RecordingListener;
    const CurrentContext context;
    Work("before");

    const Subscription second(*newcomer, flagTracing, false);
    Work("after");
    FlushAll();

    EXPECT_THAT(newcomer->Descriptions(), ElementsAre("open after", "close after"));
}

TEST_F(MetricsAsynchronousTest, AConsumerThatHangsIsRemovedOnceItReturns) {
    Choose(WhenQueueIsFull::Wait, moment);
    std::size_t whenRemoved = 0;
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        HoldConsumer();
        OnAnotherThread([] { const CurrentContext context; });
        whenRemoved = 1;  // the one that it hangs in
    }
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(m_listener->events.size(), whenRemoved);
}

TEST_F(MetricsAsynchronousTest, ThreadsThatComeAndGoShareTheirQueues) {
    const Subscription subscription(*m_listener, flagTracing, false);

    for (int i = 0; i < 300; ++i) {
        OnAnotherThread([] {
            const CurrentContext context;
            Work("query");
        });
    }
    FlushAll();

    const std::vector<std::string> all = m_listener->Descriptions();
    EXPECT_EQ(std::count(all.begin(), all.end(), "close query"), 300);
}

/// A thread-local object whose destructor does something at a thread's end.
struct AtThreadEnd {
    std::function<void()> action;

    ~AtThreadEnd() {
        if (action) {
            action();
        }
    }
};

TEST_F(MetricsAsynchronousTest, WhatAThreadEmitsAtItsVeryEndArrives) {
    const Subscription subscription(*m_listener, flagTracing, false);
    OnAnotherThread([] {
        // Made first, it goes last: when the thread's queue and contexts are gone already.
        thread_local AtThreadEnd atEnd;
        const auto context = std::make_shared<CurrentContext>();
        auto scope = std::make_shared<Scope>(flagTracing);
        scope->OpenImpl("query");
        context->Get().DetachFromThread();
        atEnd.action = [context, last = std::move(scope)]() mutable { last.reset(); };
    });
    FlushAll();

    EXPECT_THAT(m_listener->Descriptions(), Contains("close query"));
}

class MetricsAsynchronousForkTest : public MetricsAsynchronousTest {
protected:
    template <class Body>
    static bool SucceedsInChild(const Body& body) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            _exit(body() ? 0 : 1);
        }
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
};

TEST_F(MetricsAsynchronousForkTest, AChildInheritsNothingThatIsQueuedAndDeliversItsOwn) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    const Subscription subscription(*m_listener, flagTracing, false);
    std::atomic<int> opened{0};
    m_listener->reaction = [&](const MetricsEvent& event) {
        opened += event.type == MetricsEventType::OpenScope ? 1 : 0;
        std::this_thread::sleep_for(milliseconds{1});
    };
    const CurrentContext context;
    for (int i = 0; i < 30; ++i) {
        Work("parents");
    }

    const bool isWell = SucceedsInChild([&] {
        const int inherited = opened;
        Work("childs");
        const bool isFlushed = Metrics::Flush(patience);
        return isFlushed && opened == inherited + 1;
    });
    FlushAll();

    EXPECT_TRUE(isWell);
    EXPECT_EQ(opened, 30);
}

TEST_F(MetricsAsynchronousForkTest, AChildGetsOnWithItsLifeWhileOtherThreadsWereEmitting) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    std::atomic<int> opened{0};
    std::atomic<int> closed{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->reaction = [&](const MetricsEvent& event) {
        opened += event.type == MetricsEventType::OpenScope ? 1 : 0;
        closed += event.type == MetricsEventType::CloseScope ? 1 : 0;
        m_listener->events.clear();
    };
    const CurrentContext context;
    std::atomic<bool> isOver{false};
    std::vector<std::thread> emitters;
    for (int i = 0; i < 2; ++i) {
        emitters.emplace_back([&isOver] {
            const CurrentContext own;
            while (!isOver.load(std::memory_order_relaxed)) {
                Work("query");
            }
        });
    }

    int failures = 0;
    for (int round = 0; round < 30; ++round) {
        const bool isWell = SucceedsInChild([&] {
            const int inherited = opened;
            Work("childs");
            return Metrics::Flush(patience) && opened == inherited + 1 &&
                   Metrics::Shutdown(patience);
        });
        failures += isWell ? 0 : 1;
    }
    isOver.store(true);
    for (std::thread& emitter : emitters) {
        emitter.join();
    }
    FlushAll();

    EXPECT_EQ(failures, 0);
    EXPECT_EQ(opened, closed);
}

TEST_F(MetricsAsynchronousForkTest, AConsumerMayForkAndBothSidesGoOn) {
    const Subscription subscription(*m_listener, flagTracing, false);
    std::atomic<pid_t> child{-1};
    m_listener->reaction = [&](const MetricsEvent& event) {
        if (child < 0 && event.type == MetricsEventType::OpenScope) {
            const pid_t forked = fork();
            if (forked == 0) {
                alarm(20);
                _exit(0);
            }
            child = forked;
        }
    };
    const CurrentContext context;

    Work("query");
    FlushAll();

    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(m_listener->Descriptions(), Contains("close query"));
}

}  // namespace
