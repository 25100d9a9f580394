#include "AllocationCounter.h"
#include "DoorTest.h"
#include "HostCounters.h"
#include "Threads.h"

#include "tarn/TarnSettings.h"
#include "tarn/Trace.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using DoorActivityTest = DoorTest;

TEST_F(DoorActivityTest, ActivitiesOverlapAndEndInAnyOrder) {
    {
        const Scope serve("serve");
        std::map<int, Activity> jobs;
        for (const int id : {1, 2, 3}) {
            jobs.emplace(id, Activity("job", {{"id", id}}));
        }
        const Scope other("other");
        jobs.erase(2);
        jobs.erase(1);
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  job\n"
              "  job\n"
              "  job\n"
              "  other\n");
    for (const int id : {1, 2, 3}) {
        EXPECT_THAT(Events(), Contains(AllOf(Begins("job"), HasBodyField("id", id))));
    }
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorActivityTest, AnActivityOutlivesTheScopeThatItBeganIn) {
    std::vector<Activity> activities;
    {
        const Scope scope("starts it");
        activities.emplace_back("goes on");
    }
    { const Scope scope("later"); }
    activities.clear();

    EXPECT_EQ(Tree(),
              "starts it\n"
              "  goes on\n"
              "later\n");
}

TEST_F(DoorActivityTest, AnActivityEndsOnAnotherThread) {
    {
        const Scope serve("serve");
        auto activity = std::make_unique<Activity>("moves");
        OnAnotherThread([moved = std::move(activity)]() mutable {
            moved->Add("there", 1);
            moved.reset();
        });
        const Scope after("after");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  moves\n"
              "  after\n");
    EXPECT_THAT(Events(), Contains(AllOf(Ends("moves"), HasBodyField("there", 1))));
}

TEST_F(DoorActivityTest, WhatBeginsWhileItIsResumedBelongsToIt) {
    {
        const Scope serve("serve");
        Activity activity("activity");
        { const Scope before("before"); }
        for (const char* name : {"here", "there"}) {
            OnAnotherThread([&activity, name] {
                const Resumed resumed(activity);
                const Scope scope(name);
                Current().Add("inner", 1);
            });
        }
        activity.Resume();
        Current().Add("own", 2);
        activity.Suspend();
        const Scope after("after");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  activity\n"
              "    here\n"
              "    there\n"
              "  before\n"
              "  after\n");
    EXPECT_THAT(Events(), Contains(AllOf(Ends("activity"), HasBodyField("own", 2))));
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorActivityTest, AnActivityMayBeResumedOnSeveralThreadsAtOnce) {
    {
        Activity activity("activity");
        OnThreadsAtOnce(4, [&activity](int /*thread*/) {
            for (int i = 0; i < 50; ++i) {
                const Resumed resumed(activity);
                const Scope scope("part");
                activity.Add("last", i);
            }
        });
    }

    const auto id = Field(Events().front(), Table::Activity, "id");
    ASSERT_TRUE(id.has_value());
    EXPECT_EQ(CountOf(AllOf(Ends("part"), HasActivityField("sponsor", *id))), 200U);
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorActivityTest, ItHasChildrenOnWhateverThread) {
    {
        Activity activity("parent");
        Activity child = activity.Child("child", {{"number", 1}});
        OnAnotherThread([&activity] {
            Activity second = activity.Child("second");
            const Scope scope(activity.GetHandoff(), "scope");
        });
        activity.End();
    }

    EXPECT_EQ(Tree(),
              "parent\n"
              "  child\n"
              "  second\n"
              "  scope\n");
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorActivityTest, ResumedActivitiesAreSuspendedInAnyOrder) {
    {
        Activity first("first");
        Activity second("second");
        first.Resume();
        second.Resume();
        first.Suspend();
        { const Scope scope("in second"); }
        second.Suspend();
        const Scope scope("in none");
    }

    EXPECT_EQ(Tree(),
              "first\n"
              "second\n"
              "  in second\n"
              "in none\n");
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorActivityTest, OutcomesArrive) {
    Activity failed("failed");
    failed.Fail("timeout", {{"after", 5}});
    failed.End();
    Activity canceled("canceled");
    canceled.Cancel();
    canceled.End();
    Activity thrown("thrown");
    thrown.FailException(std::runtime_error("bad"));
    thrown.End();

    EXPECT_EQ(Tree(),
              "failed: timeout\n"
              "canceled: early-termination\n"
              "thrown: exception\n");
}

TEST_F(DoorActivityTest, WhatBelongsToAnActivityThatIsOffBelongsToItsStarter) {
    TarnSettings::GetInstance().SetOffs({"off"});
    {
        const Scope serve("serve");
        Activity off("off");
        Activity child = off.Child("child");
        {
            const Resumed resumed(off);
            const Scope scope("scope");
        }
        const Scope after("after");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  child\n"
              "  scope\n"
              "  after\n");
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorActivityTest, AMovedActivityKeepsItsIdentityAndLeavesNone) {
    Activity parent("parent");
    const std::string id(parent.GetActivityId().View());
    EXPECT_FALSE(id.empty());

    Activity moved = std::move(parent);
    EXPECT_EQ(moved.GetActivityId().View(), id);
    // That it is harmless is promised.
    // NOLINTNEXTLINE(bugprone-use-after-move): promised
    EXPECT_TRUE(parent.GetActivityId().IsEmpty());
    parent.Add("nothing", 1);
    parent.End();
    EXPECT_THAT(Warnings(), IsEmpty());
}

// ---- Wrong use

/// A name that was not warned of in this process, however often the tests are repeated.
std::string FreshName(const char* text) {
    static int number = 0;
    return text + std::string(" ") + std::to_string(++number);
}

TEST_F(DoorActivityTest, UseAfterTheEndHasNoEffectAndIsWarnedOfOnce) {
    const std::string name = FreshName("late");
    for (int i = 0; i < 3; ++i) {
        Activity activity(name);
        activity.End();
        activity.Add("late", 1);
        activity.Resume();
        activity.Suspend();
        activity.End();
    }

    EXPECT_EQ(CountOf(Ends(name)), 3U);
    EXPECT_THAT(Warnings(),
                ElementsAre(HasSubstr(name + "\" was used after its end"),
                            HasSubstr(name + "\" was resumed after its end"),
                            HasSubstr(name + "\" was ended after its end")));
}

TEST_F(DoorActivityTest, AnActivityThatEndsBeforeItsScopesLosesNoEnds) {
    {
        const Scope serve("serve");
        Activity activity("ends early");
        activity.Resume();
        const Scope inner("inner");
        activity.End();
        const Scope innermost("innermost");
    }
    const Scope after("after");

    EXPECT_EQ(CountOf(Ends("serve")), 1U);
    EXPECT_EQ(CountOf(Ends("ends early")), 1U);
    EXPECT_EQ(CountOf(Ends("inner")), 1U);
    EXPECT_EQ(CountOf(Ends("innermost")), 1U);
    EXPECT_FALSE(Current().GetActivityId().IsEmpty());
}

TEST_F(DoorActivityTest, SuspendedBeforeItsScopesItLosesNoEnds) {
    const std::string name = FreshName("early");
    {
        const Scope serve("serve");
        Activity activity(name);
        activity.Resume();
        {
            const Scope inner("inner");
            activity.Suspend();
        }
        const Scope after("after");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  " +
                  name +
                  "\n"
                  "    inner\n"
                  "  after\n");
    EXPECT_THAT(Warnings(), ElementsAre(HasSubstr(name + "\" was suspended before")));
}

TEST_F(DoorActivityTest, ResumedTwiceOrSuspendedWhereItIsNotItStaysAsItIs) {
    const std::string name = FreshName("twice");
    {
        Activity activity(name);
        activity.Suspend();
        activity.Resume();
        activity.Resume();
        { const Scope scope("inside"); }
        activity.Suspend();
        const Scope scope("outside");
    }

    EXPECT_EQ(Tree(),
              name +
                  "\n"
                  "  inside\n"
                  "outside\n");
    EXPECT_THAT(Warnings(),
                ElementsAre(HasSubstr("suspended on a thread where it is not resumed"),
                            HasSubstr("resumed on a thread where it is resumed already")));
}

TEST_F(DoorActivityTest, EndedOnAnotherThreadThanItIsResumedOnItLosesNothing) {
    const std::string name = FreshName("elsewhere");
    {
        const Scope serve("serve");
        auto activity = std::make_unique<Activity>(name);
        activity->Resume();
        OnAnotherThread([&activity] { activity.reset(); });
        EXPECT_TRUE(Current());
        const Scope after("after");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  " +
                  name +
                  "\n"
                  "  after\n");
    EXPECT_THAT(Warnings(), ElementsAre(HasSubstr("resumed on another thread")));
}

TEST_F(DoorActivityTest, AThreadThatEndsWhileAnActivityIsResumedLeavesNothingBehind) {
    const HostCounters counters;
    {
        Activity activity("left resumed");
        OnAnotherThread([&activity] { activity.Resume(); });
        const Scope scope("scope");
    }

    EXPECT_EQ(counters.contextsCreated, counters.contextsClosed);
    EXPECT_EQ(Tree(), "left resumed\nscope\n");
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorActivityTest, AResumedGuardMayOutliveTheActivity) {
    {
        auto activity = std::make_unique<Activity>("shorter");
        const Resumed resumed(*activity);
        activity.reset();
        const Scope scope("scope");
    }

    EXPECT_EQ(CountOf(Ends("shorter")), 1U);
    EXPECT_EQ(CountOf(Ends("scope")), 1U);
}

TEST_F(DoorActivityTest, ActivitiesLeaveNothingBehind) {
    constexpr int many = 1'000;
    StopTracing();
    const auto use = [](int count) {
        for (int i = 0; i < count; ++i) {
            Activity activity("activity", {{"number", i}});
            const Resumed resumed(activity);
            const Activity child = activity.Child("child");
            const Scope scope("scope");
        }
    };
    use(100);

    const AllocationCounter allocations;
    use(many);

    EXPECT_LT(static_cast<int64>(allocations.Allocations() - allocations.Releases()), 10);
}

}  // namespace
}  // namespace tarn::test
