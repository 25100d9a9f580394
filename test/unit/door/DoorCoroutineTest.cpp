#include "AllocationCounter.h"
#include "DoorTest.h"
#include "Threads.h"

#include "tarn/Coroutine.h"

#include <coroutine>
#include <deque>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

namespace tarn::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::IsEmpty;

/// Where coroutines wait until the test lets them go on, each on a thread of its own.
class Waiting {
public:
    auto GoOn() {
        struct Awaiter {
            Waiting& waiting;

            bool await_ready() const noexcept { return false; }

            void await_suspend(std::coroutine_handle<> handle) const {
                waiting.m_handles.push_back(handle);
            }

            void await_resume() const noexcept {}
        };

        return Awaiter{*this};
    }

    void RunNext() {
        const std::coroutine_handle<> next = m_handles.front();
        m_handles.pop_front();
        OnAnotherThread([next] { next.resume(); });
    }

    void RunAll() {
        while (!m_handles.empty()) {
            RunNext();
        }
    }

private:
    std::deque<std::coroutine_handle<>> m_handles;
};

/// Begins when it is first awaited or started; goes on with who awaits it.
class [[nodiscard]] Task {
public:
    struct promise_type : TracedPromise {
        Task get_return_object() {
            return Task(std::coroutine_handle<promise_type>::from_promise(*this));
        }

        auto initial_suspend() { return OnStart(std::suspend_always()); }

        auto final_suspend() noexcept {
            struct Awaiter {
                bool await_ready() const noexcept { return false; }

                std::coroutine_handle<> await_suspend(
                    std::coroutine_handle<promise_type> handle) const noexcept {
                    const auto next = handle.promise().continuation;
                    return next ? next : std::noop_coroutine();
                }

                void await_resume() const noexcept {}
            };

            return OnEnd(Awaiter());
        }

        void return_void() {}

        void unhandled_exception() { exception = std::current_exception(); }

        std::coroutine_handle<> continuation;
        std::exception_ptr exception;
    };

    Task(Task&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}

    ~Task() {
        if (m_handle) {
            m_handle.destroy();
        }
    }

    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    void Start() { m_handle.resume(); }

    bool IsDone() const { return m_handle.done(); }

    auto operator co_await() {
        struct Awaiter {
            std::coroutine_handle<promise_type> handle;

            bool await_ready() const noexcept { return false; }

            std::coroutine_handle<> await_suspend(std::coroutine_handle<> next) const noexcept {
                handle.promise().continuation = next;
                return handle;
            }

            void await_resume() const {
                if (handle.promise().exception) {
                    std::rethrow_exception(handle.promise().exception);
                }
            }
        };

        return Awaiter{m_handle};
    }

private:
    explicit Task(std::coroutine_handle<promise_type> handle) : m_handle(handle) {}

    std::coroutine_handle<promise_type> m_handle;
};

/// A task that knows nothing of tracing.
struct Foreign {
    struct promise_type {
        Foreign get_return_object() { return {}; }

        std::suspend_never initial_suspend() { return {}; }

        std::suspend_never final_suspend() noexcept { return {}; }

        void return_void() {}

        void unhandled_exception() {}
    };
};

using DoorCoroutineTest = DoorTest;

Task Load(Waiting& waiting, int number) {
    auto load = co_await Begin("load", "number", number);
    { const Scope scope("first"); }
    co_await waiting.GoOn();
    { const Scope scope("second"); }
    co_await waiting.GoOn();
    load.Add("done", true);
}

TEST_F(DoorCoroutineTest, AnActivityGoesAlongWithItsCoroutineThroughThreads) {
    Waiting waiting;
    {
        const Scope serve("serve");
        Task task = Load(waiting, 1);
        task.Start();
        { const Scope beside("beside"); }
        waiting.RunAll();
        EXPECT_TRUE(task.IsDone());
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  load\n"
              "    first\n"
              "    second\n"
              "  beside\n");
    EXPECT_THAT(Events(), Contains(AllOf(Begins("load"), HasBodyField("number", 1))));
    EXPECT_THAT(Events(), Contains(AllOf(Ends("load"), HasBodyField("done", true))));
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorCoroutineTest, CoroutinesThatTakeTurnsAreNotMixedUp) {
    Waiting waiting;
    {
        const Scope serve("serve");
        Task a = Load(waiting, 1);
        Task b = Load(waiting, 2);
        a.Start();
        b.Start();
        waiting.RunAll();
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  load\n"
              "    first\n"
              "    second\n"
              "  load\n"
              "    first\n"
              "    second\n");
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorCoroutineTest, WhatACoroutineDoesBelongsToWhereItWasMadeThoughItStartsElsewhere) {
    Waiting waiting;
    const auto plain = [](Waiting& where) -> Task {
        { const Scope scope("before"); }
        co_await where.GoOn();
        const Scope scope("after");
    };
    {
        const Scope serve("serve");
        Task task = plain(waiting);
        OnAnotherThread([&task] { task.Start(); });
        waiting.RunAll();
    }

    EXPECT_EQ(Tree(),
              "serve\n"
              "  before\n"
              "  after\n");
    EXPECT_FALSE(Current());
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorCoroutineTest, AnAwaitedCoroutineBelongsToTheOneThatAwaitsIt) {
    Waiting waiting;
    const auto outer = [](Waiting& where) -> Task {
        const auto request = co_await Begin("request");
        co_await Load(where, 1);
        { const Scope scope("between"); }
        co_await Load(where, 2);
    };
    Task task = outer(waiting);
    task.Start();
    waiting.RunAll();

    EXPECT_TRUE(task.IsDone());
    EXPECT_EQ(Tree(),
              "request\n"
              "  load\n"
              "    first\n"
              "    second\n"
              "  between\n"
              "  load\n"
              "    first\n"
              "    second\n");
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorCoroutineTest, ActivitiesOfACoroutineNestAndEndWithTheirBlocks) {
    Waiting waiting;
    const auto nested = [](Waiting& where) -> Task {
        const auto outer = co_await Begin("outer");
        {
            auto inner = co_await Begin("inner");
            co_await where.GoOn();
            { const Scope scope("within"); }
            inner.End();
            co_await where.GoOn();
            { const Scope scope("without"); }
        }
        co_await where.GoOn();
        const Scope scope("late");
    };
    Task task = nested(waiting);
    task.Start();
    waiting.RunAll();

    EXPECT_EQ(Tree(),
              "outer\n"
              "  inner\n"
              "    within\n"
              "  without\n"
              "  late\n");
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorCoroutineTest, ACoroutineThatIsDestroyedWhileItWaitsEndsItsActivity) {
    Waiting waiting;
    {
        Task task = Load(waiting, 1);
        task.Start();
    }
    const Scope after("after");

    EXPECT_EQ(CountOf(Ends("load")), 1U);
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorCoroutineTest, CanceledCoroutinesLeaveNothingBehind) {
    const auto cancel = [](int count) {
        for (int i = 0; i < count; ++i) {
            Waiting waiting;
            const Task never = Load(waiting, i);
            Task started = Load(waiting, i);
            started.Start();
        }
    };
    StopTracing();
    cancel(10);

    const AllocationCounter allocations;
    cancel(300);

    EXPECT_LT(static_cast<int64>(allocations.Allocations() - allocations.Releases()), 10);
}

TEST_F(DoorCoroutineTest, AnExceptionEndsTheActivityEarlyAndGoesOn) {
    Waiting waiting;
    const auto failing = [](Waiting& where) -> Task {
        const auto work = co_await Begin("work");
        co_await where.GoOn();
        throw std::runtime_error("disk full");
    };
    std::string caught;
    const auto outer = [&caught, &failing](Waiting& where) -> Task {
        auto serve = co_await Begin("serve");
        try {
            co_await failing(where);
        } catch (const std::exception& error) {
            caught = error.what();
            serve.FailException(error);
        }
    };
    Task task = outer(waiting);
    task.Start();
    waiting.RunAll();

    EXPECT_EQ(caught, "disk full");
    EXPECT_THAT(Events(),
                Contains(AllOf(Ends("work"), HasActivityField("rk", "early-termination"))));
    EXPECT_THAT(Events(), Contains(AllOf(Ends("serve"), HasActivityField("rk", "exception"))));
    EXPECT_THAT(Warnings(), IsEmpty());
}

struct Refusing {
    bool await_ready() const noexcept { return false; }

    bool await_suspend(std::coroutine_handle<> /*handle*/) const {
        if (throws) {
            throw std::runtime_error("no room");
        }
        return false;
    }

    int await_resume() const noexcept { return 5; }

    bool throws;
};

TEST_F(DoorCoroutineTest, ACoroutineThatIsNotSuspendedAfterAllGoesOnAsBefore) {
    const auto work = []() -> Task {
        const auto activity = co_await Begin("work");
        const int answer = co_await Refusing{false};
        { const Scope scope("first", {{"answer", answer}}); }
        try {
            co_await Refusing{true};
        } catch (const std::exception&) {
            const Scope scope("second");
        }
    };
    Task task = work();
    task.Start();

    EXPECT_EQ(Tree(),
              "work\n"
              "  first\n"
              "  second\n");
    EXPECT_THAT(Events(), Contains(AllOf(Begins("first"), HasBodyField("answer", 5))));
    EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(DoorCoroutineTest, InACoroutineOfAnotherKindAwaitTakesAnActivityAlong) {
    Waiting waiting;
    const auto foreign = [](Waiting& where) -> Foreign {
        Activity work("work");
        work.Resume();
        co_await Await(work, where.GoOn());
        const Scope scope("after");
    };
    {
        const Scope serve("serve");
        foreign(waiting);
        const Scope beside("beside");
    }
    waiting.RunAll();

    EXPECT_EQ(Tree(),
              "serve\n"
              "  work\n"
              "    after\n"
              "  beside\n");
    EXPECT_THAT(Warnings(), IsEmpty());
}

}  // namespace
}  // namespace tarn::test
