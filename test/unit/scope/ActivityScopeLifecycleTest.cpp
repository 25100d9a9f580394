#include "ActivityScopeLifecycleTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/Context.h"

#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::NameValueList;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- The events of one scope

TEST_F(ActivityScopeLifecycleTest, AScopeOpensTellsItsFiguresAndCloses) {
    {
        const ActivityScope scope("load");

        EXPECT_THAT(m_events->Contents(), ElementsAre(Opens("load")));
    }

    EXPECT_THAT(
        m_events->Contents(),
        ElementsAre(Opens("load"), ThreadIdEvent(), ZeroMemory(), ZeroCpu(), Closes("load")));
}

TEST_F(ActivityScopeLifecycleTest, AllEventsOfAScopeCarryItsIdItsContextAndItsFlags) {
    { const ActivityScope scope("load", Traits(0x100)); }

    const std::vector<MetricsEvent> events = m_events->Events();
    ASSERT_EQ(events.size(), 5U);
    for (const MetricsEvent& event : events) {
        EXPECT_EQ(event.id, events[0].id) << testing::PrintToString(ContentOf(event));
        EXPECT_EQ(event.contextId, m_context.GetId()) << testing::PrintToString(ContentOf(event));
        EXPECT_EQ(event.flags, 0x0020000000000100U) << testing::PrintToString(ContentOf(event));
    }
    EXPECT_NE(events[0].id, 0U);
}

TEST_F(ActivityScopeLifecycleTest, AScopeWithEverythingSendsItInOrder) {
    SwitchForegroundContextsOn();
    NameValueList contextPairs;
    try {
        ActivityScope scope("load", CustomContext(NameValueList{{"c", 1}}), {{"a", 1}});
        contextPairs = ContextPairs(*scope.GetActivityContext());
        scope.Add({{"b", 2}});
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsContextPairs(u"mctx", {{"c", 1}}),
                            Opens("load", Joined({{"a", 1}}, contextPairs)),
                            SendsPairs("multiNVPs", {{"b", 2}}),
                            StackUnwind(),
                            ThreadIdEvent(),
                            ZeroMemory(),
                            ZeroCpu(),
                            Closes("load"),
                            PostCloses("load")));
}

TEST_F(ActivityScopeLifecycleTest, NestedScopesCloseFromTheInside) {
    {
        const ActivityScope outer("outer", TraceType::Untracked);
        const ActivityScope inner("inner", TraceType::Untracked);
    }

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(Opens("outer"),
                            Opens("inner"),
                            ThreadIdEvent(),
                            Closes("inner"),
                            ThreadIdEvent(),
                            Closes("outer")));
}

// ---- The metrics context

TEST_F(ActivityScopeLifecycleTest, AScopeUsesTheThreadsMetricsContext) {
    {
        const ActivityScope scope("load");

        EXPECT_EQ(CurrentMetricsContext(), m_context.GetId());
    }

    EXPECT_EQ(m_events->Count(MetricsEventType::CreateContext), 0U);
    EXPECT_EQ(m_events->Count(MetricsEventType::CloseContext), 0U);
}

TEST_F(ActivityScopeLifecycleTest, TheFirstScopeOnAThreadMakesAMetricsContextAndEndsItLast) {
    EventContent threadIdEvent;
    uint64 inside = 0;
    uint64 afterwards = 99;

    OnAnotherThread([&] {
        threadIdEvent = ThreadIdEvent();
        {
            const ActivityScope scope("load", CustomContext(NameValueList{{"c", 1}}));
            inside = CurrentMetricsContext();
        }
        afterwards = CurrentMetricsContext();
    });

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(CreatesContext(),
                            OpensContext(),
                            IsOfType(MetricsEventType::Attribute),
                            SendsContextPairs(u"mctx", {{"c", 1}}),
                            Opens("load"),
                            threadIdEvent,
                            ZeroMemory(),
                            ZeroCpu(),
                            Closes("load"),
                            PostCloses("load"),
                            ClosesContext()));
    EXPECT_NE(inside, 0U);
    EXPECT_NE(inside, m_context.GetId());
    EXPECT_EQ(m_events->First(MetricsEventType::OpenScope).contextId, inside);
    EXPECT_EQ(m_events->First(MetricsEventType::CreateContext).id, inside);
    EXPECT_EQ(m_events->First(MetricsEventType::CreateContext).contextId, 0U) << "it is a root";
    EXPECT_EQ(m_events->First(MetricsEventType::CloseContext).id, inside);
    EXPECT_EQ(afterwards, 0U);
}

TEST_F(ActivityScopeLifecycleTest, TheEventsOfAnOwnedMetricsContextCarryNoFlags) {
    OnAnotherThread([] { const ActivityScope scope("load", Traits(uint64{1} << 3)); });

    for (const MetricsEventType type : {MetricsEventType::CreateContext,
                                        MetricsEventType::OpenContext,
                                        MetricsEventType::CloseContext}) {
        EXPECT_EQ(m_events->First(type).flags, 0U) << static_cast<uint32>(type);
    }
}

TEST_F(ActivityScopeLifecycleTest, ScopesWithinTheFirstShareItsMetricsContext) {
    OnAnotherThread([] {
        const ActivityScope first("first");
        const ActivityScope second("second");
    });

    EXPECT_EQ(m_events->Count(MetricsEventType::CreateContext), 1U);
    EXPECT_EQ(m_events->Count(MetricsEventType::OpenScope), 2U);
}

TEST_F(ActivityScopeLifecycleTest, AFirstScopeThatIsOffOwnsAMetricsContextAllTheSame) {
    uint64 inside = 0;
    uint64 afterwards = 99;

    OnAnotherThread([&] {
        {
            const ActivityScope off("load", rankThatIsOff);
            inside = CurrentMetricsContext();
        }
        afterwards = CurrentMetricsContext();
    });

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(CreatesContext(),
                            OpensContext(),
                            IsOfType(MetricsEventType::Attribute),
                            ClosesContext()));
    EXPECT_NE(inside, 0U);
    EXPECT_EQ(afterwards, 0U);
}

TEST_F(ActivityScopeLifecycleTest, AScopeWithinAFirstOneThatIsOffUsesItsMetricsContext) {
    uint64 madeByTheOuter = 0;

    OnAnotherThread([&madeByTheOuter] {
        const ActivityScope off("load", rankThatIsOff);
        madeByTheOuter = CurrentMetricsContext();
        const ActivityScope on("inner");
    });

    EXPECT_EQ(m_events->First(MetricsEventType::OpenScope).contextId, madeByTheOuter);
    EXPECT_EQ(m_events->Count(MetricsEventType::CreateContext), 1U);
}

TEST_F(ActivityScopeLifecycleTest, TheCloseAndPostCloseEventsBelongToTheContextOfTheOpening) {
    {
        const ActivityScope scope("load", CustomContext(NameValueList{{"c", 1}}));
        Metrics::Context later(0, Metrics::Context::Create(true));
        later.OpenScope();
    }
    m_events->Clear();

    auto scope = std::make_unique<ActivityScope>("load", CustomContext(NameValueList{{"c", 1}}));
    Metrics::Context later(0, Metrics::Context::Create(true));
    later.OpenScope();
    scope.reset();

    EXPECT_EQ(m_events->First(MetricsEventType::CloseScope).contextId, m_context.GetId());
    EXPECT_EQ(m_events->First(MetricsEventType::PostCloseScope).contextId, m_context.GetId());
}

// ---- When nobody listens

TEST_F(ActivityScopeLifecycleTest, AScopeIsOnWhenNobodyListens) {
    SwitchForegroundContextsOn();
    StopListening(m_events);

    const ActivityScope scope("load");

    ASSERT_NE(scope.GetActivityContext(), nullptr);
    EXPECT_EQ(Registry().GetCurrentContext(), scope.GetActivityContext());
    EXPECT_NE(CurrentMemoryFrame(), nullptr);
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatNobodyHeardOpeningStaysSilent) {
    StopListening(m_events);
    RefCntPtr<RecordingListener> late;
    for (const bool foreground : {false, true}) {
        OptTarn::SetIsForegroundThreadContextEnabled(foreground);
        {
            ActivityScope byName("load");
            ActivityScope withList("load", {{"a", 1}});
            ActivityScope withInitializer(
                "load", CustomContext(NameValueList{}), Traits(), {}, ActivityContextInitializer{});
            late = Listen();
            for (ActivityScope* scope : {&byName, &withList, &withInitializer}) {
                scope->Add({{"a", 1}});
                scope->Log({{"a", 1}});
                scope->Cancel({{"a", 1}});
            }
        }

        EXPECT_THAT(late->Contents(), IsEmpty());
        StopListening(late);
    }
}

TEST_F(ActivityScopeLifecycleTest, AScopeWhoseBitsNobodyWantsStaysSilent) {
    StopListening(m_events);
    const auto others = Listen(uint64{1} << 3, false);
    {
        ActivityScope scope("load");
        scope.Add({{"a", 1}});
    }

    EXPECT_THAT(others->Contents(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, TheCallersFlagsCanBeWhatAListenerWants) {
    StopListening(m_events);
    const auto others = Listen(uint64{1} << 3, false);
    for (const bool foreground : {false, true}) {
        OptTarn::SetIsForegroundThreadContextEnabled(foreground);
        others->Clear();
        { const ActivityScope scope("load", Traits(uint64{1} << 3)); }

        EXPECT_EQ(others->Count(MetricsEventType::OpenScope), 1U) << foreground;
        EXPECT_EQ(others->Count(MetricsEventType::CloseScope), 1U) << foreground;
    }
}

TEST_F(ActivityScopeLifecycleTest, CreationDoesNotAskWhetherTracingIsEnabled) {
    SwitchForegroundContextsOn();
    OptTarn::SetIsTarnEnabled(false);
    {
        const ActivityScope scope("load");
        EXPECT_NE(scope.GetActivityContext(), nullptr);
    }

    EXPECT_EQ(m_events->Count(MetricsEventType::OpenScope), 1U);
}

TEST_F(ActivityScopeLifecycleTest, AScopeWhoseListenerLeavesEndsQuietly) {
    {
        ActivityScope scope("load");
        StopListening(m_events);
        scope.Add({{"a", 1}});
    }

    EXPECT_THAT(m_events->Contents(), ElementsAre(Opens("load")));
}

// ---- The order of the steps

TEST_F(ActivityScopeLifecycleTest, TheCustomContextIsSentBeforeTheScopesContextIsCurrent) {
    SwitchForegroundContextsOn();
    std::map<MetricsEventType, std::size_t> depths;
    m_events->CallOnEach(
        [&depths](const MetricsEvent& event) { depths[event.type] = Registry().GetDepth(); });

    { const ActivityScope scope("load", CustomContext(NameValueList{{"c", 1}})); }

    EXPECT_EQ(depths[MetricsEventType::AttributePairs], 0U);
    EXPECT_EQ(depths[MetricsEventType::OpenScope], 1U);
    m_events->CallOnEach({});
}

TEST_F(ActivityScopeLifecycleTest, MeasuringBeginsAfterTheScopeHasOpened) {
    const auto custom = [] { return CustomContext(NameValueList{{"c", 1}}); };
    const auto list = [] { return NameValueList{{"a", 1}}; };
    using Scope = std::unique_ptr<ActivityScope>;
    const std::function<Scope()> forms[] = {
        [&] { return std::make_unique<ActivityScope>("s", Traits()); },
        [&] { return std::make_unique<ActivityScope>("s", Traits(), list()); },
        [&] { return std::make_unique<ActivityScope>("s", custom(), Traits()); },
        [&] { return std::make_unique<ActivityScope>("s", custom(), Traits(), list()); },
        [&] {
            return std::make_unique<ActivityScope>(
                "s", custom(), Traits(), list(), ActivityContextInitializer{});
        },
    };

    for (std::size_t i = 0; i < std::size(forms); ++i) {
        SCOPED_TRACE("form " + std::to_string(i));
        std::vector<bool> measuring;
        m_events->CallOnEach([&measuring](const MetricsEvent&) {
            measuring.push_back(CurrentMemoryFrame() != nullptr);
        });

        const Scope scope = forms[i]();
        const bool afterwards = CurrentMemoryFrame() != nullptr;
        m_events->CallOnEach({});

        EXPECT_THAT(measuring, Each(false));
        EXPECT_EQ(measuring.size(), i < 2 ? 1U : 2U);
        EXPECT_TRUE(afterwards);
    }
}

TEST_F(ActivityScopeLifecycleTest, AnEndingScopeReportsThenStopsMeasuringThenLeavesItsContext) {
    SwitchForegroundContextsOn();

    struct Moment {
        EventContent event;
        bool measuring;
        std::size_t depth;
    };

    std::vector<Moment> moments;
    try {
        const ActivityScope scope("load", CustomContext(NameValueList{{"c", 1}}));
        m_events->CallOnEach([&moments](const MetricsEvent& event) {
            moments.push_back(
                {ContentOf(event), CurrentMemoryFrame() != nullptr, Registry().GetDepth()});
        });
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }
    m_events->CallOnEach({});

    ASSERT_EQ(moments.size(), 6U);
    EXPECT_EQ(moments[0].event, StackUnwind());
    EXPECT_TRUE(moments[0].measuring);
    EXPECT_EQ(moments[0].depth, 1U);
    for (std::size_t i = 1; i < moments.size(); ++i) {
        EXPECT_FALSE(moments[i].measuring) << testing::PrintToString(moments[i].event);
        EXPECT_EQ(moments[i].depth, 0U) << testing::PrintToString(moments[i].event);
    }
    EXPECT_EQ(moments[1].event, ThreadIdEvent());
    EXPECT_EQ(moments[5].event, PostCloses("load"));
}

TEST_F(ActivityScopeLifecycleTest, AnOwnedMetricsContextIsCurrentUntilItsScopeHasClosed) {
    std::vector<uint64> contexts;
    uint64 owned = 0;

    OnAnotherThread([&] {
        const ActivityScope scope("load", TraceType::Untracked);
        owned = CurrentMetricsContext();
        m_events->CallOnEach([&contexts](const MetricsEvent& event) {
            if (event.type == MetricsEventType::CloseScope) {
                contexts.push_back(CurrentMetricsContext());
            }
        });
    });
    m_events->CallOnEach({});

    EXPECT_THAT(contexts, ElementsAre(owned));
}

}  // namespace
}  // namespace tarn::test
