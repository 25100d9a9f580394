#include "ActivityScopeLifecycleTest.h"
#include "AllocationCounter.h"

#include "tarn/ActivityName.h"
#include "tarn/ActivityScope.h"
#include "tarn/TarnSettings.h"

#include <cstddef>
#include <stdexcept>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::NameValueList;
using testing::ElementsAre;
using testing::IsEmpty;

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

    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, AScopeOfANameThatRemembersIsOffWhenItsTextIs) {
    SwitchForegroundContextsOn();
    const ActivityName name("load");
    TarnSettings::GetInstance().SetOffs({"load"});
    {
        const ActivityScope plain(name);
        const ActivityScope withPairs(name, {{"a", 1}});
        const ActivityScope withTraits(name, Traits(TraceType::Untracked));
        const ActivityScope withBoth(name, Traits(TraceType::Transparent), {{"a", 1}});

        EXPECT_EQ(withPairs.GetActivityContext(), nullptr);
        EXPECT_EQ(Registry().GetDepth(), 0U);
        EXPECT_EQ(CurrentMemoryFrame(), nullptr);
    }
    EXPECT_THAT(m_events->Contents(), IsEmpty());

    TarnSettings::GetInstance().SetOffs({});
    const ActivityScope on(name);

    EXPECT_NE(on.GetActivityContext(), nullptr);
    EXPECT_EQ(Registry().GetDepth(), 1U);
}

TEST_F(ActivityScopeLifecycleTest, AScopeOfANameThatRemembersSaysWhatOneOfItsTextDoes) {
    const ActivityName name("load");
    const auto textsOf = [this](const auto& make) {
        const std::size_t before = m_events->Contents().size();
        make();
        const auto texts = m_events->Contents();
        return std::vector(texts.begin() + static_cast<std::ptrdiff_t>(before), texts.end());
    };

    const auto plain = textsOf([] {
        const ActivityScope a("load");
        const ActivityScope b("load", {{"a", 1}});
        const ActivityScope c("load", Traits(TraceType::Untracked));
        const ActivityScope d("load", Traits(TraceType::Transparent), {{"a", 1}});
    });
    const auto named = textsOf([&name] {
        const ActivityScope a(name);
        const ActivityScope b(name, {{"a", 1}});
        const ActivityScope c(name, Traits(TraceType::Untracked));
        const ActivityScope d(name, Traits(TraceType::Transparent), {{"a", 1}});
    });

    EXPECT_THAT(plain, testing::Not(IsEmpty()));
    EXPECT_EQ(named, plain);
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsOffByRankDoesNothing) {
    SwitchForegroundContextsOn();
    {
        const ActivityScope scope("load", Traits(rankThatIsOff), {{"a", 1}});

        EXPECT_EQ(scope.GetActivityContext(), nullptr);
        EXPECT_EQ(Registry().GetDepth(), 0U);
        EXPECT_EQ(CurrentMemoryFrame(), nullptr);
    }

    EXPECT_THAT(m_events->Contents(), IsEmpty());
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

    EXPECT_THAT(m_events->Contents(), IsEmpty());
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

    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, WhetherAScopeIsOffIsDecidedOnce) {
    {
        const ActivityScope onAtFirst("load", TraceType::Untracked);
        TarnSettings::GetInstance().SetRankOn(TraceRank{-1});
        TarnSettings::GetInstance().SetOffs({"load"});
    }
    EXPECT_THAT(m_events->Contents(), ElementsAre(Opens("load"), ThreadIdEvent(), Closes("load")));

    m_events->Clear();
    {
        ActivityScope offAtFirst("load");
        TarnSettings::GetInstance().SetRankOn(TraceRank{5});
        TarnSettings::GetInstance().SetOffs({});
        offAtFirst.Add({{"a", 1}});
    }
    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ActivityScopeLifecycleTest, AScopeThatIsOffByRankNeedsNoMemory) {
    const AllocationCounter counter;
    { const ActivityScope scope("a name that does not fit into a string object", rankThatIsOff); }
    const uint64 allocations = counter.Allocations();

    EXPECT_EQ(allocations, 0U);
}

}  // namespace
}  // namespace tarn::test
