#include "AtThreadExit.h"
#include "ChildProcess.h"
#include "CountingListener.h"
#include "MetricsTestSupport.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::CurrentContextId;
using MetricsTest::Subscription;
using MetricsTest::Work;
using tarn::test::Closes;
using tarn::test::ClosesContext;
using tarn::test::CountingListener;
using tarn::test::EventContent;
using tarn::test::SucceedsInChild;

class MetricsForkTest : public MetricsTest::MetricsBusTest {
protected:
    const Metrics::MetricsValue m_name{"query"};

    void EmitOneScope() const {
        Scope scope(flagTracing);
        scope.OpenImpl(Metrics::MetricsValue(m_name));
    }
};

TEST_F(MetricsForkTest, AChildGetsOnWithItsLifeWhileOtherThreadsWereEmitting) {
    const RefCntPtr<CountingListener> listener = new CountingListener;
    const Subscription subscription(*listener, flagTracing, false);
    const CurrentContext context;
    std::atomic<bool> isOver{false};
    std::vector<std::thread> emitters;
    for (int index = 0; index < 2; ++index) {
        emitters.emplace_back([&] {
            const CurrentContext own;
            while (!isOver.load(std::memory_order_relaxed)) {
                EmitOneScope();
            }
        });
    }

    int failures = 0;
    for (int round = 0; round < 50; ++round) {
        const bool isWell = SucceedsInChild([&] {
            const int before = listener->Count(MetricsEventType::OpenScope);
            EmitOneScope();
            return listener->Count(MetricsEventType::OpenScope) == before + 1;
        });
        failures += isWell ? 0 : 1;
    }

    isOver.store(true);
    for (std::thread& emitter : emitters) {
        emitter.join();
    }
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(listener->Count(MetricsEventType::OpenScope),
              listener->Count(MetricsEventType::CloseScope));
}

TEST_F(MetricsForkTest, AListenerMayForkAndBothSidesGoOn) {
    pid_t child = -1;
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        if (child < 0 && event.type == MetricsEventType::OpenScope) {
            child = fork();
        }
    });

    Work("query");
    Work("afterwards");
    if (child == 0) {
        alarm(20);
        _exit(m_listener->Count() == 4 ? 0 : 1);
    }

    EXPECT_EQ(tarn::test::ExitCodeOf(child), 0);
    EXPECT_EQ(m_listener->Count(), 4U);
}

TEST_F(MetricsForkTest, AListenerMayForkInTheMiddleOfAScopesEnd) {
    pid_t child = -1;
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    m_listener->Clear();
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        if (child < 0 && event.type == MetricsEventType::NameValue) {
            child = fork();
        }
    });

    Scope scope(flagTracing);
    scope.OpenImpl("query");
    scope.Finish({{MetricsEventType::NameValue, "tid", 7}});
    if (child == 0) {
        alarm(20);
        Work("afterwards");
        const std::vector<EventContent> said = m_listener->Contents();
        _exit(said[2] == Closes("query") && said.back() == Closes("afterwards") ? 0 : 1);
    }

    EXPECT_EQ(tarn::test::ExitCodeOf(child), 0);
    EXPECT_EQ(m_listener->Count(), 3U);
}

/// The end of a process, seen from outside. The statement runs in a process of its own, and what it
/// writes to the standard error stream proves that its parts were reached.
class MetricsExitDeathTest : public MetricsTest::MetricsBusTest {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

void EmitAtTheEnd(const char* place) {
    const CurrentContext context;
    Scope scope(flagTracing);
    scope.OpenImpl(place);
    Metrics::AttributeImpl("where", place, flagTracing);
    std::fprintf(stderr, "%s ran\n", place);
}

struct EmittingAtItsEnd {
    explicit EmittingAtItsEnd(const char* where) : place(where) {}

    ~EmittingAtItsEnd() { EmitAtTheEnd(place); }

    const char* place;
};

void LeaveWithEverythingOpen() {
    static const RefCntPtr<CountingListener> listener = new CountingListener;
    Metrics::MetricsManager::GetInstance().AddConsumer(listener, flagTracing, true);
    static const EmittingAtItsEnd destroyedStatically("static destructor");
    thread_local const EmittingAtItsEnd destroyedWithTheThread("thread_local destructor");
    static_cast<void>(&destroyedWithTheThread);
    std::atexit([] { EmitAtTheEnd("atexit handler"); });
    std::thread([] {
        const CurrentContext context;
        for (;;) {
            Work("late thread");
        }
    }).detach();
    const CurrentContext context;
    Scope open(flagTracing);
    open.OpenImpl("open for ever");
    std::exit(0);
}

TEST_F(MetricsExitDeathTest, ScopesInTheLastCornersOfAProcessAreHarmless) {
    EXPECT_EXIT(LeaveWithEverythingOpen(),
                testing::ExitedWithCode(0),
                "thread_local destructor ran.*atexit handler ran.*static destructor ran");
}

TEST_F(MetricsExitDeathTest, AListenerThatIsStillSubscribedAtExitIsHarmless) {
    EXPECT_EXIT(
        {
            Metrics::MetricsManager::GetInstance().AddConsumer(m_listener, flagTracing, true);
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "");
}

class MetricsThreadTeardownTest : public MetricsTest::MetricsBusTest {};

// Made before the thread's first context, it is destroyed after the thread's stack of contexts.
thread_local tarn::test::AtThreadExit t_observer;

TEST_F(MetricsThreadTeardownTest, NoContextIsCurrentAndNoneBecomesItAnyMore) {
    uint64 left = 1;
    uint64 opened = 1;
    bool isScopeOpen = true;
    std::unique_ptr<CurrentContext> leftOnTheStack;
    std::thread([&] {
        t_observer.action = [&] {
            left = CurrentContextId();
            const CurrentContext context;
            opened = CurrentContextId();
            Scope scope(flagTracing);
            scope.OpenImpl("too late");
            isScopeOpen = scope.IsOpen();
        };
        leftOnTheStack = std::make_unique<CurrentContext>();
    }).join();

    EXPECT_EQ(left, 0U);
    EXPECT_EQ(opened, 0U);
    EXPECT_FALSE(isScopeOpen);
}

TEST_F(MetricsThreadTeardownTest, AScopeThatOutlivesItsThreadsStackStillCloses) {
    uint64 contextId = 0;
    const Subscription subscription(*m_listener, flagTracing, false);
    std::thread([&] {
        t_observer.action = nullptr;
        auto* const context = new CurrentContext;
        auto* const scope = new Scope(flagTracing);
        scope->OpenImpl("query");
        contextId = context->Id();
        t_observer.action = [scope, context] {
            delete scope;
            delete context;
        };
    }).join();

    EXPECT_EQ(m_listener->ContentsOf(contextId).back(), ClosesContext());
    ASSERT_EQ(m_listener->ContentsOf(contextId).size(), 6U);
    EXPECT_EQ(m_listener->ContentsOf(contextId)[4], Closes("query"));
}

}  // namespace
