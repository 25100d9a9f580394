#include "ActivityScopeLifecycleTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include <cstring>
#include <functional>
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
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// ---- Names

TEST_F(ActivityScopeLifecycleTest, TheNameMayBeEmpty) {
    { const ActivityScope scope("", TraceType::Untracked); }

    EXPECT_THAT(m_events->Contents(), ElementsAre(Opens(""), ThreadIdEvent(), Closes("")));
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

    EXPECT_THAT(m_events->Contents(), ElementsAre(Opens("load"), ThreadIdEvent(), Closes("load")));
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

    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, ANullNameIsTheEmptyName) {
    {
        const ActivityScope scope(nullptr, TraceType::Untracked);
        const ActivityScope another(nullptr, Traits(TraceType::Untracked), {{"a", 1}});
    }
    EXPECT_THAT(m_events->Contents(), AllOf(Contains(Opens("")), Contains(Opens("", {{"a", 1}}))));
    EXPECT_EQ(m_events->Count(MetricsEventType::CloseScope), 2U);

    m_events->Clear();
    TarnSettings::GetInstance().SetOffs({""});
    { const ActivityScope scope(nullptr); }
    EXPECT_THAT(m_events->Contents(), IsEmpty());
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

        std::vector<EventContent> expected;
        if (form.hasCustomContext) {
            expected.push_back(SendsContextPairs(u"mctx", {{"c", 1}}));
        }
        expected.push_back(form.hasList ? Opens("s", {{"a", 1}}) : Opens("s"));
        expected.push_back(ThreadIdEvent());
        if (!form.hasTraits) {
            expected.push_back(ZeroMemory());
            expected.push_back(ZeroCpu());
        }
        expected.push_back(Closes("s"));
        if (form.hasCustomContext) {
            expected.push_back(PostCloses("s"));
        }
        EXPECT_THAT(m_events->Contents(), ElementsAreArray(expected));
        EXPECT_EQ(m_events->First(MetricsEventType::OpenScope).flags,
                  form.hasTraits ? 0x0060000000000100U : 0x0020000000000000U);
    }
}

TEST_F(ActivityScopeLifecycleTest, EveryConstructorTellsTheIdentityWhileForegroundContextsAreOn) {
    SwitchForegroundContextsOn();
    const auto custom = [] { return CustomContext(NameValueList{}); };
    const auto list = [] { return NameValueList{{"a", 1}}; };
    const auto openingOf = [this](const ActivityScope& scope, const NameValueList& attributes) {
        EXPECT_EQ(ContentOf(m_events->First(MetricsEventType::OpenScope)),
                  Opens("s", Joined(attributes, ContextPairs(*scope.GetActivityContext()))));
        EXPECT_EQ(Registry().GetCurrentContext(), scope.GetActivityContext());
        m_events->Clear();
    };

    openingOf(ActivityScope("s"), {});
    m_events->Clear();
    openingOf(ActivityScope("s", list()), list());
    m_events->Clear();
    openingOf(ActivityScope("s", Traits()), {});
    m_events->Clear();
    openingOf(ActivityScope("s", Traits(), list()), list());
    m_events->Clear();
    openingOf(ActivityScope("s", custom()), {});
    m_events->Clear();
    openingOf(ActivityScope("s", custom(), list()), list());
    m_events->Clear();
    openingOf(ActivityScope("s", custom(), Traits()), {});
    m_events->Clear();
    openingOf(ActivityScope("s", custom(), Traits(), list()), list());
    m_events->Clear();
    openingOf(ActivityScope("s", custom(), Traits(), list(), ActivityContextInitializer{}), list());
}

TEST_F(ActivityScopeLifecycleTest, ABracedListAfterTheNameIsAListOfAttributes) {
    {
        const ActivityScope one("one", {{"a", 1}});
        const ActivityScope two("two", {{"a", 1}, {"b", u"x"}});
        const ActivityScope texts("texts", {{"a", "b"}});
        const ActivityScope numbers("numbers", {{1, 2}, {3, 4}});
    }

    EXPECT_THAT(m_events->Contents(),
                AllOf(Contains(Opens("one", {{"a", 1}})),
                      Contains(Opens("two", {{"a", 1}, {"b", u"x"}})),
                      Contains(Opens("texts", {{"a", "b"}})),
                      Contains(Opens("numbers", {{1, 2}, {3, 4}})),
                      Not(Contains(IsOfType(MetricsEventType::AttributePairs)))));
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

        // Their emptiness after the move is what is promised.
        EXPECT_THAT(alone, IsEmpty());            // NOLINT(bugprone-use-after-move): promised
        EXPECT_THAT(withTraits, IsEmpty());       // NOLINT(bugprone-use-after-move): promised
        EXPECT_THAT(withContext, IsEmpty());      // NOLINT(bugprone-use-after-move): promised
        EXPECT_THAT(withInitializer, IsEmpty());  // NOLINT(bugprone-use-after-move): promised
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

// ---- Custom contexts

TEST_F(ActivityScopeLifecycleTest, AnEmptyCustomContextSendsNothingAndLeavesNothingToUndo) {
    { const ActivityScope scope("load", CustomContext(NameValueList{}), TraceType::Untracked); }

    EXPECT_THAT(m_events->Contents(), ElementsAre(Opens("load"), ThreadIdEvent(), Closes("load")));
}

TEST_F(ActivityScopeLifecycleTest, ACustomContextLeavesItsSourceEmpty) {
    CustomContext custom(NameValueList{{"c", 1}});

    const ActivityScope scope("load", std::move(custom));

    // Its emptiness after the move is what is promised.
    EXPECT_THAT(custom.attributes, IsEmpty());  // NOLINT(bugprone-use-after-move): promised
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

    // Their emptiness after the move is what is promised.
    EXPECT_THAT(alone.attributes, IsEmpty());     // NOLINT(bugprone-use-after-move): promised
    EXPECT_THAT(withList.attributes, IsEmpty());  // NOLINT(bugprone-use-after-move): promised
    // NOLINTNEXTLINE(bugprone-use-after-move): promised
    EXPECT_THAT(withInitializer.attributes, IsEmpty());
    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, ACustomContextIsSentWithTheTracingBitAlone) {
    const ActivityScope scope(
        "load", CustomContext(NameValueList{{"c", 1}}), Traits(TraceType::Untracked, 0x100));

    const MetricsEvent event = m_events->First(MetricsEventType::AttributePairs);
    EXPECT_EQ(event.flags, 0x0020000000000000U);
    EXPECT_EQ(event.contextId, m_context.GetId());
}

}  // namespace
}  // namespace tarn::test
