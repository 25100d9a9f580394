#include "FaultTest.h"
#include "LineChecker.h"
#include "Matchers.h"
#include "ScopeWorkload.h"

#include "tarn/ActivityScope.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Statistics.h"

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::DeliveryMode;

constexpr int threads = 4;
constexpr uint64 scopes = 3000;

class MisbehaviourTest : public FaultTest, public testing::WithParamInterface<DeliveryMode> {
protected:
    static bool IsAsynchronous() { return GetParam() == DeliveryMode::Asynchronous; }

    /// What the host does after all that: its scopes are traced as if nothing had been.
    void ExpectNextScopeIsTraced() {
        m_lines->clear();
        { const ActivityScope scope("next"); }
        Deliver();
        EXPECT_EQ(Lines("next").begins, 1);
        EXPECT_EQ(Lines("next").ends, 1);
        EXPECT_EQ(Lines("next").sponsor, "");
    }
};

TEST_P(MisbehaviourTest, ASinkThatThrowsNowAndThenCostsItsLinesAndNothingElse) {
    uint64 lines = 0;
    uint64 thrown = 0;
    bool isFaulty = true;
    Start(GetParam(), [&](const TLog::Event&) {
        if (isFaulty && ++lines % 7 == 0) {
            ++thrown;
            throw std::runtime_error("the disk has a bad day");
        }
        if (isFaulty && lines % 11 == 0) {
            ++thrown;
            throw 11;
        }
    });
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;
    stress::ScopeWorkload workload(threads, 1);

    workload.Run(scopes);
    Deliver();

    EXPECT_GT(thrown, scopes / 7);
    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions - before, thrown);
    EXPECT_EQ(m_lines->size() + thrown, 2 * workload.OpenedScopes());
    ExpectNothingOpen();
    isFaulty = false;
    ExpectNextScopeIsTraced();
}

TEST_P(MisbehaviourTest, ASinkThatSleepsHoldsUpTheHostOnlyIfItAsksForThat) {
    constexpr int count = 20;
    std::atomic<int> lines{0};
    std::promise<void> hostIsDone;
    const std::shared_future<void> wakesUp = hostIsDone.get_future().share();
    const auto wakesUpAnyway = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    Start(GetParam(), [&](const TLog::Event&) {
        if (IsAsynchronous()) {
            // A host that waits for this sink finds it asleep for long.
            wakesUp.wait_until(wakesUpAnyway);
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
        ++lines;
    });

    for (int i = 0; i < count; ++i) {
        const ActivityScope scope("load");
    }
    const int linesAtEnd = lines;
    hostIsDone.set_value();
    Deliver();

    if (IsAsynchronous()) {
        EXPECT_EQ(linesAtEnd, 0);
    } else {
        EXPECT_EQ(linesAtEnd, 2 * count);
    }
    EXPECT_EQ(lines, 2 * count);
    EXPECT_EQ(Lines("load").begins, count);
    EXPECT_EQ(Lines("load").ends, count);
    ExpectNothingOpen();
}

TEST_P(MisbehaviourTest, AScopeThatASinkOpensIsTracedLikeAnyOther) {
    constexpr int count = 200;
    Start(GetParam(), [](const TLog::Event& event) {
        if (event.GetName() == u"begin-load") {
            ActivityScope scope("echo", {{"of", "load"}});
            scope.Add({{"rows", 1}});
        }
    });

    OnThreadsAtOnce(threads, [](int) {
        for (int i = 0; i < count / threads; ++i) {
            const ActivityScope outer("outer");
            const ActivityScope scope("load");
        }
    });
    Deliver();

    for (const char* const name : {"outer", "load", "echo"}) {
        EXPECT_EQ(Lines(name).begins, count) << name;
        EXPECT_EQ(Lines(name).ends, count) << name;
    }
    ExpectNothingOpen();
    ExpectNextScopeIsTraced();
}

TEST_P(MisbehaviourTest, WithAClockThatStandsStillNothingTakesTimeAndTheOrderHolds) {
    Metrics::SetClock([]() noexcept {
        return Metrics::ClockReading{.time = 7, .wallSeconds = 1'700'000'000, .wallMicros = 5};
    });
    stress::LineChecker checker;
    Start(GetParam(), [&checker](const TLog::Event& event) { checker.Take(event); });
    stress::ScopeWorkload workload(threads, 2);

    workload.Run(scopes);
    Deliver();

    EXPECT_EQ(checker.Errors(), 0U) << testing::PrintToString(checker.ErrorTexts());
    EXPECT_EQ(checker.Begins(), workload.OpenedScopes());
    EXPECT_EQ(checker.Ends(), workload.OpenedScopes());
    for (const TLog::Event& event : *m_lines) {
        const auto elapsed = Field(event, Table::Activity, "elapsed");
        ASSERT_TRUE(!elapsed || *elapsed == LogValue(0.0)) << elapsed->Text();
    }
    ExpectNothingOpen();
}

INSTANTIATE_TEST_SUITE_P(Delivered,
                         MisbehaviourTest,
                         testing::Values(DeliveryMode::Synchronous, DeliveryMode::Asynchronous),
                         [](const auto& mode) {
                             return mode.param == DeliveryMode::Synchronous ? "Synchronously"
                                                                            : "Asynchronously";
                         });

}  // namespace
}  // namespace tarn::test
