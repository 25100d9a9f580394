#include "ProcessTest.h"
#include "Progress.h"
#include "Sanitizers.h"

#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ProcessTest {
namespace {

using std::chrono::milliseconds;
using testing::IsEmpty;
using testing::SizeIs;

/// What the delivering thread has to do with the end of its process.
class LastThreadTest : public ProcessTest {
protected:
    void AwaitThatMainLeaves() const {
        while (Ended(Progress::threadCount - 1) == 0) {
            std::this_thread::sleep_for(milliseconds(5));
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Delivering,
                         LastThreadTest,
                         testing::Values("sync", "async"),
                         DeliveryName);

TEST_P(LastThreadTest, TheProcessEndsWithItsLastThreadAndEverythingIsInTheLog) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << "it has a thread of its own, which stays when main has left";
    }
    Run("main-leaves", 0);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    ASSERT_THAT(log.ProcessIds(), SizeIs(1));
    for (const std::int64_t thread : {0, 1}) {
        EXPECT_EQ(log.NumbersOf(*log.ProcessIds().begin(), thread), NumbersUpTo(200));
    }
}

TEST_P(LastThreadTest, ASignalEndsAProcessThatMainHasLeft) {
    Start("main-leaves-threads-that-work", {.pausePerLine = std::chrono::microseconds(1000)});
    AwaitThatMainLeaves();

    kill(Pid(), SIGTERM);
    const int status = Wait();

    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_P(LastThreadTest, ASignalEndsAProcessThatMainHasLeftThoughTheLogHangs) {
    Start("main-leaves-a-hanging-log", {.count = 5, .linesUntilHang = 1});
    AwaitThatMainLeaves();

    kill(Pid(), SIGTERM);
    const int status = Wait();

    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_P(LastThreadTest, TheHostsHandlerLearnsOfASinkThatCrashes) {
    Run("sink-crashes", 3);
}

// With synchronous delivery the session, which emits its end, is itself stuck in the log.
class AsynchronousLastThreadTest : public LastThreadTest {};

INSTANTIATE_TEST_SUITE_P(Delivering,
                         AsynchronousLastThreadTest,
                         testing::Values("async"),
                         DeliveryName);

TEST_P(AsynchronousLastThreadTest, TheEndOfASessionAndOfTheProcessShareTheExitDeadline) {
    constexpr milliseconds exitDeadline(3000);

    Run("session-ends-while-log-hangs",
        3,
        {.count = 5, .linesUntilHang = 1, .exitDeadline = exitDeadline});

    EXPECT_GE(TimeOfLastRun(), exitDeadline);
    EXPECT_LT(TimeOfLastRun(), 2 * exitDeadline);
}

TEST_P(LastThreadTest, WhatMainIsDoneWithIsInTheLogThoughAnotherThreadEmitsMeanwhile) {
    constexpr int rounds = 60;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        Run("return-while-another-emits", 3, {.count = 1});

        const ProcessLog log = Log();
        ExpectSoundLog(log);
        ASSERT_THAT(log.ProcessIds(), SizeIs(1));
        EXPECT_EQ(log.NumbersOf(*log.ProcessIds().begin(), 0), NumbersUpTo(1)) << round;
    }
}

TEST_P(LastThreadTest, AnExitDeadlineThatIsTooLongMeansWithoutLimit) {
    Run("return-from-main", 3, {.exitDeadline = milliseconds::max()});

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    ASSERT_THAT(log.ProcessIds(), SizeIs(1));
    EXPECT_EQ(log.NumbersOf(*log.ProcessIds().begin(), 0), NumbersUpTo(200));
}

}  // namespace
}  // namespace ProcessTest
