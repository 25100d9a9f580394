#include "MetricsAsynchronousTest.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::IMetricsListener;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::WhenQueueIsFull;
using MetricsTest::CurrentContext;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::moment;
using MetricsTest::RecordingListener;
using MetricsTest::Subscription;
using MetricsTest::timeout;
using MetricsTest::Work;
using tarn::test::Closes;
using tarn::test::CreatesContext;
using tarn::test::OpensContext;
using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using Clock = std::chrono::steady_clock;

/// Does what it is told with each event, and says when it is destroyed.
class MortalListener : public IMetricsListener {
public:
    MortalListener(std::atomic<bool>& isDestroyed, std::function<void()> reaction)
        : m_isDestroyed(isDestroyed),
          m_reaction(std::move(reaction)) {}

    ~MortalListener() override { m_isDestroyed = true; }

    void OnMetricsEvent(const MetricsEvent&) override { m_reaction(); }

private:
    std::atomic<bool>& m_isDestroyed;
    const std::function<void()> m_reaction;
};

/// Listeners that come and go while one of them does not return.
class MetricsHangingListenerTest : public MetricsAsynchronousTest {
protected:
    MetricsHangingListenerTest() { Choose(WhenQueueIsFull::Wait, moment); }

    bool Remove(const RefCntPtr<IMetricsListener>& listener) {
        return m_bus.RemoveConsumer(listener);
    }
};

TEST_F(MetricsHangingListenerTest, AListenerThatIsRemovedInItsOwnCallOutlivesTheCall) {
    const RefCntPtr<IMetricsListener> newcomer = new RecordingListener;
    std::atomic<bool> isDestroyed{false};
    std::atomic<bool> isDestroyedInCall{false};
    m_gate.Close();
    RefCntPtr<IMetricsListener> listener = new MortalListener(isDestroyed, [&] {
        m_gate.Pass();
        m_bus.AddConsumer(newcomer, flagTracing, false);
        isDestroyedInCall = isDestroyed.load();
    });
    ASSERT_TRUE(m_bus.AddConsumer(listener, flagTracing, false));
    tarn::test::OnAnotherThread([] { const CurrentContext context; });
    m_gate.AwaitSomeoneBefore();

    EXPECT_TRUE(Remove(listener));
    listener = RefCntPtr<IMetricsListener>();
    m_gate.Open();
    FlushAll();

    EXPECT_FALSE(isDestroyedInCall);
    EXPECT_TRUE(isDestroyed);
    EXPECT_TRUE(Remove(newcomer));
}

TEST_F(MetricsHangingListenerTest, AListenerThatIsRemovedWhileAnotherOneHangsIsNotCalledAfterIt) {
    const RefCntPtr<RecordingListener> recorder = new RecordingListener;
    const RefCntPtr<IMetricsListener> newcomer(recorder.Get());
    std::atomic<bool> isDestroyed{false};
    std::atomic<int> calls{0};
    const Subscription first(*m_listener, flagTracing, false);
    RefCntPtr<IMetricsListener> second = new MortalListener(isDestroyed, [&] { ++calls; });
    ASSERT_TRUE(m_bus.AddConsumer(second, flagTracing, false));
    m_gate.Close();
    m_listener->CallOnEach([&](const MetricsEvent&) {
        m_gate.Pass();
        m_bus.AddConsumer(newcomer, flagTracing, false);
    });
    tarn::test::OnAnotherThread([] { const CurrentContext context; });
    m_gate.AwaitSomeoneBefore();

    EXPECT_TRUE(Remove(second));
    second = RefCntPtr<IMetricsListener>();
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(isDestroyed);
    EXPECT_THAT(recorder->Contents(), Not(Contains(CreatesContext())))
        << "it starts with the next event";
    EXPECT_THAT(recorder->Contents(), Contains(OpensContext()));
    EXPECT_TRUE(Remove(newcomer));
}

TEST_F(MetricsHangingListenerTest, ANewcomerWaitsForTheExitDeadlineAtMostAndComesLater) {
    for (const auto mode :
         {Metrics::DeliveryMode::Asynchronous, Metrics::DeliveryMode::Synchronous}) {
        Metrics::SetDelivery({.mode = mode, .exitDeadline = moment});
        const RefCntPtr<RecordingListener> newcomer = new RecordingListener;
        const Subscription subscription(*m_listener, flagTracing, false);
        m_gate.Close();
        m_listener->CallOnEach([this](const MetricsEvent&) { m_gate.Pass(); });
        std::thread emitting([] { const CurrentContext context; });
        m_gate.AwaitSomeoneBefore();

        const auto begin = Clock::now();
        const Subscription later(*newcomer, flagTracing, false);
        const auto took = Clock::now() - begin;
        m_gate.Open();
        emitting.join();
        FlushAll();
        {
            const CurrentContext context;
            Work("query");
        }
        FlushAll();

        EXPECT_GE(took, moment);
        EXPECT_LT(took, timeout);
        EXPECT_THAT(newcomer->Contents(), Contains(Closes("query")));
    }
}

TEST_F(MetricsHangingListenerTest, ARemovalWaitsForTheExitDeadlineAtMostAlsoSynchronously) {
    Metrics::SetDelivery({.exitDeadline = moment});
    const RefCntPtr<IMetricsListener> listener(m_listener.Get());
    ASSERT_TRUE(m_bus.AddConsumer(listener, flagTracing, false));
    m_gate.Close();
    m_listener->CallOnEach([this](const MetricsEvent&) { m_gate.Pass(); });
    std::thread emitting([] { const CurrentContext context; });
    m_gate.AwaitSomeoneBefore();

    const auto begin = Clock::now();
    EXPECT_TRUE(Remove(listener));
    const auto took = Clock::now() - begin;
    m_gate.Open();
    emitting.join();

    EXPECT_GE(took, moment);
    EXPECT_LT(took, timeout);
    EXPECT_EQ(m_listener->Count(), 1U) << "the one that it hangs in";
}

TEST_F(MetricsHangingListenerTest, WhoComesAndGoesWhileAnotherHangsIsGone) {
    const RefCntPtr<RecordingListener> guest = new RecordingListener;
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();

    { const Subscription visit(*guest, flagTracing, false); }
    m_gate.Open();
    FlushAll();
    { const CurrentContext context; }
    FlushAll();

    EXPECT_THAT(guest->Events(), IsEmpty());
    EXPECT_EQ(m_bus.GetConsumerCount(), 1U);
}

}  // namespace
