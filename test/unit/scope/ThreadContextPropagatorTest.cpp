#include "tarn/ThreadContextPropagator.h"

#include "TarnTest.h"
#include "ThreadActivityRegistry.h"

#include "tarn/ActivityContext.h"
#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <atomic>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr const char* withoutContext =
    "ThreadContextPropagator::ThreadContextPropagator No ActivityContext";

class ThreadContextPropagatorTest : public TarnTest {
protected:
    ~ThreadContextPropagatorTest() override {
        for (const auto& context : m_pushed) {
            ThreadActivityRegistry::GetInstance().Remove(context);
        }
    }

    std::shared_ptr<ActivityContext> PushContext(const char16_t* root, const char16_t* activity) {
        auto context = std::make_shared<ActivityContext>(
            TString(u"r"), TString(root), TString(activity), TString(u"sp"), 3, 4);
        ThreadActivityRegistry::GetInstance().Push(context);
        m_pushed.push_back(context);
        return context;
    }

private:
    std::vector<std::shared_ptr<ActivityContext>> m_pushed;
};

TEST_F(ThreadContextPropagatorTest, OnANewThreadThereIsNothingToCapture) {
    PushContext(u"root", u"act");

    OnAnotherThread([] { EXPECT_EQ(ThreadContextPropagator().GetContext(), nullptr); });
}

TEST_F(ThreadContextPropagatorTest, TheCurrentContextIsCaptured) {
    PushContext(u"root", u"outer");
    const auto current = PushContext(u"root", u"inner");

    EXPECT_EQ(ThreadContextPropagator().GetContext(), current);
}

TEST_F(ThreadContextPropagatorTest, WhatBecomesCurrentLaterIsNotCaptured) {
    const auto captured = PushContext(u"root", u"first");
    const ThreadContextPropagator propagator;

    PushContext(u"root", u"second");

    EXPECT_EQ(propagator.GetContext(), captured);
}

TEST_F(ThreadContextPropagatorTest, TheContextOutlivesItsScope) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    std::weak_ptr<ActivityContext> watch;
    {
        std::optional<ThreadContextPropagator> propagator;
        {
            const ActivityScope scope("work");
            propagator.emplace();
            watch = scope.GetActivityContext();
        }

        EXPECT_FALSE(watch.expired());
        EXPECT_EQ(propagator->GetContext(), watch.lock());
        EXPECT_EQ(ThreadContextPropagator().GetContext(), nullptr);
    }

    EXPECT_TRUE(watch.expired());
}

TEST_F(ThreadContextPropagatorTest, TheContextOutlivesTheThreadItWasCapturedOn) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    std::optional<ThreadContextPropagator> propagator;
    TString id;

    OnAnotherThread([&] {
        const ActivityScope scope("work");
        id = scope.GetActivityContext()->GetActivityId();
        propagator.emplace();
    });

    ASSERT_NE(propagator->GetContext(), nullptr);
    EXPECT_EQ(propagator->GetContext()->GetActivityId(), id);
}

TEST_F(ThreadContextPropagatorTest, APropagatorPushesNothing) {
    PushContext(u"root", u"act");
    const ThreadContextPropagator propagator;

    OnAnotherThread([copy = propagator] {
        EXPECT_NE(copy.GetContext(), nullptr);
        EXPECT_EQ(ThreadActivityRegistry::GetInstance().GetDepth(), 0U);
    });

    EXPECT_EQ(ThreadActivityRegistry::GetInstance().GetDepth(), 1U);
}

TEST_F(ThreadContextPropagatorTest, ACopyHoldsTheSameContextWithOneMoreReference) {
    const auto context = PushContext(u"root", u"act");
    const ThreadContextPropagator propagator;
    const long before = context.use_count();

    const ThreadContextPropagator copy(propagator);

    EXPECT_EQ(copy.GetContext(), context);
    EXPECT_EQ(context.use_count(), before + 1);
}

TEST_F(ThreadContextPropagatorTest, AssigningReleasesThePreviousContext) {
    const auto first = PushContext(u"root", u"first");
    ThreadContextPropagator propagator;
    const auto second = PushContext(u"root", u"second");
    const ThreadContextPropagator other;
    const long firstBefore = first.use_count();
    const long secondBefore = second.use_count();

    propagator = other;

    EXPECT_EQ(propagator.GetContext(), second);
    EXPECT_EQ(first.use_count(), firstBefore - 1);
    EXPECT_EQ(second.use_count(), secondBefore + 1);
}

TEST_F(ThreadContextPropagatorTest, AssigningAPropagatorToItselfKeepsItsContext) {
    const auto context = PushContext(u"root", u"act");
    ThreadContextPropagator propagator;
    const ThreadContextPropagator& itself = propagator;
    const long before = context.use_count();

    propagator = itself;

    EXPECT_EQ(propagator.GetContext(), context);
    EXPECT_EQ(context.use_count(), before);
}

TEST_F(ThreadContextPropagatorTest, ADestroyedPropagatorReleasesItsContext) {
    const auto context = PushContext(u"root", u"act");
    const long before = context.use_count();

    {
        const ThreadContextPropagator propagator;
        EXPECT_EQ(context.use_count(), before + 1);
    }

    EXPECT_EQ(context.use_count(), before);
}

TEST_F(ThreadContextPropagatorTest, APropagatorIsAPlainValue) {
    EXPECT_FALSE(std::is_polymorphic_v<ThreadContextPropagator>);
    EXPECT_EQ(sizeof(ThreadContextPropagator), sizeof(std::shared_ptr<ActivityContext>));
}

// ---- Handing work over

TEST_F(ThreadContextPropagatorTest, AScopeOnTheOtherThreadBecomesAChildOfTheCapturedContext) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const ActivityScope here("here");
    const auto parent = here.GetActivityContext();
    const ThreadContextPropagator propagator;

    OnAnotherThread([&parent, copy = propagator] {
        const ActivityScope there("there",
                                  CustomContext(Metrics::NameValueList{}),
                                  Traits(),
                                  {},
                                  ActivityContextInitializer{copy.GetContext(), false});
        const auto context = there.GetActivityContext();

        EXPECT_EQ(context->GetRootId(), parent->GetRootId());
        EXPECT_EQ(context->GetSponsorId(), parent->GetActivityId());
        EXPECT_EQ(context->GetTraceDepth(), parent->GetTraceDepth() + 1);
        EXPECT_EQ(context->GetServiceDepth(), parent->GetServiceDepth() + 1);
        EXPECT_NE(context->GetActivityId(), parent->GetActivityId());
        EXPECT_EQ(ThreadActivityRegistry::GetInstance().GetCurrentContext(), context);
    });
}

TEST_F(ThreadContextPropagatorTest, ManyThreadsMayReadCopiesOfOnePropagator) {
    const auto context = PushContext(u"root", u"act");
    const ThreadContextPropagator propagator;
    std::atomic<int> wrong{0};

    OnThreadsAtOnce(4, [&wrong, &context, &propagator](int) {
        for (int n = 0; n < 5000; ++n) {
            const ThreadContextPropagator copy(propagator);
            if (copy.GetContext() != context ||
                copy.GetContext()->GetActivityId() != TString(u"act")) {
                ++wrong;
            }
        }
    });

    EXPECT_EQ(wrong.load(), 0);
}

// ---- Diagnostics

TEST_F(ThreadContextPropagatorTest, NothingIsLoggedWhileForegroundActivityIsNotLogged) {
    PushContext(u"root", u"act");
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    const ThreadContextPropagator propagator;

    EXPECT_THAT(Log().Messages(), IsEmpty());
    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(ThreadContextPropagatorTest, TheCapturedContextIsLogged) {
    PushContext(u"the root", u"the activity");
    OptTarn::SetShouldLogForegroundActivity(true);

    const ThreadContextPropagator propagator;

    EXPECT_THAT(Log().Messages(),
                ElementsAre(Pair(TLog::Info,
                                 "ThreadContextPropagator::ThreadContextPropagator "
                                 "id=the activity rootId=the root")));
    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(ThreadContextPropagatorTest, ThatThereIsNoContextIsLogged) {
    OptTarn::SetShouldLogForegroundActivity(true);

    const ThreadContextPropagator propagator;

    EXPECT_THAT(Log().Messages(), ElementsAre(Pair(TLog::Info, withoutContext)));
}

TEST_F(ThreadContextPropagatorTest, LoggingDependsOnItsOwnOptionOnly) {
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    OptTarn::SetShouldLogForegroundActivity(true);

    OnAnotherThread([] { const ThreadContextPropagator propagator; });

    EXPECT_THAT(Log().Messages(), ElementsAre(Pair(TLog::Info, withoutContext)));
}

TEST_F(ThreadContextPropagatorTest, NothingIsLoggedBelowTheLoggersThreshold) {
    OptTarn::SetShouldLogForegroundActivity(true);
    TLog::SetThreshold(TLog::Warn);

    const ThreadContextPropagator propagator;

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

TEST_F(ThreadContextPropagatorTest, AnIdThatLooksLikeAPlaceholderStaysAsItIs) {
    PushContext(u"%1", u"%2");
    OptTarn::SetShouldLogForegroundActivity(true);

    const ThreadContextPropagator propagator;

    EXPECT_THAT(
        Log().Messages(),
        ElementsAre(
            Pair(TLog::Info, "ThreadContextPropagator::ThreadContextPropagator id=%2 rootId=%1")));
}

TEST_F(ThreadContextPropagatorTest, CopiesLogNothing) {
    PushContext(u"root", u"act");
    const ThreadContextPropagator propagator;
    OptTarn::SetShouldLogForegroundActivity(true);

    const ThreadContextPropagator copy(propagator);
    ThreadContextPropagator assigned(copy);
    assigned = propagator;

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

}  // namespace
}  // namespace tarn::test
