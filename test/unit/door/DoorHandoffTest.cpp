#include "AllocationCounter.h"
#include "DoorTest.h"
#include "HostCounters.h"
#include "Sanitizers.h"
#include "Threads.h"

#include "tarn/TarnSettings.h"
#include "tarn/Trace.h"

#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Contains;

using DoorHandoffTest = DoorTest;

TEST_F(DoorHandoffTest, AWrappedFunctionBelongsToWhatWrappedIt) {
    {
        const Scope serve("serve");
        std::future<int> answer =
            std::async(std::launch::async, Wrap("compute", [](int x) { return x + 1; }), 41);
        EXPECT_EQ(answer.get(), 42);
        const Scope after("after");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  compute\n"
              "  after\n");
}

TEST_F(DoorHandoffTest, EachRunOfATimerIsAnActivityOfItsOwn) {
    std::function<void()> timer;
    {
        const Scope starter("starter");
        int ticks = 0;
        timer = Wrap("tick", [ticks]() mutable { Current().Add("number", ++ticks); });
    }
    for (int i = 0; i < 3; ++i) {
        OnAnotherThread(timer);
    }
    timer();

    EXPECT_EQ(CountOf(Begins("tick")), 4U);
    EXPECT_EQ(CountOf(Ends("tick")), 4U);
    const auto root = Field(Events().front(), Table::Activity, "id");
    ASSERT_TRUE(root.has_value());
    EXPECT_EQ(CountOf(AllOf(Ends("tick"), HasActivityField("root", *root))), 4U);
}

TEST_F(DoorHandoffTest, AnExceptionThatLeavesARunIsLoggedWithTypeAndText) {
    const auto task = Wrap("task", [] { throw std::invalid_argument("bad piece"); });

    EXPECT_THROW(task(), std::invalid_argument);

    EXPECT_THAT(
        Events(),
        Contains(AllOf(Ends("task"),
                       HasActivityField("rk", "exception"),
                       HasActivityField("rv",
                                        LogValue::Object({{"msg", "bad piece"},
                                                          {"type", "std::invalid_argument"}})))));
}

TEST_F(DoorHandoffTest, AFunctionIsMovedInAndItsResultIsHandedOn) {
    auto number = std::make_unique<int>(7);
    auto task = Wrap("task", [moved = std::move(number)]() -> int& { return *moved; });
    auto movedTask = std::move(task);

    int& result = movedTask();

    EXPECT_EQ(result, 7);
}

TEST_F(DoorHandoffTest, TasksThatNeverRunLeaveNothingBehind) {
    constexpr int tasks = 10'000;
    const HostCounters counters;
    {
        const Scope serve("serve");
        std::vector<std::function<void()>> queue;
        for (int i = 0; i < tasks; ++i) {
            queue.emplace_back(Wrap("task", [] {}));
        }
        queue.clear();
    }

    EXPECT_EQ(counters.contextsCreated, counters.contextsClosed);
    EXPECT_GE(counters.contextsCreated, tasks);
    EXPECT_EQ(Tree(), "serve\n");
}

TEST_F(DoorHandoffTest, TasksThatNeverRunGiveTheirMemoryBack) {
    StopTracing();
    const Scope serve("serve");
    const auto cancel = [](int count) {
        for (int i = 0; i < count; ++i) {
            static_cast<void>(Wrap("task", [] {}));
        }
    };
    cancel(100);

    const AllocationCounter allocations;
    cancel(1'000);

    EXPECT_LT(static_cast<int64>(allocations.Allocations() - allocations.Releases()), 10);
}

TEST_F(DoorHandoffTest, EightHundredThousandCanceledTasksHoldNoMemory) {
    constexpr int tasks = hasAddressSanitizer || hasThreadSanitizer ? 40'000 : 800'000;
    const Scope serve("serve");
    const auto cancel = [](int count) {
        constexpr int waiting = 1000;
        std::vector<std::function<void()>> queue;
        for (int i = 0; i < count; ++i) {
            queue.emplace_back(Wrap("task", [i] { Current().Add("number", i); }));
            if (queue.size() == waiting) {
                queue.clear();
            }
        }
    };
    cancel(2'000);

    const uint64 contexts = Monitor().GetNumberOpenContexts();
    const AllocationCounter allocations;
    cancel(tasks);

    EXPECT_LT(static_cast<int64>(allocations.Allocations() - allocations.Releases()), 10);
    EXPECT_EQ(Monitor().GetNumberOpenContexts(), contexts);
    EXPECT_EQ(Tree(), "serve (open)\n");
}

TEST_F(DoorHandoffTest, AHandoffTakesNameTraitsAndAttributesWhereTheWorkIsDone) {
    {
        const Scope serve("serve");
        OnAnotherThread([from = Handoff()] {
            const Scope work(from, "work", TraceType::Untracked, {{"piece", 2}});
            const Activity activity(from, "activity", {{"piece", 3}});
            const Scope part("part");
        });
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  work\n"
              "    part\n"
              "  activity\n");
    EXPECT_THAT(Events(), Contains(AllOf(Begins("work"), HasBodyField("piece", 2))));
    EXPECT_THAT(Events(), Contains(AllOf(Begins("activity"), HasBodyField("piece", 3))));
}

TEST_F(DoorHandoffTest, CopiesAndMovesOfAHandoffShareWhatIsHeld) {
    {
        const Scope serve("serve");
        Handoff first;
        Handoff copy = first;
        Handoff moved = std::move(first);
        first = copy;
        copy = std::move(moved);
        const Scope a(first, "a");
        const Scope b(copy, "b");
        // That it is harmless is promised.
        // NOLINTNEXTLINE(bugprone-use-after-move): promised
        const Scope c(moved, "c");
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  a\n"
              "  b\n"
              "    c\n");
}

struct Handler {
    using executor_type = int;
    using allocator_type = std::allocator<char>;
    using cancellation_slot_type = const char*;

    int get_executor() const noexcept { return 17; }

    std::allocator<char> get_allocator() const noexcept { return {}; }

    const char* get_cancellation_slot() const noexcept { return "slot"; }

    void operator()() const {}
};

template <class T, class = void>
constexpr bool hasExecutor = false;

template <class T>
constexpr bool hasExecutor<T, std::void_t<typename T::executor_type>> = true;

TEST_F(DoorHandoffTest, AWrappedHandlerHasTheExecutorAndTheAllocatorOfTheHandler) {
    const auto task = Wrap("task", Handler());

    EXPECT_EQ(task.get_executor(), 17);
    EXPECT_EQ(task.get_allocator(), std::allocator<char>());
    EXPECT_STREQ(task.get_cancellation_slot(), "slot");
    EXPECT_FALSE(hasExecutor<decltype(Wrap("task", [] {}))>);
}

TEST_F(DoorHandoffTest, ARunThatIsOffStillRuns) {
    TarnSettings::GetInstance().SetOffs({"off"});
    const auto task = Wrap("off", [] { return 3; });

    EXPECT_EQ(task(), 3);

    EXPECT_EQ(Tree(), "");
}

}  // namespace
}  // namespace tarn::test
