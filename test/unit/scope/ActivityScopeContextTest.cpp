#include "ScopeTest.h"
#include "ThreadActivityRegistry.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::NameValueList;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::StartsWith;

constexpr TraceRank rankThatIsOff{1};

ThreadActivityRegistry& Registry() {
    return ThreadActivityRegistry::GetInstance();
}

class ActivityScopeContextTest : public ScopeTest {};

// ---- Foreground contexts off

TEST_F(ActivityScopeContextTest, WithoutForegroundContextsAScopeHasNoContext) {
    const ActivityScope scope("load");

    EXPECT_EQ(scope.GetActivityContext(), nullptr);
    EXPECT_EQ(Registry().GetDepth(), 0U);
}

TEST_F(ActivityScopeContextTest, WithoutForegroundContextsExactlyTheCallersAttributesAreSent) {
    { const ActivityScope scope("load", {{u"rid", u"mine"}, {"b", 1}, {"a", 2.5}, {"b", true}}); }

    EXPECT_EQ(ContentOf(m_events->First(MetricsEventType::OpenScope)),
              Opens("load", {{u"rid", u"mine"}, {"b", 1}, {"a", 2.5}, {"b", true}}));
}

TEST_F(ActivityScopeContextTest, WithoutForegroundContextsAnInitializerIsNotUsed) {
    {
        const ActivityScope scope("load",
                                  CustomContext(NameValueList{}),
                                  Traits(),
                                  {{"a", 1}},
                                  ActivityContextInitializer{SomeContext(2, 5), true});

        EXPECT_EQ(scope.GetActivityContext(), nullptr);
        EXPECT_EQ(Registry().GetDepth(), 0U);
    }

    EXPECT_EQ(ContentOf(m_events->First(MetricsEventType::OpenScope)), Opens("load", {{"a", 1}}));
}

// ---- Foreground contexts on

TEST_F(ActivityScopeContextTest, TheFirstScopeIsTheRootOfATree) {
    SwitchForegroundContextsOn();

    const ActivityScope scope("load");

    const auto context = scope.GetActivityContext();
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->GetRequestId(), TString(u"-"));
    EXPECT_EQ(context->GetRootId(), context->GetActivityId());
    EXPECT_EQ(context->GetSponsorId(), context->GetActivityId());
    EXPECT_EQ(context->GetTraceDepth(), 0);
    EXPECT_EQ(context->GetServiceDepth(), 0);
}

TEST_F(ActivityScopeContextTest, AScopeWithinAnotherIsItsChild) {
    SwitchForegroundContextsOn();
    const ActivityScope outer("outer");

    const ActivityScope inner("inner");

    const auto parent = outer.GetActivityContext();
    const auto child = inner.GetActivityContext();
    EXPECT_EQ(child->GetRequestId(), TString(u"-"));
    EXPECT_EQ(child->GetRootId(), parent->GetRootId());
    EXPECT_EQ(child->GetSponsorId(), parent->GetActivityId());
    EXPECT_NE(child->GetActivityId(), parent->GetActivityId());
    EXPECT_EQ(child->GetTraceDepth(), 1);
    EXPECT_EQ(child->GetServiceDepth(), 1);
    EXPECT_EQ(Registry().GetCurrentContext(), child);
    EXPECT_EQ(Registry().GetDepth(), 2U);
}

TEST_F(ActivityScopeContextTest, TheContextIsCurrentUntilTheScopeEnds) {
    SwitchForegroundContextsOn();
    const ActivityScope outer("outer");
    {
        const ActivityScope inner("inner");
        EXPECT_EQ(Registry().GetCurrentContext(), inner.GetActivityContext());
    }

    EXPECT_EQ(Registry().GetCurrentContext(), outer.GetActivityContext());
    EXPECT_EQ(Registry().GetDepth(), 1U);
}

TEST_F(ActivityScopeContextTest, TheScopeHandsOutItsContextAsACopyOfThePointer) {
    SwitchForegroundContextsOn();
    std::shared_ptr<ActivityContext> context;
    {
        const ActivityScope scope("load");
        context = scope.GetActivityContext();

        EXPECT_EQ(context, scope.GetActivityContext());
        EXPECT_TRUE((std::is_same_v<decltype(scope.GetActivityContext()),
                                    const std::shared_ptr<ActivityContext>>));
    }

    EXPECT_EQ(context.use_count(), 1);
}

TEST_F(ActivityScopeContextTest, TheSixPairsOfTheIdentityComeAfterTheCallersAttributes) {
    SwitchForegroundContextsOn();
    const ActivityScope outer("outer");
    m_events->Clear();

    const ActivityScope inner("inner", {{"a", 1}, {u"b", u"two"}});

    EXPECT_EQ(ContentOf(m_events->First(MetricsEventType::OpenScope)),
              Opens("inner",
                    Joined({{"a", 1}, {u"b", u"two"}}, ContextPairs(*inner.GetActivityContext()))));
}

TEST_F(ActivityScopeContextTest, ACallersPairOfTheSameNameIsNotRemoved) {
    SwitchForegroundContextsOn();

    const ActivityScope scope("load", {{u"rid", u"mine"}, {u"traceDepth", 99}});

    EXPECT_EQ(ContentOf(m_events->First(MetricsEventType::OpenScope)),
              Opens("load",
                    Joined({{u"rid", u"mine"}, {u"traceDepth", 99}},
                           ContextPairs(*scope.GetActivityContext()))));
}

TEST_F(ActivityScopeContextTest, AScopeTakesOverAnAdoptedContext) {
    SwitchForegroundContextsOn();
    const auto given = SomeContext(2, 5);

    const ActivityScope scope("load",
                              CustomContext(NameValueList{}),
                              Traits(TraceType::Transparent),
                              {},
                              ActivityContextInitializer{given, true});

    const auto context = scope.GetActivityContext();
    EXPECT_NE(context, given);
    EXPECT_EQ(ContextPairs(*context), ContextPairs(*given));
    EXPECT_EQ(ContentOf(m_events->First(MetricsEventType::OpenScope)),
              Opens("load", ContextPairs(*given)));
    EXPECT_EQ(Registry().GetCurrentContext(), context);
}

TEST_F(ActivityScopeContextTest, AScopeBecomesAChildOfAGivenContextInsteadOfTheThreads) {
    SwitchForegroundContextsOn();
    const ActivityScope current("current");
    const auto given = SomeContext(2, 5);

    const ActivityScope scope("load",
                              CustomContext(NameValueList{}),
                              Traits(),
                              {},
                              ActivityContextInitializer{given, false});

    const auto context = scope.GetActivityContext();
    EXPECT_EQ(context->GetRootId(), TString(u"some root"));
    EXPECT_EQ(context->GetSponsorId(), TString(u"some activity"));
    EXPECT_EQ(context->GetRequestId(), TString(u"-"));
    EXPECT_EQ(context->GetTraceDepth(), 3);
    EXPECT_EQ(context->GetServiceDepth(), 6);
    EXPECT_EQ(Registry().GetDepth(), 2U) << "the given context itself is not pushed";
}

TEST_F(ActivityScopeContextTest, AnInitializerWithoutAParentStartsAFreshTree) {
    SwitchForegroundContextsOn();
    const ActivityScope current("current");

    const ActivityScope scope("load",
                              CustomContext(NameValueList{}),
                              Traits(),
                              {},
                              ActivityContextInitializer{nullptr, true});

    const auto context = scope.GetActivityContext();
    EXPECT_NE(context->GetRootId(), current.GetActivityContext()->GetRootId());
    EXPECT_EQ(context->GetRootId(), context->GetActivityId());
    EXPECT_EQ(context->GetTraceDepth(), 0);
}

// ---- Depths of transparent scopes

TEST_F(ActivityScopeContextTest, ATransparentScopeKeepsItsParentsDepthsWhileItIsNotLogged) {
    SwitchForegroundContextsOn();
    const ActivityScope outer("outer");
    const ActivityScope parent("parent");

    const ActivityScope transparent("transparent", TraceType::Transparent);
    const ActivityScope child("child");

    EXPECT_EQ(transparent.GetActivityContext()->GetTraceDepth(), 1);
    EXPECT_EQ(transparent.GetActivityContext()->GetServiceDepth(), 1);
    EXPECT_EQ(transparent.GetActivityContext()->GetSponsorId(),
              parent.GetActivityContext()->GetActivityId());
    EXPECT_EQ(child.GetActivityContext()->GetTraceDepth(), 2);
    EXPECT_EQ(child.GetActivityContext()->GetServiceDepth(), 2);
    EXPECT_EQ(child.GetActivityContext()->GetSponsorId(),
              transparent.GetActivityContext()->GetActivityId());
}

TEST_F(ActivityScopeContextTest, ATransparentScopeIsOneDeeperWhileItIsLogged) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogTransparent(true);
    const ActivityScope parent("parent");

    const ActivityScope transparent("transparent", TraceType::Transparent);
    const ActivityScope child("child");

    EXPECT_EQ(transparent.GetActivityContext()->GetTraceDepth(), 1);
    EXPECT_EQ(transparent.GetActivityContext()->GetServiceDepth(), 1);
    EXPECT_EQ(child.GetActivityContext()->GetTraceDepth(), 2);
}

TEST_F(ActivityScopeContextTest, ScopesOfAnyOtherTypeAreOneDeeper) {
    SwitchForegroundContextsOn();
    const ActivityScope parent("parent");

    const ActivityScope untracked("untracked", TraceType::Untracked);
    const ActivityScope unknown("unknown", TraceType{7});

    EXPECT_EQ(untracked.GetActivityContext()->GetTraceDepth(), 1);
    EXPECT_EQ(unknown.GetActivityContext()->GetTraceDepth(), 2);
}

TEST_F(ActivityScopeContextTest, ATransparentRootHasDepthZero) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogTransparent(true);

    const ActivityScope scope("load", TraceType::Transparent);

    EXPECT_EQ(scope.GetActivityContext()->GetTraceDepth(), 0);
}

// ---- Attaching and detaching

TEST_F(ActivityScopeContextTest, AttachingMakesTheScopeCurrentOnAnotherThread) {
    SwitchForegroundContextsOn();
    ActivityScope scope("load");

    OnAnotherThread([&scope] {
        scope.AttachToThread();
        {
            const ActivityScope child("child");
            EXPECT_EQ(child.GetActivityContext()->GetSponsorId(),
                      scope.GetActivityContext()->GetActivityId());
            EXPECT_EQ(child.GetActivityContext()->GetTraceDepth(), 1);
        }
        EXPECT_EQ(Registry().GetCurrentContext(), scope.GetActivityContext());

        scope.DetachFromThread();
        EXPECT_EQ(Registry().GetCurrentContext(), nullptr);
    });

    EXPECT_EQ(Registry().GetCurrentContext(), scope.GetActivityContext());
}

TEST_F(ActivityScopeContextTest, AScopeWithoutAMetricsContextOfItsOwnBringsNone) {
    ActivityScope scope("load");

    OnAnotherThread([&scope] {
        scope.AttachToThread();
        EXPECT_EQ(CurrentMetricsContext(), 0U);
        scope.DetachFromThread();
    });

    EXPECT_EQ(CurrentMetricsContext(), m_context.GetId());
}

TEST_F(ActivityScopeContextTest, AnOwnedMetricsContextMovesWithItsScope) {
    OnAnotherThread([this] {
        ActivityScope scope("load", TraceType::Untracked);
        const uint64 owned = CurrentMetricsContext();
        scope.DetachFromThread();
        EXPECT_EQ(CurrentMetricsContext(), 0U);

        OnAnotherThread([&scope, owned] {
            scope.AttachToThread();
            EXPECT_EQ(CurrentMetricsContext(), owned);
            { const ActivityScope child("child", TraceType::Untracked); }
            scope.DetachFromThread();
            EXPECT_EQ(CurrentMetricsContext(), 0U);
        });

        scope.AttachToThread();
        EXPECT_EQ(CurrentMetricsContext(), owned);
        std::vector<uint64> contexts;
        for (const MetricsEvent& event : m_events->Events()) {
            if (event.type == MetricsEventType::OpenScope) {
                contexts.push_back(event.contextId);
            }
        }
        EXPECT_THAT(contexts, ElementsAre(owned, owned));
    });
}

TEST_F(ActivityScopeContextTest, AttachingBringsTheMetricsContextBeforeTheActivity) {
    SwitchForegroundContextsOn();
    OnAnotherThread([this] {
        ActivityScope scope("load", TraceType::Untracked);
        scope.DetachFromThread();
        std::vector<std::size_t> depths;
        // The bus tells a context's new thread as soon as it is attached.
        m_events->CallOnEach(
            [&depths](const MetricsEvent&) { depths.push_back(Registry().GetDepth()); });

        OnAnotherThread([&scope] {
            scope.AttachToThread();
            EXPECT_EQ(Registry().GetDepth(), 1U);
            scope.DetachFromThread();
        });
        m_events->CallOnEach({});

        EXPECT_THAT(depths, ElementsAre(0U));
    });
}

TEST_F(ActivityScopeContextTest, AttachingToItsOwnThreadAgainMovesAScopesContextToTheTop) {
    SwitchForegroundContextsOn();
    ActivityScope outer("outer");
    const ActivityScope inner("inner");

    outer.AttachToThread();

    EXPECT_EQ(Registry().GetCurrentContext(), outer.GetActivityContext());
    EXPECT_EQ(Registry().GetDepth(), 2U);
}

TEST_F(ActivityScopeContextTest, AScopeMayEndDetached) {
    SwitchForegroundContextsOn();
    {
        const ActivityScope outer("outer");
        {
            ActivityScope inner("inner");
            inner.DetachFromThread();
            EXPECT_EQ(Registry().GetCurrentContext(), outer.GetActivityContext());
            inner.DetachFromThread();
        }
        EXPECT_EQ(Registry().GetCurrentContext(), outer.GetActivityContext());
    }

    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 2U);
}

TEST_F(ActivityScopeContextTest, AttachingIsLoggedWhileForegroundActivityIs) {
    ActivityScope scope("load");
    scope.AttachToThread();
    scope.DetachFromThread();
    EXPECT_THAT(Log().Messages(), IsEmpty());
    OptTarn::SetShouldLogForegroundActivity(true);

    scope.AttachToThread();
    scope.DetachFromThread();

    EXPECT_THAT(Log().Messages(),
                ElementsAre(Pair(TLog::Info, "ActivityScope::AttachToThread"),
                            Pair(TLog::Info, "ActivityScope::DetachFromThread")));
    EXPECT_THAT(Log().Events(), IsEmpty());
}

TEST_F(ActivityScopeContextTest, AttachingAScopeThatIsOffIsLoggedAndDoesNothing) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogForegroundActivity(true);
    ActivityScope scope("load", rankThatIsOff);

    scope.AttachToThread();
    EXPECT_EQ(Registry().GetDepth(), 0U);
    scope.DetachFromThread();

    EXPECT_THAT(MessageTexts(),
                ElementsAre("ActivityScope::AttachToThread", "ActivityScope::DetachFromThread"));
    EXPECT_EQ(CurrentMetricsContext(), m_context.GetId());
    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ActivityScopeContextTest, AttachingIsLoggedBeforeItHappens) {
    SwitchForegroundContextsOn();
    ActivityScope scope("load");
    OptTarn::SetShouldLogForegroundActivity(true);
    std::vector<std::size_t> depths;
    Log().CallOnEach([&depths] { depths.push_back(Registry().GetDepth()); });

    OnAnotherThread([&scope] {
        scope.AttachToThread();
        scope.DetachFromThread();
    });

    EXPECT_THAT(depths, ElementsAre(0U, 1U));
    Log().CallOnEach({});
}

// ---- The log of foreground activity

std::string ForegroundLine(const char* verb, const char* name, const ActivityContext& context) {
    return std::string("ActivityScope ") + verb + " name=" + name +
           ", id=" + context.GetActivityId().ToUtf8() + ", rootId=" + context.GetRootId().ToUtf8() +
           ", traceDepth=" + std::to_string(context.GetTraceDepth()) +
           ", serviceDepth=" + std::to_string(context.GetServiceDepth());
}

TEST_F(ActivityScopeContextTest, TheComingAndGoingOfAContextIsLogged) {
    SwitchForegroundContextsOn();
    const ActivityScope outer("outer");
    OptTarn::SetShouldLogForegroundActivity(true);
    std::string expectedRegister;
    std::string expectedUnregister;
    {
        const ActivityScope inner("inner");
        const auto context = inner.GetActivityContext();
        expectedRegister = ForegroundLine("Register", "inner", *context);
        expectedUnregister = ForegroundLine("Unregister", "unavailable", *context);
    }
    OptTarn::SetShouldLogForegroundActivity(false);

    EXPECT_THAT(
        Log().Messages(),
        ElementsAre(Pair(TLog::Info, expectedRegister), Pair(TLog::Info, expectedUnregister)));
    EXPECT_THAT(expectedRegister, HasSubstr("traceDepth=1, serviceDepth=1"));
}

TEST_F(ActivityScopeContextTest, NegativeDepthsAreLoggedInDecimal) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogForegroundActivity(true);
    {
        const ActivityScope scope("load",
                                  CustomContext(NameValueList{}),
                                  Traits(),
                                  {},
                                  ActivityContextInitializer{SomeContext(-3, 12), true});
    }

    EXPECT_THAT(MessageTexts(),
                ElementsAre("ActivityScope Register name=load, id=some activity, "
                            "rootId=some root, traceDepth=-3, serviceDepth=12",
                            "ActivityScope Unregister name=unavailable, id=some activity, "
                            "rootId=some root, traceDepth=-3, serviceDepth=12"));
}

TEST_F(ActivityScopeContextTest, ANameThatLooksLikeAPlaceholderIsLoggedAsItIs) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogForegroundActivity(true);
    const ActivityScope scope(
        "%3 gr\xC3\xB6\xC3\x9F"
        "e");
    OptTarn::SetShouldLogForegroundActivity(false);

    EXPECT_THAT(MessageTexts(),
                ElementsAre(ForegroundLine("Register",
                                           "%3 gr\xC3\xB6\xC3\x9F"
                                           "e",
                                           *scope.GetActivityContext())));
}

TEST_F(ActivityScopeContextTest, TheForegroundLogStandsBetweenTheStepsItSpeaksOf) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogForegroundActivity(true);

    struct Moment {
        bool measuring;
        std::size_t depth;
        std::vector<EventContent> events;
    };

    std::vector<Moment> moments;
    Log().CallOnEach([&, this] {
        moments.push_back(
            {CurrentMemoryFrame() != nullptr, Registry().GetDepth(), m_events->Contents()});
    });

    { const ActivityScope scope("load"); }
    Log().CallOnEach({});

    ASSERT_EQ(moments.size(), 2U);
    EXPECT_EQ(moments[0].depth, 1U) << "logged after the context became current";
    EXPECT_THAT(moments[0].events, IsEmpty()) << "logged before the scope opens";
    EXPECT_EQ(moments[1].depth, 1U) << "logged while the context is still current";
    EXPECT_THAT(moments[1].events, ElementsAre(IsOfType(MetricsEventType::OpenScope)))
        << "logged before the thread id is sent";
    EXPECT_FALSE(moments[0].measuring) << "logged before the measurement begins";
    EXPECT_FALSE(moments[1].measuring) << "logged after the measurement has ended";
}

TEST_F(ActivityScopeContextTest, NothingIsLoggedOfAScopeThatIsOff) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogForegroundActivity(true);
    { const ActivityScope scope("load", rankThatIsOff); }

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

TEST_F(ActivityScopeContextTest, NothingIsLoggedWhileForegroundContextsAreOff) {
    OptTarn::SetShouldLogForegroundActivity(true);
    { const ActivityScope scope("load"); }

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

TEST_F(ActivityScopeContextTest, NothingIsLoggedBelowTheLoggersThreshold) {
    SwitchForegroundContextsOn();
    OptTarn::SetShouldLogForegroundActivity(true);
    TLog::SetThreshold(TLog::Warn);
    {
        ActivityScope scope("load");
        scope.AttachToThread();
    }

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

// ---- Options that change while a scope is open

TEST_F(ActivityScopeContextTest, AScopeWithoutAContextSaysSoWhenContextsWereSwitchedOnMeanwhile) {
    {
        const ActivityScope scope("load", TraceType::Untracked);
        SwitchForegroundContextsOn();
        OptTarn::SetShouldLogForegroundActivity(true);
    }

    EXPECT_THAT(Log().Messages(),
                ElementsAre(Pair(TLog::Info,
                                 "ActivityScope Unregister name=unavailable No ActivityContext")));
    EXPECT_THAT(m_events->Contents(), ElementsAre(Opens("load"), ThreadIdEvent(), Closes("load")));
    EXPECT_EQ(Registry().GetDepth(), 0U);
}

TEST_F(ActivityScopeContextTest, AContextStaysOnTheThreadWhenContextsWereSwitchedOffMeanwhile) {
    SwitchForegroundContextsOn();
    std::shared_ptr<ActivityContext> context;
    {
        const ActivityScope scope("load");
        context = scope.GetActivityContext();
        OptTarn::SetIsForegroundThreadContextEnabled(false);
        OptTarn::SetShouldLogForegroundActivity(true);
    }

    EXPECT_EQ(Registry().GetCurrentContext(), context);
    EXPECT_THAT(Log().Messages(), IsEmpty());
    Registry().Remove(context);
}

TEST_F(ActivityScopeContextTest, OnlyTheGoingIsLoggedWhenLoggingWasSwitchedOnMeanwhile) {
    SwitchForegroundContextsOn();
    {
        const ActivityScope scope("load");
        OptTarn::SetShouldLogForegroundActivity(true);
    }

    EXPECT_THAT(MessageTexts(), ElementsAre(StartsWith("ActivityScope Unregister ")));
}

TEST_F(ActivityScopeContextTest, ATransparentScopesDepthsDoNotChangeAnyMore) {
    SwitchForegroundContextsOn();
    const ActivityScope parent("parent");
    const ActivityScope transparent("transparent", TraceType::Transparent);
    OptTarn::SetShouldLogTransparent(true);

    const ActivityScope child("child", TraceType::Transparent);

    EXPECT_EQ(transparent.GetActivityContext()->GetTraceDepth(), 0);
    EXPECT_EQ(child.GetActivityContext()->GetTraceDepth(), 1);
}

}  // namespace
}  // namespace tarn::test
