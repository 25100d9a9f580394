#include "ActivityScopeLifecycleTest.h"
#include "AtThreadExit.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEventType;
using Metrics::NameValueList;

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
