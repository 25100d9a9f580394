#include "tarn/ActivityHandOver.h"

#include "AllocationCounter.h"
#include "HostCounters.h"
#include "Matchers.h"
#include "MonitoredHost.h"
#include "ScopeTest.h"
#include "ScopeTree.h"
#include "SilentSink.h"
#include "ThreadActivityRegistry.h"
#include "Threads.h"

#include "tarn/ActivityTracer.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/MetricsManager.h"

#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

class ActivityHandOverTest : public TarnTest {
protected:
    ActivityHandOverTest() {
        OptTarn::SetIsForegroundThreadContextEnabled(true);
        m_host.emplace();
    }

    /// Tracing is as if nobody had ever started it.
    void StopTracing() {
        m_host.reset();
        OptTarn::SetIsTarnEnabled(false);
    }

    std::string Tree() const { return DrawScopeTree(m_host->Events()); }

    std::size_t CountOf(const EventMatcher& matcher) const {
        std::size_t count = 0;
        for (const TLog::Event& event : m_host->Events()) {
            count += testing::Value(event, matcher) ? 1U : 0U;
        }
        return count;
    }

    std::optional<MonitoredHost> m_host;
};

TEST_F(ActivityHandOverTest, ARunContinuesTheActivityThatHandedItOver) {
    Metrics::AttributeImpl("user", "ada", Metrics::flagTracing);
    {
        const ActivityScope serve("serve");
        const ActivityScope step("step");
        OnAnotherThread([handOver = ActivityHandOver()] {
            const ActivityHandOver::Run work(handOver, "work", {{"piece", 1}});
            const ActivityScope part("part");
        });
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  step\n"
              "    work\n"
              "      part\n");
    EXPECT_THAT(m_host->Events(),
                Contains(AllOf(Begins("work"), HasUser("ada"), HasBodyField("piece", 1))));
}

TEST_F(ActivityHandOverTest, EachRunIsAnActivityOfItsOwn) {
    {
        const ActivityScope timer("timer");
        const ActivityHandOver handOver;
        for (int i = 0; i < 3; ++i) {
            OnAnotherThread([&handOver] { const ActivityHandOver::Run run(handOver, "tick"); });
        }
    }

    EXPECT_EQ(Tree(),
              "timer\n"
              "  tick\n"
              "  tick\n"
              "  tick\n");
}

TEST_F(ActivityHandOverTest, RunsWithinOneAnotherAndOnTheSameThreadEndInOrder) {
    {
        const ActivityScope serve("serve");
        const ActivityHandOver handOver;
        const ActivityHandOver::Run outer(handOver, "outer");
        const ActivityScope between("between");
        const ActivityHandOver::Run inner(handOver, "inner");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  outer\n"
              "    between\n"
              "  inner\n");
}

TEST_F(ActivityHandOverTest, CopiesRunOnManyThreadsAtOnce) {
    constexpr int threads = 4;
    constexpr int runs = 100;
    {
        const ActivityScope serve("serve");
        const ActivityHandOver handOver;
        OnThreadsAtOnce(threads, [handOver](int /*number*/) {
            for (int i = 0; i < runs; ++i) {
                const ActivityHandOver::Run run(handOver, "work");
                const ActivityScope part("part");
            }
        });
    }

    const std::optional<LogValue> serve = Field(m_host->Events().front(), Table::Activity, "id");
    ASSERT_TRUE(serve.has_value());
    constexpr std::size_t all = std::size_t{threads} * runs;
    EXPECT_EQ(CountOf(AllOf(Begins("work"), HasActivityField("sponsor", *serve))), all);
    EXPECT_EQ(CountOf(AllOf(Ends("work"), HasActivityField("rk", "ok"))), all);
    EXPECT_EQ(CountOf(AllOf(Ends("part"), HasActivityField("root", *serve))), all);
}

TEST_F(ActivityHandOverTest, WorkThatRunsLateStillBelongsToTheActivityThatHandedItOver) {
    std::optional<ActivityHandOver> handOver;
    std::shared_ptr<ActivityContext> step;
    const ActivityScope serve("serve");
    {
        const ActivityScope scope("step");
        step = scope.GetActivityContext();
        handOver.emplace();
    }

    OnAnotherThread([&] {
        const ActivityHandOver::Run run(*handOver, "late");

        const auto context = ActivityTracer::GetCurrentActivityContext();
        ASSERT_NE(context, nullptr);
        EXPECT_EQ(context->GetSponsorId(), step->GetActivityId());
        EXPECT_EQ(context->GetRootId(), step->GetRootId());
    });

    EXPECT_THAT(m_host->Events(),
                Contains(AllOf(Ends("late"),
                               HasActivityField("root", serve.GetActivityContext()->GetRootId()))));
}

TEST_F(ActivityHandOverTest, ARunMayOutliveItsHandOver) {
    {
        const ActivityScope serve("serve");
        auto handOver = std::make_unique<ActivityHandOver>();
        const ActivityHandOver::Run run(*handOver, "work");
        handOver.reset();
        const ActivityScope part("part");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  work\n"
              "    part\n");
}

TEST_F(ActivityHandOverTest, WhereNothingIsCurrentEachRunBeginsATreeOfItsOwn) {
    OnAnotherThread([] {
        const ActivityHandOver nothing;
        { const ActivityHandOver::Run first(nothing, "first"); }
        ActivityHandOver source;
        const ActivityHandOver taken = std::move(source);
        // That it is harmless is promised.
        // NOLINTNEXTLINE(bugprone-use-after-move): promised
        const ActivityHandOver::Run second(source, "second");
    });

    EXPECT_EQ(Tree(), "first\nsecond\n");
}

TEST_F(ActivityHandOverTest, WithoutForegroundContextsTheLogKnowsTheSponsorAllTheSame) {
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    {
        const ActivityScope serve("serve");
        OnAnotherThread([handOver = ActivityHandOver()] {
            const ActivityHandOver::Run work(handOver, "work");
        });
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  work\n");
}

TEST_F(ActivityHandOverTest, ARunTakesTypeAttributesAndResults) {
    {
        const ActivityScope serve("serve");
        const ActivityHandOver handOver;
        ActivityHandOver::Run run(handOver, "work", TraceType::Untracked, {{"piece", 2}});
        EXPECT_EQ(run.Scope().GetTraits().type, TraceType::Untracked);
        run.Scope().Add({{"found", 3}});
        run.Scope().Cancel({});
    }

    EXPECT_THAT(m_host->Events(), Contains(AllOf(Begins("work"), HasBodyField("piece", 2))));
    EXPECT_THAT(
        m_host->Events(),
        Contains(AllOf(
            Ends("work"), HasBodyField("found", 3), HasActivityField("rk", "early-termination"))));
}

TEST_F(ActivityHandOverTest, WhatBeginsInAContinuationBelongsToTheActivityThatHandedOver) {
    {
        const ActivityScope serve("serve");
        std::optional<ActivityHandOver> handOver;
        {
            const ActivityScope step("step");
            handOver.emplace();
        }
        {
            const ActivityHandOver::Continuation continuation(*handOver);
            const ActivityScope work("work");
        }
        const ActivityScope after("after");
    }

    EXPECT_EQ(CountOf(AllOf(Begins("work"), HasActivityField("depth", 2))), 1U);
    EXPECT_EQ(CountOf(AllOf(Begins("after"), HasActivityField("depth", 1))), 1U);
}

TEST_F(ActivityHandOverTest, ScopesGoOnInAContinuationThatHasLeft) {
    {
        const ActivityScope serve("serve");
        const ActivityHandOver handOver;
        ActivityHandOver::Continuation continuation(handOver);
        std::optional<ActivityScope> inside(std::in_place, "inside", TraceType::Untracked);
        continuation.Leave();
        const ActivityScope outside("outside", TraceType::Untracked);
        inside.reset();
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  inside\n"
              "  outside\n");
    EXPECT_EQ(CountOf(Ends("serve")), 1U);
}

// ---- What is left behind

TEST_F(ActivityHandOverTest, WorkThatNeverRunsLeavesNothingBehind) {
    constexpr int tasks = 10'000;
    for (const bool isTracing : {true, false}) {
        SCOPED_TRACE(isTracing ? "tracing" : "not tracing");
        if (!isTracing) {
            StopTracing();
        }
        const HostCounters counters;
        const ActivityScope serve("serve");
        const auto drop = [](int count) {
            for (int i = 0; i < count; ++i) {
                const ActivityHandOver handOver;
            }
        };
        drop(100);

        const AllocationCounter allocations;
        const int64 before = counters.contextsCreated - counters.contextsClosed;
        drop(tasks);

        EXPECT_LT(static_cast<int64>(allocations.Allocations() - allocations.Releases()), 10);
        EXPECT_EQ(counters.contextsCreated - counters.contextsClosed, before);
        EXPECT_GE(counters.contextsCreated, isTracing ? tasks : 0);
    }
}

TEST_F(ActivityHandOverTest, RunsLeaveNothingBehindEither) {
    constexpr int runs = 2'000;
    StopTracing();
    const ActivityScope serve("serve");
    const ActivityHandOver handOver;
    const auto run = [&handOver](int count) {
        for (int i = 0; i < count; ++i) {
            const ActivityHandOver::Run once(handOver, "work");
        }
    };
    run(100);

    const AllocationCounter allocations;
    run(runs);

    EXPECT_LT(static_cast<int64>(allocations.Allocations() - allocations.Releases()), 10);
}

TEST_F(ActivityHandOverTest, ARunThatFindsNoMemoryTakesItsMetricsContextAway) {
    m_host->Monitor().SetSink(std::make_unique<SilentSink>());
    const ActivityScope serve("serve");
    const ActivityHandOver handOver;
    { const ActivityHandOver::Run warmUp(handOver, "work"); }
    const uint64 current = CurrentMetricsContext();
    const HostCounters counters;
    bool hasFailed = true;

    for (uint64 number = 0; hasFailed && number < 1000; ++number) {
        const FailingAllocation failing(number);
        try {
            const ActivityHandOver::Run run(handOver, "work");
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(failing.HasFailed());
        }
        hasFailed = failing.HasFailed();

        const UnfailingAllocations unfailing;
        EXPECT_EQ(CurrentMetricsContext(), current) << number;
        // As any scope's, the activity context stays if it had been pushed by then.
        tarn::ThreadActivityRegistry& registry = tarn::ThreadActivityRegistry::GetInstance();
        while (registry.GetCurrentContext() != serve.GetActivityContext()) {
            registry.Remove(registry.GetCurrentContext());
        }
    }

    EXPECT_FALSE(hasFailed);
    EXPECT_EQ(counters.contextsCreated, counters.contextsClosed);
    EXPECT_EQ(counters.scopesOpened, counters.scopesClosed);
}

// ---- Runs that overlap

TEST_F(ActivityHandOverTest, UntrackedRunsOverlapOnOneThreadAndEachGetsWhatBeginsInIt) {
    {
        const ActivityScope loop("loop");
        const ActivityHandOver handOver;
        auto first =
            std::make_unique<ActivityHandOver::Run>(handOver, "first", TraceType::Untracked);
        first->DetachFromThread();
        auto second =
            std::make_unique<ActivityHandOver::Run>(handOver, "second", TraceType::Untracked);
        { const ActivityScope part("part-of-second"); }
        second->DetachFromThread();
        { const ActivityScope part("part-of-loop"); }
        first->AttachToThread();
        { const ActivityScope part("part-of-first"); }
        first.reset();
        second.reset();
        const ActivityScope part("last-of-loop");
    }

    EXPECT_EQ(Tree(),
              "loop\n"
              "  first\n"
              "    part-of-first\n"
              "  second\n"
              "    part-of-second\n"
              "  part-of-loop\n"
              "  last-of-loop\n");
}

TEST_F(ActivityHandOverTest, AnUntrackedRunMovesToAnotherThreadAndEndsThere) {
    {
        const ActivityScope serve("serve");
        auto run = std::make_unique<ActivityHandOver::Run>(
            ActivityHandOver(), "work", TraceType::Untracked);
        run->DetachFromThread();
        EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), serve.GetActivityContext());
        OnAnotherThread([&run] {
            run->AttachToThread();
            { const ActivityScope part("part"); }
            run.reset();
            EXPECT_EQ(ActivityTracer::GetCurrentActivityContext(), nullptr);
            EXPECT_EQ(CurrentMetricsContext(), 0U);
        });
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  work\n"
              "    part\n");
}

TEST_F(ActivityHandOverTest, AHandOverFitsIntoACopyableFunction) {
    {
        const ActivityScope serve("serve");
        const std::function<void()> work = [handOver = ActivityHandOver()] {
            const ActivityHandOver::Run run(handOver, "work");
        };
        std::vector<std::function<void()>> queue(2, work);
        for (const auto& task : queue) {
            task();
        }
    }

    EXPECT_EQ(CountOf(Ends("work")), 2U);
}

}  // namespace
}  // namespace tarn::test
