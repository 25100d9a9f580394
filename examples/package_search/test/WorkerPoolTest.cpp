#include "WorkerPool.h"

#include "LoggedTrees.h"
#include "ServiceFixture.h"

#include "tarn/ActivityScope.h"

#include <future>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::ElementsAre;

class WorkerPoolTest : public ServiceTest {
protected:
    // The names of the parts of the activity "asking".
    std::vector<std::string> PartsOfAsking() {
        const LoggedTrees log = EndAndRead();
        const LoggedActivity* asking = log.First("asking");
        return asking == nullptr ? std::vector<std::string>{"none"} : Parts(log, *asking);
    }
};

TEST_F(WorkerPoolTest, WorkThatNoWorkerBeganBeforeTheDeadlineIsGivenUp) {
    WorkerPool pool(1);
    std::promise<void> end;
    {
        const tarn::ActivityScope scope("asking");
        Pending<int> first = pool.Submit("first", [&end](std::size_t) {
            end.get_future().wait();
            return 1;
        });
        Pending<int> second = pool.Submit("second", [](std::size_t) { return 2; });

        EXPECT_THROW(second.GetBefore(Deadline::In(std::chrono::milliseconds(5))),
                     DeadlineExceeded);

        end.set_value();
        EXPECT_EQ(first.GetBefore(Deadline::Never()), 1);
        // The worker has seen the second one, and left it alone.
        EXPECT_EQ(pool.Submit("third", [](std::size_t) { return 3; }).Get(), 3);
    }

    EXPECT_THAT(PartsOfAsking(), ElementsAre("first", "third"));
}

TEST_F(WorkerPoolTest, WorkThatHasBegunIsWaitedForBeyondTheDeadline) {
    WorkerPool pool(1);
    std::promise<void> begun;
    {
        const tarn::ActivityScope scope("asking");
        Pending<int> work = pool.Submit("work", [&begun](std::size_t) {
            begun.set_value();
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            return 1;
        });
        begun.get_future().wait();

        EXPECT_EQ(work.GetBefore(Deadline::In(std::chrono::milliseconds(1))), 1);
    }

    EXPECT_THAT(PartsOfAsking(), ElementsAre("work"));
}

TEST_F(WorkerPoolTest, WhatNobodyAskedTheResultOfHasEndedBeforeItsActivity) {
    WorkerPool pool(1);
    bool isDone = false;
    std::promise<void> begun;
    std::promise<void> mayEnd;
    {
        const tarn::ActivityScope scope("asking");
        const Pending<int> work = pool.Submit("work", [&](std::size_t) {
            begun.set_value();
            mayEnd.get_future().wait();
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            isDone = true;
            return 1;
        });
        {
            const Pending<int> waiting = pool.Submit("waiting", [](std::size_t) { return 2; });
            begun.get_future().wait();
        }
        mayEnd.set_value();
    }

    EXPECT_TRUE(isDone);
    EXPECT_THAT(PartsOfAsking(), ElementsAre("work"));
}

TEST_F(WorkerPoolTest, AnExceptionReachesWhoeverAsks) {
    WorkerPool pool(1);
    Pending<int> work =
        pool.Submit("work", [](std::size_t) -> int { throw std::runtime_error("no"); });

    EXPECT_THROW(work.GetBefore(Deadline::Never()), std::runtime_error);
}

}  // namespace
}  // namespace packagesearch
