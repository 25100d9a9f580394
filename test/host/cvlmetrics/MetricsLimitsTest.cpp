#include "MetricsAsynchronousTest.h"

#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Statistics.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::DeliveryMode;
using Metrics::flagTracing;
using Metrics::GetBusStatistics;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using Metrics::WhenQueueIsFull;
using MetricsTest::CurrentContext;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::smallQueue;
using MetricsTest::Subscription;
using MetricsTest::timeout;
using MetricsTest::Work;
using tarn::test::AnnouncesThread;
using tarn::test::Closes;
using tarn::test::LogCapture;
using tarn::test::OnAnotherThread;
using tarn::test::OnThreadsAtOnce;
using tarn::test::Opens;
using testing::Contains;
using testing::HasSubstr;

/// What the bus may take of the host's memory and time.
class MetricsLimitsTest : public MetricsAsynchronousTest {
protected:
    std::size_t Count(MetricsEventType type) const { return m_listener->Count(type); }

    const LogCapture m_log;
};

TEST_F(MetricsLimitsTest, QueuesOfAnySizeAreMade) {
    for (const std::size_t bytes :
         {std::size_t{0}, std::size_t{1}, std::numeric_limits<std::size_t>::max()}) {
        Metrics::SetDelivery({.mode = DeliveryMode::Asynchronous, .queueBytes = bytes});
        const Subscription subscription(*m_listener, flagTracing, false);
        OnThreadsAtOnce(8, [](int) {
            const CurrentContext context;
            Work("query");
        });
        FlushAll();

        EXPECT_EQ(Count(MetricsEventType::CloseScope), 8U) << bytes;
        m_listener->Clear();
    }
}

TEST_F(MetricsLimitsTest, WhatLargeValuesTakeCountsAgainstTheQueue) {
    constexpr std::size_t valueBytes = 10'000;
    constexpr int values = 20;
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 waitsBefore = GetBusStatistics().waits;
    HoldConsumer();
    std::atomic<int> emitted{0};
    std::thread emitting([&emitted] {
        const CurrentContext context;
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        for (int i = 0; i < values; ++i) {
            scope.EmitImpl(MetricsEventType::NameValue, "text", std::string(valueBytes, 'x'));
            ++emitted;
        }
    });
    // A wait is counted when it is over, so what is looked for is that nothing goes on.
    int before = -1;
    while (emitted == 0 || emitted != before) {
        before = emitted;
        std::this_thread::sleep_for(std::chrono::milliseconds{200});
    }
    const int emittedWhileHeld = emitted;
    m_gate.Open();
    emitting.join();
    FlushAll();

    EXPECT_LE(static_cast<std::size_t>(emittedWhileHeld) * valueBytes, smallQueue);
    EXPECT_EQ(Count(MetricsEventType::NameValue), values);
    EXPECT_GT(GetBusStatistics().waits, waitsBefore);
}

TEST_F(MetricsLimitsTest, AnEventThatIsLargerThanTheQueueGoesThroughAlone) {
    const Subscription subscription(*m_listener, flagTracing, false);
    OnAnotherThread([] {
        const CurrentContext context;
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        for (int i = 0; i < 5; ++i) {
            scope.EmitImpl(MetricsEventType::NameValue, "text", std::string(100'000, 'x'));
        }
    });
    FlushAll();

    EXPECT_EQ(Count(MetricsEventType::NameValue), 5U);
}

TEST_F(MetricsLimitsTest, RefusingNoCallWaitsForAnAttributeAndWhatIsMissingIsCounted) {
    Choose(WhenQueueIsFull::Refuse);
    const Subscription subscription(*m_listener, flagTracing, false);
    const Metrics::BusStatistics before = GetBusStatistics();
    HoldConsumer();
    constexpr int values = 5000;
    OnAnotherThread([] {
        const CurrentContext context;
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        for (int i = 0; i < values; ++i) {
            scope.EmitImpl(MetricsEventType::NameValue, "rows", i);
            Metrics::AttributeImpl("user", "ann", flagTracing);
            // The second one finds room for its record, and none for what it takes on the heap.
            const std::size_t length = i < 2 ? 10'000 : 1;
            scope.MultiEmitImpl(
                MetricsEventType::NameValuePairs, "list", {{"text", std::string(length, 'x')}});
        }
    });
    const Metrics::BusStatistics after = GetBusStatistics();
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(after.waits, before.waits);
    const std::vector<MetricsEvent> events = m_listener->Events();
    const std::ptrdiff_t users =
        std::count_if(events.begin(), events.end(), [](const MetricsEvent& event) {
            return event.type == MetricsEventType::Attribute && event.name == "user";
        });
    const std::size_t arrived = Count(MetricsEventType::NameValue) +
                                Count(MetricsEventType::NameValuePairs) +
                                static_cast<std::size_t>(users);
    EXPECT_GT(arrived, 10U);
    const uint64 missing = after.refusedAttributes - before.refusedAttributes +
                           after.refusedPendingAttributes - before.refusedPendingAttributes;
    EXPECT_EQ(arrived + missing, uint64{3} * values);
    EXPECT_EQ(Count(MetricsEventType::OpenScope), 1U);
    EXPECT_EQ(Count(MetricsEventType::CloseScope), 1U);
    EXPECT_THAT(m_log->MessageTexts(), Contains(HasSubstr("attributes refused for want of room")));
}

TEST_F(MetricsLimitsTest, AttributesLeaveRoomForTheEndsOfOpenScopes) {
    Choose(WhenQueueIsFull::Refuse);
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 waitsBefore = GetBusStatistics().waits;
    HoldConsumer();
    constexpr int depth = 10;
    OnAnotherThread([] {
        const CurrentContext context;
        std::vector<std::unique_ptr<Scope>> scopes;
        for (int i = 0; i < depth; ++i) {
            scopes.push_back(std::make_unique<Scope>(flagTracing));
            scopes.back()->OpenImpl("query");
            ASSERT_TRUE(scopes.back()->IsOpen());
        }
        const std::string text(4000, 'x');
        for (int i = 0; i < 20; ++i) {
            scopes.front()->EmitImpl(MetricsEventType::NameValue, "text", text);
            scopes.front()->EmitImpl(MetricsEventType::NameValue, "text", 1);
        }
        while (!scopes.empty()) {
            scopes.pop_back();
        }
    });
    const uint64 waitsAfter = GetBusStatistics().waits;
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(waitsAfter, waitsBefore);
    EXPECT_EQ(Count(MetricsEventType::CloseScope), depth);
}

TEST_F(MetricsLimitsTest, ScopesOnAThreadThatFoundNoRoomForItsIdAreRefusedUntilItDoes) {
    Choose(WhenQueueIsFull::Refuse);
    const Subscription subscription(*m_listener, flagTracing, false);
    CurrentContext context;
    context.Get().DetachFromThread();
    FlushAll();
    m_listener->Clear();
    HoldConsumer();
    pid_t thread = 0;
    OnAnotherThread([&] {
        thread = gettid();
        {
            const CurrentContext fillers;
            Scope filler(flagTracing);
            filler.OpenImpl("filler");
            for (int i = 0; i < 1000; ++i) {
                filler.EmitImpl(MetricsEventType::NameValue, "rows", i);
            }
        }
        context.Get().AttachToThread();
        Work("early");
        m_gate.Open();
        FlushAll();
        Work("late");
        context.Get().DetachFromThread();
    });
    FlushAll();

    EXPECT_THAT(m_listener->ContentsOf(context.Id()),
                testing::ElementsAre(
                    AnnouncesThread(static_cast<uint64>(thread)), Opens("late"), Closes("late")));
}

TEST_F(MetricsLimitsTest, TheQueuesOfEndedThreadsAreGivenBackButForSome) {
    constexpr std::size_t kept = 3;
    Metrics::SetDelivery({.mode = DeliveryMode::Asynchronous, .keptQueues = kept});
    const Subscription subscription(*m_listener, flagTracing, false);
    constexpr int threads = 50;
    OnThreadsAtOnce(threads, [](int) {
        const CurrentContext context;
        Work("query");
        FlushAll();
    });
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (GetBusStatistics().queues > kept + 2 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }

    // This thread may have one, and so may what threads say at their very end.
    EXPECT_LE(GetBusStatistics().queues, kept + 2);
    EXPECT_EQ(Count(MetricsEventType::CloseScope), threads);

    OnThreadsAtOnce(threads, [](int) {
        const CurrentContext context;
        Work("query");
    });
    FlushAll();
    EXPECT_EQ(Count(MetricsEventType::CloseScope), 2 * threads);
}

TEST_F(MetricsLimitsTest, AttributesThatNoScopeTakesAreLimitedAndWhatIsBeyondIsCounted) {
    constexpr std::size_t limit = 10'000;
    for (const DeliveryMode mode : {DeliveryMode::Synchronous, DeliveryMode::Asynchronous}) {
        Metrics::SetDelivery({.mode = mode, .pendingAttributeBytes = limit});
        const Subscription subscription(*m_listener, flagTracing, false);
        const uint64 before = GetBusStatistics().refusedPendingAttributes;
        m_listener->Clear();
        const CurrentContext context;
        constexpr int attributes = 1000;
        const auto setAll = [] {
            for (int i = 0; i < attributes; ++i) {
                Metrics::AttributeImpl("user", std::string(100, 'x'), flagTracing);
            }
        };
        const auto arrived = [this] {
            FlushAll();
            return Count(MetricsEventType::Attribute) - 1;  // its thread's id is one as well
        };

        setAll();
        const std::size_t first = arrived();
        Work("query");
        setAll();

        EXPECT_GT(first, 10U);
        EXPECT_LE(first * 100, limit);
        EXPECT_EQ(arrived(), 2 * first) << "a scope makes room";
        EXPECT_EQ(GetBusStatistics().refusedPendingAttributes - before,
                  static_cast<uint64>(2 * attributes - 2 * first));
    }
    FlushAll();

    EXPECT_THAT(m_log->MessageTexts(), Contains(HasSubstr("pending context attributes")));
}

}  // namespace
