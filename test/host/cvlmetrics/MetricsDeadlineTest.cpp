#include "ChildProcess.h"
#include "MetricsAsynchronousTest.h"

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>

#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::WhenQueueIsFull;
using MetricsTest::CurrentContext;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::moment;
using MetricsTest::Subscription;
using MetricsTest::timeout;
using MetricsTest::Work;
using std::chrono::milliseconds;
using tarn::test::IsClosingOf;
using tarn::test::Opens;
using Clock = std::chrono::steady_clock;

class MetricsDeadlineTest : public MetricsAsynchronousTest {
protected:
    /// Opens the gate in a while, on another thread.
    std::thread OpenGateLater() {
        return std::thread([this] {
            std::this_thread::sleep_for(moment);
            m_gate.Open();
        });
    }

    /// Counts the scopes that have been through the consumer, which takes some time for each.
    void CountSlowly() {
        m_listener->CallOnEach([this](const MetricsEvent& event) { CountOneSlowly(event); });
    }

    void CountOneSlowly(const MetricsEvent& event) {
        std::this_thread::sleep_for(std::chrono::microseconds{300});
        m_listener->Clear();
        m_closed += event.type == MetricsEventType::CloseScope ? 1 : 0;
    }

    std::atomic<int> m_closed{0};
};

TEST_F(MetricsDeadlineTest, ADeadlineThatIsTooLongMeansWithoutLimit) {
    const Subscription subscription(*m_listener, flagTracing, false);

    for (auto* const wait : {Metrics::Flush, Metrics::Shutdown}) {
        HoldConsumer();
        std::thread opener = OpenGateLater();
        EXPECT_TRUE(wait(milliseconds::max()));
        opener.join();
    }
}

TEST_F(MetricsDeadlineTest, ANegativeDeadlineMeansZero) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();

    const auto begin = Clock::now();
    for (auto* const wait : {Metrics::Flush, Metrics::Shutdown}) {
        EXPECT_FALSE(wait(milliseconds::min()));
        EXPECT_FALSE(wait(milliseconds{-1}));
        EXPECT_FALSE(wait(milliseconds{0}));
    }
    const auto took = Clock::now() - begin;
    m_gate.Open();

    EXPECT_LT(took, timeout);
}

TEST_F(MetricsDeadlineTest, WithoutALimitListenersComeAndGoWithAllThatIsQueued) {
    Choose(WhenQueueIsFull::Wait, milliseconds::max());
    CountSlowly();
    constexpr int scopes = 30;
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        const CurrentContext context;
        for (int i = 0; i < scopes; ++i) {
            Work("query");
        }
    }

    EXPECT_EQ(m_closed, scopes);
}

TEST_F(MetricsDeadlineTest, AfterAFlushNothingIsStillOnItsWayThoughAnotherThreadForks) {
    const Subscription subscription(*m_listener, flagTracing, false);
    CountSlowly();
    const CurrentContext context;
    std::atomic<bool> isOver{false};
    std::thread forking([&isOver] {
        while (!isOver) {
            EXPECT_TRUE(tarn::test::SucceedsInChild([] { return true; }));
        }
    });

    int early = 0;
    constexpr int scopes = 200;
    for (int ended = 1; ended <= scopes; ++ended) {
        Work("query");
        EXPECT_TRUE(Metrics::Flush(timeout));
        early += m_closed < ended ? 1 : 0;
    }
    isOver = true;
    forking.join();

    EXPECT_EQ(early, 0);
    EXPECT_EQ(m_closed, scopes);
}

TEST_F(MetricsDeadlineTest, AfterAShutdownNothingIsStillOnItsWayThoughAnotherThreadEmits) {
    std::atomic<int> mine{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        CountOneSlowly(event);
        mine += IsClosingOf(event, "mine") ? 1 : 0;
    });
    std::atomic<bool> isOver{false};
    std::thread emitting([&isOver] {
        const CurrentContext context;
        while (!isOver) {
            Work("other");
            std::this_thread::sleep_for(std::chrono::microseconds{20});
        }
    });
    const CurrentContext context;

    int early = 0;
    constexpr int rounds = 150;
    for (int ended = 1; ended <= rounds; ++ended) {
        Choose(WhenQueueIsFull::Wait);
        Work("mine");
        EXPECT_TRUE(Metrics::Shutdown(timeout));
        early += mine < ended ? 1 : 0;
    }
    isOver = true;
    emitting.join();

    EXPECT_EQ(early, 0);
    EXPECT_EQ(mine, rounds);
}

TEST_F(MetricsDeadlineTest, TheExitDeadlineIsWaitedForOnceUntilTheBusHasCaughtUp) {
    constexpr milliseconds exitDeadline{300};
    Choose(WhenQueueIsFull::Wait, exitDeadline);
    const RefCntPtr<MetricsTest::RecordingListener> second = new MetricsTest::RecordingListener;
    const auto timeOf = [](const auto& action) {
        const auto begin = Clock::now();
        action();
        return Clock::now() - begin;
    };
    const RefCntPtr<Metrics::IMetricsListener> hanging(m_listener.Get());
    ASSERT_TRUE(m_bus.AddConsumer(hanging, flagTracing, false));
    HoldConsumer();

    // A gate that somebody else opens ends a wait; nobody opens it here.
    const auto first = timeOf([&] { m_bus.RemoveConsumer(hanging); });
    constexpr int more = 20;
    const auto others = timeOf([&] {
        for (int i = 0; i < more; ++i) {
            m_bus.RemoveConsumer(hanging);
        }
    });
    m_gate.Open();
    FlushAll();
    EXPECT_EQ(m_bus.GetConsumerCount(), 0U);
    ASSERT_TRUE(m_bus.AddConsumer(hanging, flagTracing, false));
    HoldConsumer();
    const auto afterwards = timeOf([&] { m_bus.RemoveConsumer(hanging); });
    m_gate.Open();
    FlushAll();

    EXPECT_GE(first, exitDeadline);
    EXPECT_LT(others, more * exitDeadline / 2);
    EXPECT_GE(afterwards, exitDeadline);
}

}  // namespace
