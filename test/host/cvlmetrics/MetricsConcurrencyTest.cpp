#include "MetricsTestSupport.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::CurrentContextId;
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
using tarn::test::Opens;
using tarn::test::OpensContext;
using tarn::test::SendsValue;
using testing::ElementsAre;

using namespace std::chrono_literals;

/// Threads that do one thing over and over again, from construction until the end of the block.
class Busy {
public:
    template <class Action>
    Busy(int threads, Action action) {
        for (int index = 0; index < threads; ++index) {
            m_threads.emplace_back([this, action] {
                while (!m_isOver.load(std::memory_order_relaxed)) {
                    action();
                }
            });
        }
    }

    ~Busy() {
        m_isOver.store(true, std::memory_order_relaxed);
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    std::atomic<bool> m_isOver{false};
    std::vector<std::thread> m_threads;
};

/// Something that happens once and that others wait for.
class Signal {
public:
    void Give() {
        const std::lock_guard lock(m_mutex);
        m_isGiven = true;
        m_condition.notify_all();
    }

    void Wait() {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [this] { return m_isGiven; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_isGiven = false;
};

/// Is called often, keeps nothing, and knows when it must not be called any more.
class WatchfulListener : public Metrics::IMetricsListener {
public:
    void OnMetricsEvent(const MetricsEvent&) override {
        ++m_calls;
        m_wasCalled.store(true);
        if (m_mustBeQuiet.load()) {
            m_wasCalledAfterwards.store(true);
        }
        if (m_inside.exchange(true)) {
            m_hasOverlapped.store(true);
        }
        m_inside.store(false);
    }

    void MustBeQuietFromNowOn() { m_mustBeQuiet.store(true); }

    bool WasCalledAfterwards() const { return m_wasCalledAfterwards.load(); }

    bool HasOverlapped() const { return m_hasOverlapped.load(); }

    /// Unsynchronised on purpose, as a monitor's state is.
    int Calls() const { return m_calls; }

    /// May be asked at any time.
    bool WasCalled() const { return m_wasCalled.load(); }

private:
    int m_calls = 0;
    std::atomic<bool> m_wasCalled{false};
    std::atomic<bool> m_inside{false};
    std::atomic<bool> m_mustBeQuiet{false};
    std::atomic<bool> m_wasCalledAfterwards{false};
    std::atomic<bool> m_hasOverlapped{false};
};

class MetricsConcurrencyTest : public MetricsTest::MetricsBusTest {};

TEST_F(MetricsConcurrencyTest, TheEventsOfEachContextArriveInTheOrderOfTheirEmission) {
    constexpr int threads = 4;
    constexpr int rounds = 500;
    std::vector<uint64> contextIds(threads);
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        std::vector<std::thread> workers;
        for (uint64& id : contextIds) {
            workers.emplace_back([&id] {
                const CurrentContext context;
                id = context.Id();
                for (int round = 0; round < rounds; ++round) {
                    Scope scope(flagTracing);
                    scope.OpenImpl("query");
                    scope.EmitImpl(MetricsEventType::NameValue, "round", round);
                }
            });
        }
        for (std::thread& worker : workers) {
            worker.join();
        }
    }

    std::vector<EventContent> expected{CreatesContext(), OpensContext()};
    for (int round = 0; round < rounds; ++round) {
        expected.insert(expected.end(),
                        {Opens("query"), SendsValue("round", round), Closes("query")});
    }
    expected.push_back(ClosesContext());
    for (const uint64 id : contextIds) {
        std::vector<EventContent> heard = m_listener->ContentsOf(id);
        ASSERT_GT(heard.size(), 2U);
        EXPECT_THAT(heard[2], IsOfType(MetricsEventType::Attribute));
        heard.erase(heard.begin() + 2);
        EXPECT_EQ(heard, expected);
    }
}

TEST_F(MetricsConcurrencyTest, NothingComesBetweenWhatAScopeSaysAtItsEnd) {
    constexpr int threads = 4;
    constexpr int rounds = 2000;
    uint64 endingScope = 0;
    int interrupted = 0;
    int ended = 0;
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        interrupted += endingScope != 0 && event.id != endingScope ? 1 : 0;
        ended += event.type == MetricsEventType::CloseScope ? 1 : 0;
        endingScope = event.type == MetricsEventType::NameValue ? event.id : 0;
        m_listener->Clear();
    });
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        std::vector<std::thread> workers;
        for (int i = 0; i < threads; ++i) {
            workers.emplace_back([] {
                const CurrentContext context;
                for (int round = 0; round < rounds; ++round) {
                    Scope scope(flagTracing);
                    scope.OpenImpl("query");
                    scope.Finish({{MetricsEventType::NameValue, "tid", 7},
                                  {MetricsEventType::NameValue, "rows", round}});
                }
            });
        }
        for (std::thread& worker : workers) {
            worker.join();
        }
    }

    EXPECT_EQ(ended, threads * rounds);
    EXPECT_EQ(interrupted, 0);
}

TEST_F(MetricsConcurrencyTest, AContextThatMovesBetweenThreadsKeepsItsOrder) {
    constexpr int moves = 100;
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        const Busy noise(1, [] {
            const CurrentContext context;
            Work("noise");
        });
        CurrentContext context;
        context.Get().DetachFromThread();
        std::atomic<int> turn{0};
        const auto play = [&](int player) {
            for (int move = player; move < moves; move += 2) {
                while (turn.load(std::memory_order_acquire) != move) {
                    std::this_thread::yield();
                }
                context.Get().AttachToThread();
                Metrics::AttributeImpl("move", move, flagTracing);
                context.Get().DetachFromThread();
                turn.store(move + 1, std::memory_order_release);
            }
        };
        std::thread other(play, 1);
        play(0);
        other.join();
    }

    int next = 0;
    for (const MetricsEvent& event : m_listener->Events()) {
        if (event.type == MetricsEventType::Attribute && event.name == "move") {
            EXPECT_EQ(event.value.integer, next);
            ++next;
        }
    }
    EXPECT_EQ(next, moves);
}

TEST_F(MetricsConcurrencyTest, AListenerIsNotCalledOnceItsRemovalHasReturned) {
    const Busy emitters(2, [] {
        const CurrentContext context;
        Work("query");
    });

    for (int round = 0; round < 200; ++round) {
        const RefCntPtr<WatchfulListener> listener = new WatchfulListener;
        m_bus.AddConsumer(listener, flagTracing, false);
        std::this_thread::yield();
        m_bus.RemoveConsumer(listener);
        listener->MustBeQuietFromNowOn();
        const int calls = listener->Calls();
        std::this_thread::yield();

        ASSERT_FALSE(listener->WasCalledAfterwards());
        ASSERT_FALSE(listener->HasOverlapped());
        ASSERT_EQ(listener->Calls(), calls);
        ASSERT_EQ(listener->GetRefCount(), 1);
    }
}

TEST_F(MetricsConcurrencyTest, RemovalWaitsForTheCallThatIsRunning) {
    Signal entered;
    Signal leave;
    std::atomic<bool> isInside{false};
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            isInside.store(true);
            entered.Give();
            leave.Wait();
            isInside.store(false);
        }
    });
    m_bus.AddConsumer(m_listener, flagTracing, false);
    std::thread emitter([] {
        const CurrentContext context;
        Work("query");
    });
    entered.Wait();

    std::thread release([&] {
        std::this_thread::sleep_for(20ms);
        leave.Give();
    });
    m_bus.RemoveConsumer(m_listener);

    EXPECT_FALSE(isInside.load());
    release.join();
    emitter.join();
}

TEST_F(MetricsConcurrencyTest, TwoConsumersMayRemoveEachOtherFromTwoThreads) {
    for (int round = 0; round < 200; ++round) {
        const RefCntPtr<RecordingListener> first = new RecordingListener;
        const RefCntPtr<RecordingListener> second = new RecordingListener;
        const auto removeTheOther = [this](const RefCntPtr<RecordingListener>& other) {
            return [this, other](const MetricsEvent& event) {
                if (event.type == MetricsEventType::OpenScope) {
                    m_bus.RemoveConsumer(other);
                }
            };
        };
        first->CallOnEach(removeTheOther(second));
        second->CallOnEach(removeTheOther(first));
        // Each of them hears one of the two threads only.
        m_bus.AddConsumer(first, 0x1, false);
        m_bus.AddConsumer(second, 0x2, false);
        const auto emit = [](uint64 bits) {
            const CurrentContext context;
            Scope scope(bits);
            scope.OpenImpl("query");
        };

        std::thread one(emit, 0x1);
        std::thread two(emit, 0x2);
        one.join();
        two.join();

        ASSERT_EQ(m_bus.GetConsumerCount(), 1U) << "the one that was first must have stayed";
        m_bus.RemoveConsumer(first);
        m_bus.RemoveConsumer(second);
        first->CallOnEach({});
        second->CallOnEach({});
    }
}

TEST_F(MetricsConcurrencyTest, ConsumersMayComeAndGoWhileEventsFlow) {
    const RefCntPtr<WatchfulListener> steady = new WatchfulListener;
    {
        const Subscription subscription(*steady, flagTracing, false);
        const Busy emitters(2, [] {
            const CurrentContext context;
            Work("query");
        });
        const Busy changers(2, [this] {
            const RefCntPtr<RecordingListener> passing = new RecordingListener;
            m_bus.AddConsumer(passing, flagTracing, true);
            m_bus.AddConsumer(passing, 0x1, false);
            m_bus.RemoveConsumer(passing);
        });
        // On a busy machine the emitters may not have had a turn by then.
        do {
            std::this_thread::sleep_for(100ms);
        } while (!steady->WasCalled());
    }

    EXPECT_FALSE(steady->HasOverlapped());
    EXPECT_GT(steady->Calls(), 0);
    EXPECT_TRUE(!Metrics::TestBits(flagTracing));
}

TEST_F(MetricsConcurrencyTest, TestBitsNeverRefusesWhatIsWantedBeforeAndAfterAChange) {
    std::atomic<int> refusals{0};
    std::atomic<int> rounds{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    {
        const Busy readers(1, [&] {
            rounds.fetch_add(1, std::memory_order_relaxed);
            for (int repeat = 0; repeat < 100; ++repeat) {
                if (!Metrics::TestBits(flagTracing)) {
                    refusals.fetch_add(1, std::memory_order_relaxed);
                }
            }
        });
        const auto end = std::chrono::steady_clock::now() + 200ms;
        while (std::chrono::steady_clock::now() < end || rounds.load() < 10) {
            m_bus.AddConsumer(m_listener, 0, true);
            m_bus.AddConsumer(m_listener, flagTracing, false);
        }
    }

    EXPECT_EQ(refusals.load(), 0);
}

TEST_F(MetricsConcurrencyTest, AContextMayEndWhileItsFormerThreadLooksAtItsStack) {
    const Subscription subscription(*m_listener, 0, false);

    for (int round = 0; round < 200; ++round) {
        auto context = std::make_unique<CurrentContext>();
        const uint64 id = context->Id();
        std::thread other([&] { context.reset(); });
        uint64 seen = id;
        while (seen != 0) {
            seen = CurrentContextId();
            ASSERT_TRUE(seen == 0 || seen == id);
            std::this_thread::yield();
        }
        other.join();
    }
}

TEST_F(MetricsConcurrencyTest, AnEmissionFromADeliveryOvertakesNoOtherThread) {
    // While one thread delivers and emits, the other one's event waits for all of it.
    Signal entered;
    std::vector<EventContent> order;
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        order.push_back(ContentOf(event));
        if (IsOpeningOf(event, "outer")) {
            entered.Give();
            Work("inner");
            std::this_thread::sleep_for(20ms);
        }
    });
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);
    std::thread other([&] {
        entered.Wait();
        const CurrentContext own;
        Work("other");
    });

    Scope outer(flagTracing);
    outer.OpenImpl("outer");
    other.join();

    ASSERT_GE(order.size(), 3U);
    order.resize(3);
    EXPECT_THAT(order, ElementsAre(Opens("outer"), Opens("inner"), Closes("inner")));
}

}  // namespace
