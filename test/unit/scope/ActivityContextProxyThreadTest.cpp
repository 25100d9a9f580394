#include "ActivityContextProxyTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/ThreadContextPropagator.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/MetricsEvent.h"

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Attributes = ActivityContextProxy::Attributes;
using Metrics::MetricsEventType;
using testing::Contains;
using testing::ElementsAre;
using testing::Pair;

TEST_F(ForegroundProxyTest, AnActivityMovesBetweenThreads) {
    std::optional<ActivityContextProxy> proxy;
    std::shared_ptr<ActivityContext> context;
    uint64 metricsContext = 0;

    OnAnotherThread([&] {
        proxy.emplace("job", Attributes{}, AllSix());
        context = Current();
        metricsContext = CurrentMetricsContext();
        proxy->DetachFromThread();
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(CurrentMetricsContext(), 0U);
    });
    OnAnotherThread([&] {
        proxy->AttachToThread();
        EXPECT_EQ(Current(), context);
        EXPECT_EQ(CurrentMetricsContext(), metricsContext);
        Sent();
        proxy->PutContextAttributes({{u"user", u"ann"}});
        EXPECT_EQ(m_events->First(MetricsEventType::AttributePairs).contextId, metricsContext);
        Sent();

        proxy->Close();

        EXPECT_THAT(Sent(),
                    ElementsAre(ThreadIdEvent(), ClosesJob(), PopsLayer(), ClosesContext()));
        EXPECT_EQ(Current(), nullptr);
        EXPECT_EQ(CurrentMetricsContext(), 0U);
    });
}

TEST_F(ForegroundProxyTest, ClosingElsewhereTakesTheActivityOffThatThreadOnly) {
    OnAnotherThread([this] {
        ActivityContextProxy proxy("job", {}, AllSix());
        const auto context = Current();
        Sent();

        OnAnotherThread([this, &proxy] {
            proxy.Close();
            EXPECT_THAT(Sent(), Contains(ThreadIdEvent()));
        });

        EXPECT_EQ(Current(), context);
    });
}

TEST_F(ForegroundProxyTest, AttachingOnItsOwnThreadMakesTheActivityCurrentAgain) {
    ActivityContextProxy proxy("job", {}, AllSix());
    const auto context = Current();
    const ActivityScope inner("inner");
    ASSERT_NE(Current(), context);

    proxy.AttachToThread();
    EXPECT_EQ(Current(), context);
    proxy.DetachFromThread();

    EXPECT_EQ(Current(), inner.GetActivityContext());
}

TEST_F(ForegroundProxyTest, TheMovesAreLogged) {
    ActivityContextProxy proxy("job", {}, AllSix());
    OptTarn::SetShouldLogForegroundActivity(true);

    proxy.DetachFromThread();
    proxy.AttachToThread();
    OptTarn::SetShouldLogForegroundActivity(false);

    EXPECT_THAT(Log().Messages(),
                ElementsAre(Pair(TLog::Info, "ActivityScope::DetachFromThread"),
                            Pair(TLog::Info, "ActivityScope::AttachToThread")));
}

TEST_F(ForegroundProxyTest, ACapturedProxyActivityHasChildrenOnOtherThreads) {
    const ActivityContextProxy proxy("job", {}, AllSix());
    const ThreadContextPropagator propagator;

    OnAnotherThread([&propagator] {
        const ActivityScope there("there",
                                  CustomContext(Metrics::NameValueList()),
                                  Traits(),
                                  {},
                                  ActivityContextInitializer{propagator.GetContext()});

        EXPECT_EQ(there.GetActivityContext()->GetSponsorId(), TString(u"A"));
        EXPECT_EQ(there.GetActivityContext()->GetTraceDepth(), 4);
    });
}

TEST_F(ForegroundProxyTest, ManyThreadsDriveProxiesOfTheirOwn) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < 3; ++number) {
        threads.emplace_back([&wrong, number] {
            const TString root = TString::number(number);
            for (int round = 0; round < 100; ++round) {
                ActivityContextProxy proxy("job", {{u"a", u"1"}}, {{u"__root__", root}});
                if (Current() == nullptr || Current()->GetRootId() != root) {
                    ++wrong;
                }
                proxy.PutContextAttributes({{u"user", u"ann"}});
                proxy.FailException(u"T", u"M");
                proxy.Close();
                if (Current() != nullptr) {
                    ++wrong;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(m_events->Count(MetricsEventType::OpenScope), 300U);
    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 300U);
}

}  // namespace
}  // namespace tarn::test
