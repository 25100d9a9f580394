#include "AllocationCounter.h"
#include "MetricsText.h"
#include "ScopeTest.h"
#include "ThreadActivityRegistry.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlmetrics/Context.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::NameValueList;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr TraceRank rankThatIsOff{1};

ThreadActivityRegistry& Registry() {
    return ThreadActivityRegistry::GetInstance();
}

class ActivityScopeLifecycleTest : public ScopeTest {};

// ---- The events of one scope

TEST_F(ActivityScopeLifecycleTest, AScopeOpensTellsItsFiguresAndCloses) {
    {
        const ActivityScope scope("load");

        EXPECT_THAT(m_events->Texts(), ElementsAre("OpenScope \"load\" {}"));
    }

    EXPECT_THAT(
        m_events->Texts(),
        ElementsAre(
            "OpenScope \"load\" {}", ThreadIdEvent(), zeroMemory, zeroCpu, "CloseScope \"load\""));
}

TEST_F(ActivityScopeLifecycleTest, AllEventsOfAScopeCarryItsIdItsContextAndItsFlags) {
    { const ActivityScope scope("load", Traits(0x100)); }

    const std::vector<MetricsEvent> events = m_events->Events();
    ASSERT_EQ(events.size(), 5U);
    for (const MetricsEvent& event : events) {
        EXPECT_EQ(event.id, events[0].id) << Text(event);
        EXPECT_EQ(event.contextId, m_context.GetId()) << Text(event);
        EXPECT_EQ(event.flags, 0x0020000000000100U) << Text(event);
    }
    EXPECT_NE(events[0].id, 0U);
}

TEST_F(ActivityScopeLifecycleTest, AScopeWithEverythingSendsItInOrder) {
    SwitchForegroundContextsOn();
    std::string contextPairs;
    try {
        ActivityScope scope("load", CustomContext(NameValueList{{"c", 1}}), {{"a", 1}});
        contextPairs = ContextPairs(*scope.GetActivityContext());
        scope.Add({{"b", 2}});
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(m_events->Texts(),
                ElementsAre("AttributePairs L\"mctx\" {\"c\"=1}",
                            "OpenScope \"load\" {\"a\"=1, " + contextPairs + "}",
                            "NameValuePairs \"multiNVPs\" {\"b\"=2}",
                            stackUnwind,
                            ThreadIdEvent(),
                            zeroMemory,
                            zeroCpu,
                            "CloseScope \"load\"",
                            "PostCloseScope \"load\" action 0"));
}

TEST_F(ActivityScopeLifecycleTest, NestedScopesCloseFromTheInside) {
    {
        const ActivityScope outer("outer", TraceType::Untracked);
        const ActivityScope inner("inner", TraceType::Untracked);
    }

    EXPECT_THAT(m_events->Texts(),
                ElementsAre("OpenScope \"outer\" {}",
                            "OpenScope \"inner\" {}",
                            ThreadIdEvent(),
                            "CloseScope \"inner\"",
                            ThreadIdEvent(),
                            "CloseScope \"outer\""));
}

// ---- Names

TEST_F(ActivityScopeLifecycleTest, TheNameMayBeEmpty) {
    { const ActivityScope scope("", TraceType::Untracked); }

    EXPECT_THAT(m_events->Texts(),
                ElementsAre("OpenScope \"\" {}", ThreadIdEvent(), "CloseScope \"\""));
}

TEST_F(ActivityScopeLifecycleTest, TheNameIsUtf8AndPassedOnAsItIs) {
    const char* const name =
        "gr\xC3\xB6\xC3\x9F"
        "e \xF0\x9F\x8C\xB2";
    { const ActivityScope scope(name); }

    const MetricsEvent event = m_events->First(MetricsEventType::OpenScope);
    ASSERT_EQ(event.name.type, Metrics::MetricsValue::MV_Utf8String);
    EXPECT_EQ(*event.name.utf8, name);
}

TEST_F(ActivityScopeLifecycleTest, TheNameIsReadDuringTheConstructionOnly) {
    char name[] = "load";
    {
        const ActivityScope scope(name, TraceType::Untracked);
        std::memcpy(name, "gone", sizeof(name));
    }

    EXPECT_THAT(m_events->Texts(),
                ElementsAre("OpenScope \"load\" {}", ThreadIdEvent(), "CloseScope \"load\""));
}

TEST_F(ActivityScopeLifecycleTest, ALongNameIsNotCut) {
    const std::string name(5000, 'x');
    { const ActivityScope scope(name.c_str()); }

    EXPECT_EQ(*m_events->First(MetricsEventType::OpenScope).name.utf8, name);
}

TEST_F(ActivityScopeLifecycleTest, ANullNameIsHarmlessWhenTheRankIsOff) {
    {
        const ActivityScope scope(nullptr, rankThatIsOff);
        const ActivityScope another(nullptr, rankThatIsOff, {{"a", 1}});
    }

    EXPECT_THAT(m_events->Texts(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, ANullNameIsTheEmptyName) {
    {
        const ActivityScope scope(nullptr, TraceType::Untracked);
        const ActivityScope another(nullptr, Traits(TraceType::Untracked), {{"a", 1}});
    }
    EXPECT_THAT(m_events->Texts(),
                AllOf(Contains("OpenScope \"\" {}"), Contains("OpenScope \"\" {\"a\"=1}")));
    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 2U);

    m_events->Clear();
    TarnSettings::GetInstance().SetOffs({""});
    { const ActivityScope scope(nullptr); }
    EXPECT_THAT(m_events->Texts(), IsEmpty());
}

// ---- The nine ways to begin

TEST_F(ActivityScopeLifecycleTest, EveryConstructorPassesOnWhatItIsGiven) {
    const Traits traits(TraceType::Untracked, TraceRank{-2}, 0x100);
    const auto custom = [] { return CustomContext(NameValueList{{"c", 1}}); };
    const auto list = [] { return NameValueList{{"a", 1}}; };

    struct Form {
        const char* name;
        std::function<void()> run;
        bool hasCustomContext;
        bool hasList;
        bool hasTraits;
    };

    const Form forms[] = {
        {"name", [&] { const ActivityScope scope("s"); }, false, false, false},
        {"name, list", [&] { const ActivityScope scope("s", list()); }, false, true, false},
        {"name, traits", [&] { const ActivityScope scope("s", traits); }, false, false, true},
        {"name, traits, list",
         [&] { const ActivityScope scope("s", traits, list()); },
         false,
         true,
         true},
        {"name, context", [&] { const ActivityScope scope("s", custom()); }, true, false, false},
        {"name, context, list",
         [&] { const ActivityScope scope("s", custom(), list()); },
         true,
         true,
         false},
        {"name, context, traits",
         [&] { const ActivityScope scope("s", custom(), traits); },
         true,
         false,
         true},
        {"name, context, traits, list",
         [&] { const ActivityScope scope("s", custom(), traits, list()); },
         true,
         true,
         true},
        {"name, context, traits, list, initializer",
         [&] {
             const ActivityScope scope("s", custom(), traits, list(), ActivityContextInitializer{});
         },
         true,
         true,
         true},
    };

    for (const Form& form : forms) {
        SCOPED_TRACE(form.name);
        m_events->Clear();

        form.run();

        std::vector<std::string> expected;
        if (form.hasCustomContext) {
            expected.emplace_back("AttributePairs L\"mctx\" {\"c\"=1}");
        }
        expected.emplace_back(form.hasList ? "OpenScope \"s\" {\"a\"=1}" : "OpenScope \"s\" {}");
        expected.push_back(ThreadIdEvent());
        if (!form.hasTraits) {
            expected.emplace_back(zeroMemory);
            expected.emplace_back(zeroCpu);
        }
        expected.emplace_back("CloseScope \"s\"");
        if (form.hasCustomContext) {
            expected.emplace_back("PostCloseScope \"s\" action 0");
        }
        EXPECT_THAT(m_events->Texts(), ElementsAreArray(expected));
        EXPECT_EQ(m_events->First(MetricsEventType::OpenScope).flags,
                  form.hasTraits ? 0x0060000000000100U : 0x0020000000000000U);
    }
}

TEST_F(ActivityScopeLifecycleTest, EveryConstructorTellsTheIdentityWhileForegroundContextsAreOn) {
    SwitchForegroundContextsOn();
    const auto custom = [] { return CustomContext(NameValueList{}); };
    const auto list = [] { return NameValueList{{"a", 1}}; };
    const auto openingOf = [this](const ActivityScope& scope, const char* attributes) {
        EXPECT_EQ(Text(m_events->First(MetricsEventType::OpenScope)),
                  "OpenScope \"s\" {" + std::string(attributes) +
                      ContextPairs(*scope.GetActivityContext()) + "}");
        EXPECT_EQ(Registry().GetCurrentContext(), scope.GetActivityContext());
        m_events->Clear();
    };

    openingOf(ActivityScope("s"), "");
    m_events->Clear();
    openingOf(ActivityScope("s", list()), "\"a\"=1, ");
    m_events->Clear();
    openingOf(ActivityScope("s", Traits()), "");
    m_events->Clear();
    openingOf(ActivityScope("s", Traits(), list()), "\"a\"=1, ");
    m_events->Clear();
    openingOf(ActivityScope("s", custom()), "");
    m_events->Clear();
    openingOf(ActivityScope("s", custom(), list()), "\"a\"=1, ");
    m_events->Clear();
    openingOf(ActivityScope("s", custom(), Traits()), "");
    m_events->Clear();
    openingOf(ActivityScope("s", custom(), Traits(), list()), "\"a\"=1, ");
    m_events->Clear();
    openingOf(ActivityScope("s", custom(), Traits(), list(), ActivityContextInitializer{}),
              "\"a\"=1, ");
}

TEST_F(ActivityScopeLifecycleTest, ABracedListAfterTheNameIsAListOfAttributes) {
    {
        const ActivityScope one("one", {{"a", 1}});
        const ActivityScope two("two", {{"a", 1}, {"b", u"x"}});
        const ActivityScope texts("texts", {{"a", "b"}});
        const ActivityScope numbers("numbers", {{1, 2}, {3, 4}});
    }

    EXPECT_THAT(m_events->Texts(),
                AllOf(Contains("OpenScope \"one\" {\"a\"=1}"),
                      Contains("OpenScope \"two\" {\"a\"=1, \"b\"=L\"x\"}"),
                      Contains("OpenScope \"texts\" {\"a\"=\"b\"}"),
                      Contains("OpenScope \"numbers\" {1=2, 3=4}"),
                      Not(Contains(HasSubstr("mctx")))));
}

TEST_F(ActivityScopeLifecycleTest, ATypeARankOrFlagsMayStandForTraits) {
    {
        const ActivityScope type("s", TraceType::Untracked);
        const ActivityScope rank("s", TraceRank{-7});
        const ActivityScope flags("s", uint64{0x100});

        EXPECT_EQ(type.GetTraits().type, TraceType::Untracked);
        EXPECT_EQ(rank.GetTraits().rank, TraceRank{-7});
        EXPECT_EQ(flags.GetTraits().flags, 0x100U);
    }
}

TEST_F(ActivityScopeLifecycleTest, AScopeIsNeitherCopiedNorMoved) {
    EXPECT_FALSE(std::is_copy_constructible_v<ActivityScope>);
    EXPECT_FALSE(std::is_move_constructible_v<ActivityScope>);
    EXPECT_FALSE(std::is_copy_assignable_v<ActivityScope>);
    EXPECT_FALSE(std::is_move_assignable_v<ActivityScope>);
    EXPECT_TRUE(std::is_nothrow_destructible_v<ActivityScope>);
    EXPECT_FALSE(std::is_default_constructible_v<ActivityScope>);
}

TEST_F(ActivityScopeLifecycleTest, TheListsOfTheConstructorsAreEmptyAfterwards) {
    const auto expectConsumed = [](const char* name, Traits traits) {
        NameValueList alone{{"a", 1}};
        NameValueList withTraits{{"a", 1}};
        NameValueList withContext{{"a", 1}};
        NameValueList withInitializer{{"a", 1}};

        const ActivityScope first(name, traits, std::move(withTraits));
        const ActivityScope second(
            name, CustomContext(NameValueList{}), traits, std::move(withContext));
        const ActivityScope third(name,
                                  CustomContext(NameValueList{}),
                                  traits,
                                  std::move(withInitializer),
                                  ActivityContextInitializer{});
        const ActivityScope fourth(name, std::move(alone));

        EXPECT_THAT(alone, IsEmpty());            // NOLINT(bugprone-use-after-move)
        EXPECT_THAT(withTraits, IsEmpty());       // NOLINT(bugprone-use-after-move)
        EXPECT_THAT(withContext, IsEmpty());      // NOLINT(bugprone-use-after-move)
        EXPECT_THAT(withInitializer, IsEmpty());  // NOLINT(bugprone-use-after-move)
    };
    TarnSettings::GetInstance().SetOffs({"off"});

    for (const bool foreground : {false, true}) {
        SCOPED_TRACE(foreground ? "foreground contexts on" : "foreground contexts off");
        OptTarn::SetIsForegroundThreadContextEnabled(foreground);
        {
            SCOPED_TRACE("on");
            expectConsumed("on", Traits());
        }
        {
            SCOPED_TRACE("off by name");
            expectConsumed("off", Traits());
        }
        {
            SCOPED_TRACE("off by rank");
            expectConsumed("on", Traits(rankThatIsOff));
        }
        StopListening(m_events);
        {
            SCOPED_TRACE("nobody listens");
            expectConsumed("on", Traits());
        }
        m_events = Listen();
    }
}

// ---- Scopes that are off

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsOffByNameDoesNothing) {
    SwitchForegroundContextsOn();
    TarnSettings::GetInstance().SetOffs({"load",
                                         "gr\xC3\xB6\xC3\x9F"
                                         "e"});
    {
        const ActivityScope scope(
            "load", CustomContext(NameValueList{{"c", 1}}), Traits(), {{"a", 1}});
        const ActivityScope utf8(
            "gr\xC3\xB6\xC3\x9F"
            "e");

        EXPECT_EQ(scope.GetActivityContext(), nullptr);
        EXPECT_EQ(utf8.GetActivityContext(), nullptr);
        EXPECT_EQ(Registry().GetDepth(), 0U);
        EXPECT_EQ(CurrentMemoryFrame(), nullptr);
    }

    EXPECT_THAT(m_events->Texts(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsOffByRankDoesNothing) {
    SwitchForegroundContextsOn();
    {
        const ActivityScope scope("load", Traits(rankThatIsOff), {{"a", 1}});

        EXPECT_EQ(scope.GetActivityContext(), nullptr);
        EXPECT_EQ(Registry().GetDepth(), 0U);
        EXPECT_EQ(CurrentMemoryFrame(), nullptr);
    }

    EXPECT_THAT(m_events->Texts(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsOffTakesNoInitializerEither) {
    SwitchForegroundContextsOn();
    {
        const ActivityScope scope("load",
                                  CustomContext(NameValueList{}),
                                  Traits(rankThatIsOff),
                                  {{"a", 1}},
                                  ActivityContextInitializer{SomeContext(1, 1), true});

        EXPECT_EQ(scope.GetActivityContext(), nullptr);
        EXPECT_EQ(Registry().GetDepth(), 0U);
    }

    EXPECT_THAT(m_events->Texts(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, AScopeInAScopeThatIsOffBelongsToTheOneAround) {
    SwitchForegroundContextsOn();
    const ActivityScope outer("outer");
    const ActivityScope off("off", rankThatIsOff);

    const ActivityScope inner("inner");

    EXPECT_EQ(inner.GetActivityContext()->GetSponsorId(),
              outer.GetActivityContext()->GetActivityId());
    EXPECT_EQ(inner.GetActivityContext()->GetTraceDepth(), 1);
}

TEST_F(ActivityScopeLifecycleTest, NothingThatIsDoneToAScopeThatIsOffHasAnEffect) {
    SwitchForegroundContextsOn();
    try {
        ActivityScope scope("load", rankThatIsOff);
        scope.Add({{"a", 1}});
        scope.Log({{"a", 1}});
        scope.Cancel({{"a", 1}});
        scope.AddContext(CustomContext(NameValueList{{"c", 1}}));
        scope.AttachToThread();
        EXPECT_EQ(Registry().GetDepth(), 0U);
        scope.DetachFromThread();
        EXPECT_EQ(CurrentMetricsContext(), m_context.GetId());
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(m_events->Texts(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, WhetherAScopeIsOffIsDecidedOnce) {
    {
        const ActivityScope onAtFirst("load", TraceType::Untracked);
        TarnSettings::GetInstance().SetRankOn(TraceRank{-1});
        TarnSettings::GetInstance().SetOffs({"load"});
    }
    EXPECT_THAT(m_events->Texts(),
                ElementsAre("OpenScope \"load\" {}", ThreadIdEvent(), "CloseScope \"load\""));

    m_events->Clear();
    {
        ActivityScope offAtFirst("load");
        TarnSettings::GetInstance().SetRankOn(TraceRank{5});
        TarnSettings::GetInstance().SetOffs({});
        offAtFirst.Add({{"a", 1}});
    }
    EXPECT_THAT(m_events->Texts(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsOffByRankNeedsNoMemory) {
    const AllocationCounter counter;
    { const ActivityScope scope("a name that does not fit into a string object", rankThatIsOff); }
    const uint64 allocations = counter.Allocations();

    EXPECT_EQ(allocations, 0U);
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
    std::string threadIdEvent;
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

    EXPECT_THAT(m_events->Texts(),
                ElementsAre("CreateContext",
                            "OpenContext",
                            StartsWith("Attribute "),
                            "AttributePairs L\"mctx\" {\"c\"=1}",
                            "OpenScope \"load\" {}",
                            threadIdEvent,
                            zeroMemory,
                            zeroCpu,
                            "CloseScope \"load\"",
                            "PostCloseScope \"load\" action 0",
                            "CloseContext"));
    EXPECT_NE(inside, 0U);
    EXPECT_NE(inside, m_context.GetId());
    EXPECT_EQ(m_events->First(MetricsEventType::OpenScope).contextId, inside);
    EXPECT_EQ(m_events->First(MetricsEventType::CreateContext).id, inside);
    EXPECT_EQ(m_events->First(MetricsEventType::CreateContext).contextId, 0U) << "it is a root";
    EXPECT_EQ(m_events->First(MetricsEventType::CloseContext).id, inside);
    EXPECT_EQ(afterwards, 0U);
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

    EXPECT_THAT(
        m_events->Texts(),
        ElementsAre("CreateContext", "OpenContext", StartsWith("Attribute "), "CloseContext"));
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

        EXPECT_THAT(late->Texts(), IsEmpty());
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

    EXPECT_THAT(others->Texts(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, TheCallersFlagsCanBeWhatAListenerWants) {
    StopListening(m_events);
    const auto others = Listen(uint64{1} << 3, false);
    { const ActivityScope scope("load", Traits(uint64{1} << 3)); }

    EXPECT_EQ(others->Count(MetricsEventType::OpenScope), 1U);
    EXPECT_EQ(others->Count(MetricsEventType::CloseScope), 1U);
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

    EXPECT_THAT(m_events->Texts(), ElementsAre("OpenScope \"load\" {}"));
}

// ---- Custom contexts

TEST_F(ActivityScopeLifecycleTest, AnEmptyCustomContextSendsNothingAndLeavesNothingToUndo) {
    { const ActivityScope scope("load", CustomContext(NameValueList{}), TraceType::Untracked); }

    EXPECT_THAT(m_events->Texts(),
                ElementsAre("OpenScope \"load\" {}", ThreadIdEvent(), "CloseScope \"load\""));
}

TEST_F(ActivityScopeLifecycleTest, ACustomContextLeavesItsSourceEmpty) {
    CustomContext custom(NameValueList{{"c", 1}});

    const ActivityScope scope("load", std::move(custom));

    EXPECT_THAT(custom.attributes, IsEmpty());  // NOLINT(bugprone-use-after-move)
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsOffLeavesTheSourceOfItsCustomContextEmptyToo) {
    CustomContext alone(NameValueList{{"c", 1}});
    CustomContext withList(NameValueList{{"c", 1}});
    CustomContext withInitializer(NameValueList{{"c", 1}});

    const ActivityScope first("load", std::move(alone), rankThatIsOff);
    const ActivityScope second("load", std::move(withList), rankThatIsOff, {{"a", 1}});
    const ActivityScope third("load",
                              std::move(withInitializer),
                              rankThatIsOff,
                              {{"a", 1}},
                              ActivityContextInitializer{});

    EXPECT_THAT(alone.attributes, IsEmpty());            // NOLINT(bugprone-use-after-move)
    EXPECT_THAT(withList.attributes, IsEmpty());         // NOLINT(bugprone-use-after-move)
    EXPECT_THAT(withInitializer.attributes, IsEmpty());  // NOLINT(bugprone-use-after-move)
    EXPECT_THAT(m_events->Texts(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, ACustomContextIsSentWithTheTracingBitAlone) {
    const ActivityScope scope(
        "load", CustomContext(NameValueList{{"c", 1}}), Traits(TraceType::Untracked, 0x100));

    const MetricsEvent event = m_events->First(MetricsEventType::AttributePairs);
    EXPECT_EQ(event.flags, 0x0020000000000000U);
    EXPECT_EQ(event.contextId, m_context.GetId());
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
        std::string event;
        bool measuring;
        std::size_t depth;
    };

    std::vector<Moment> moments;
    try {
        const ActivityScope scope("load", CustomContext(NameValueList{{"c", 1}}));
        m_events->CallOnEach([&moments](const MetricsEvent& event) {
            moments.push_back(
                {Text(event), CurrentMemoryFrame() != nullptr, Registry().GetDepth()});
        });
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }
    m_events->CallOnEach({});

    ASSERT_EQ(moments.size(), 6U);
    EXPECT_EQ(moments[0].event, stackUnwind);
    EXPECT_TRUE(moments[0].measuring);
    EXPECT_EQ(moments[0].depth, 1U);
    for (std::size_t i = 1; i < moments.size(); ++i) {
        EXPECT_FALSE(moments[i].measuring) << moments[i].event;
        EXPECT_EQ(moments[i].depth, 0U) << moments[i].event;
    }
    EXPECT_EQ(moments[1].event, ThreadIdEvent());
    EXPECT_EQ(moments[5].event, "PostCloseScope \"load\" action 0");
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

// ---- Early termination

TEST_F(ActivityScopeLifecycleTest, AScopeThatAnExceptionEndsReportsEarlyTermination) {
    try {
        const ActivityScope scope("load", TraceType::Untracked);
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(
        m_events->Texts(),
        ElementsAre("OpenScope \"load\" {}", stackUnwind, ThreadIdEvent(), "CloseScope \"load\""));
}

TEST_F(ActivityScopeLifecycleTest, EveryScopeThatTheExceptionPassesReports) {
    try {
        const ActivityScope outer("outer");
        const ActivityScope inner("inner");
        throw std::runtime_error("ends both scopes");
    } catch (const std::runtime_error&) {
    }

    const auto texts = m_events->Texts();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), stackUnwind), 2);
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatEndsAfterTheExceptionWasCaughtReportsNothing) {
    {
        const ActivityScope scope("load");
        try {
            throw std::runtime_error("is caught within");
        } catch (const std::runtime_error&) {
            const ActivityScope handling("handling");
        }
    }

    EXPECT_THAT(m_events->Texts(), Not(Contains(stackUnwind)));
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatEndsEarlyAfterCancelReportsNothingMore) {
    try {
        ActivityScope scope("load", TraceType::Untracked);
        scope.Cancel({});
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(m_events->Texts(), Not(Contains(stackUnwind)));
    EXPECT_EQ(m_events->Count(MetricsEventType::NameValuePairs), 1U);
}

// Works while an exception is under way.
struct WorksInItsDestructor {
    ~WorksInItsDestructor() { const ActivityScope scope("clean up", TraceType::Untracked); }
};

TEST_F(ActivityScopeLifecycleTest, AScopeThatLivesWithinUnwindingReportsEarlyTerminationToo) {
    try {
        const WorksInItsDestructor worker;
        throw std::runtime_error("runs the destructor");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(
        m_events->Texts(),
        ElementsAre(
            "OpenScope \"clean up\" {}", stackUnwind, ThreadIdEvent(), "CloseScope \"clean up\""));
}

TEST_F(ActivityScopeLifecycleTest, AnExceptionOnAnotherThreadDoesNotMatter) {
    std::unique_ptr<ActivityScope> scope;

    struct ClosesOnAnotherThread {
        std::unique_ptr<ActivityScope>& scope;

        ~ClosesOnAnotherThread() {
            OnAnotherThread([this] { scope.reset(); });
        }
    };

    scope = std::make_unique<ActivityScope>("load", TraceType::Untracked);

    try {
        const ClosesOnAnotherThread closer{scope};
        throw std::runtime_error("is under way here only");
    } catch (const std::runtime_error&) {
    }

    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 1U);
    EXPECT_THAT(m_events->Texts(), Not(Contains(stackUnwind)));
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsNotOpenReportsNoEarlyTermination) {
    StopListening(m_events);
    RefCntPtr<RecordingListener> late;
    try {
        const ActivityScope scope("load");
        late = Listen();
        throw std::runtime_error("ends the scope");
    } catch (const std::runtime_error&) {
    }

    EXPECT_THAT(late->Texts(), IsEmpty());
}

// ---- Scopes that end in another order or on another thread

TEST_F(ActivityScopeLifecycleTest, ClosingTheOuterScopeFirstKeepsTheInnerOnTop) {
    SwitchForegroundContextsOn();
    auto outer = std::make_unique<ActivityScope>("outer", TraceType::Untracked);
    const ActivityScope inner("inner", TraceType::Untracked);

    outer.reset();

    EXPECT_EQ(Registry().GetCurrentContext(), inner.GetActivityContext());
    EXPECT_EQ(Registry().GetDepth(), 1U);
}

TEST_F(ActivityScopeLifecycleTest, TheThreadIdIsTheOneOfTheThreadThatClosesTheScope) {
    auto scope = std::make_unique<ActivityScope>("load", TraceType::Untracked);
    const std::string openingThread = ThreadIdEvent();
    std::string closingThread;

    OnAnotherThread([&] {
        closingThread = ThreadIdEvent();
        scope.reset();
    });

    EXPECT_NE(closingThread, openingThread);
    EXPECT_THAT(m_events->Texts(),
                ElementsAre("OpenScope \"load\" {}", closingThread, "CloseScope \"load\""));
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatEndsOnAnotherThreadLeavesItsEntryOnTheFirst) {
    SwitchForegroundContextsOn();
    auto scope = std::make_unique<ActivityScope>("load", TraceType::Untracked);
    const auto context = scope->GetActivityContext();

    OnAnotherThread([&] {
        const auto other = std::make_shared<ActivityContext>();
        Registry().Push(other);
        scope.reset();
        EXPECT_EQ(Registry().GetDepth(), 1U);
        EXPECT_EQ(Registry().GetCurrentContext(), other);
    });

    EXPECT_EQ(Registry().GetCurrentContext(), context);
    EXPECT_EQ(Registry().GetDepth(), 1U);
    Registry().Remove(context);
}

// ---- Threads

TEST_F(ActivityScopeLifecycleTest, ScopesOfTwoThreadsAreTreesOfTheirOwn) {
    SwitchForegroundContextsOn();
    const ActivityScope here("here");
    TString rootThere;

    OnAnotherThread([&rootThere] {
        const ActivityScope there("there");
        const ActivityScope inner("inner");
        rootThere = inner.GetActivityContext()->GetRootId();
        EXPECT_EQ(rootThere, there.GetActivityContext()->GetRootId());
        EXPECT_EQ(Registry().GetDepth(), 2U);
    });

    EXPECT_NE(rootThere, here.GetActivityContext()->GetRootId());
    EXPECT_EQ(Registry().GetDepth(), 1U);
}

TEST_F(ActivityScopeLifecycleTest, ThreadsThatTraceAtOnceEachSendWellNestedScopes) {
    SwitchForegroundContextsOn();
    constexpr int threadCount = 4;
    constexpr int perThread = 500;

    OnThreadsAtOnce(threadCount, [](int) {
        for (int n = 0; n < perThread; ++n) {
            const ActivityScope outer("outer", {{"n", n}});
            ActivityScope inner("inner");
            inner.Add({{"n", n}});
        }
    });

    std::map<uint64, std::vector<uint64>> open;
    int closed = 0;
    for (const MetricsEvent& event : m_events->Events()) {
        std::vector<uint64>& stack = open[event.contextId];
        if (event.type == MetricsEventType::OpenScope) {
            stack.push_back(event.id);
        } else if (event.type == MetricsEventType::CloseScope) {
            ASSERT_FALSE(stack.empty());
            EXPECT_EQ(stack.back(), event.id);
            stack.pop_back();
            ++closed;
        } else if (event.type == MetricsEventType::NameValue ||
                   event.type == MetricsEventType::NameValuePairs) {
            ASSERT_FALSE(stack.empty());
            EXPECT_EQ(stack.back(), event.id);
        }
    }
    EXPECT_EQ(closed, threadCount * perThread * 2);
}

// ---- Late in the life of threads and of the process

struct AtThreadExit {
    std::function<void()> action;

    ~AtThreadExit() {
        if (action) {
            action();
        }
    }
};

thread_local AtThreadExit s_atThreadExit;

TEST_F(ActivityScopeLifecycleTest, AScopeOnAThreadThatIsBeingTornDownIsHarmless) {
    SwitchForegroundContextsOn();
    bool ran = false;

    OnAnotherThread([&ran] {
        s_atThreadExit.action = [&ran] {
            ActivityScope late("late", CustomContext(NameValueList{{"c", 1}}), {{"a", 1}});
            late.Add({{"b", 1}});
            late.AttachToThread();
            const ActivityScope inner("inner");
            EXPECT_EQ(Registry().GetCurrentContext(), nullptr);
            EXPECT_NE(late.GetActivityContext(), nullptr);
            ran = true;
        };
        const ActivityScope early("early");
    });

    EXPECT_TRUE(ran);
    EXPECT_EQ(m_events->Count(MetricsEventType::OpenScope),
              m_events->Count(MetricsEventType::CloseScope));
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatOutlivesItsThreadsLocalsIsHarmless) {
    SwitchForegroundContextsOn();
    bool ran = false;

    OnAnotherThread([&ran] {
        s_atThreadExit.action = nullptr;
        auto scope = std::make_shared<std::unique_ptr<ActivityScope>>(
            std::make_unique<ActivityScope>("load", TraceType::Untracked));
        s_atThreadExit.action = [scope, &ran] {
            scope->reset();
            ran = true;
        };
    });

    EXPECT_TRUE(ran);
    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 1U);
}

TEST_F(ActivityScopeLifecycleTest, AScopeInAStaticDestructorIsHarmless) {
    struct AtExit {
        ~AtExit() {
            {
                ActivityScope scope("at exit", CustomContext(NameValueList{{"c", 1}}), {{"a", 1}});
                scope.Add({{"b", 2}});
                const ActivityScope inner("inner");
            }
            std::fprintf(stderr, "traced at exit\n");
        }
    };

    EXPECT_EXIT(
        {
            SwitchForegroundContextsOn();
            OptTarn::SetShouldLogForegroundActivity(true);
            static const AtExit atExit;
            { const ActivityScope scope("before"); }
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "traced at exit");
}

TEST_F(ActivityScopeLifecycleTest, AStaticScopeMayOutliveMain) {
    EXPECT_EXIT(
        {
            SwitchForegroundContextsOn();
            static const ActivityScope scope("for the whole process", {{"a", 1}});
            std::exit(0);
        },
        testing::ExitedWithCode(0),
        "");
}

}  // namespace
}  // namespace tarn::test
