#include "MetricsAsynchronousTest.h"

#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Statistics.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Metrics::DeliveryMode;
using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::smallQueue;
using MetricsTest::Subscription;
using MetricsTest::timeout;

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

    const auto [steps, outOfOrder] = CountSteps(m_listener->Events());
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

    EXPECT_EQ(CountSteps(m_listener->Events()).second, 0U);
    EXPECT_EQ(m_listener->Last().time, 7);
}

TEST_F(MetricsAsynchronousTest, TheOrderHoldsWhileTheWayOfDeliveryChanges) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 lostBefore = Metrics::GetBusStatistics().lostEvents;
    std::atomic<bool> isOver{false};
    std::thread switcher([&isOver] {
        for (int i = 0; !isOver.load(); ++i) {
            if (i % 3 == 2) {
                Metrics::Shutdown(timeout);
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

    EXPECT_EQ(CountSteps(m_listener->Events()).second, 0U);
    EXPECT_EQ(Metrics::GetBusStatistics().lostEvents, lostBefore);
}

}  // namespace
