#include "ProcessTest.h"

#include <csignal>
#include <fstream>
#include <sys/wait.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ProcessTest {
namespace {

using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::SizeIs;

/// The ends that a process can come to, and what is in its log then.
class ExitTest : public ProcessTest {
protected:
    // Everything that a thread is done with is in the log, once and in order. What it was at when
    // the process ended may be there as well.
    void ExpectAllOfThread(const ProcessLog& log, std::int64_t pid, std::size_t thread) const {
        const auto numbers = log.NumbersOf(pid, static_cast<std::int64_t>(thread));
        EXPECT_EQ(numbers, NumbersUpTo(numbers.size())) << "thread " << thread;
        EXPECT_GE(numbers.size(), Ended(thread)) << "thread " << thread;
    }

    static std::int64_t OnlyPid(const ProcessLog& log) {
        const auto ids = log.ProcessIds();
        EXPECT_THAT(ids, SizeIs(1));
        return ids.empty() ? 0 : *ids.begin();
    }
};

INSTANTIATE_TEST_SUITE_P(Delivering, ExitTest, testing::Values("sync", "async"), DeliveryName);

TEST_P(ExitTest, EverythingIsInTheLogAfterAReturnFromMain) {
    Run("return-from-main", 3);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(200));
    EXPECT_EQ(log.CountBegun("part"), 200u);
}

TEST_P(ExitTest, ScopesThatExitDoesNotUnwindBeginAndDoNotEnd) {
    Run("exit-inside-scopes", 3);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), ElementsAre("open", "open"));
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(200));
}

TEST_P(ExitTest, AnotherThreadMayEndTheProcess) {
    Run("exit-from-a-thread", 3);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), ElementsAre("open"));
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 1), NumbersUpTo(200));
}

TEST_P(ExitTest, EverythingIsInTheLogAfterAQuickExit) {
    Run("quick-exit", 3);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), ElementsAre("open"));
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(200));
}

TEST_P(ExitTest, StaticDestructorsMayEndScopesAndTraceOnThreads) {
    Run("static-destructors", 3);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    EXPECT_EQ(log.CountBegun("held-early"), 1u);
    EXPECT_EQ(log.CountBegun("held-late"), 1u);
    EXPECT_EQ(log.CountBegun("late"), 0u)
        << "the thread that ends the process has torn its own data down by then";
    const std::int64_t pid = OnlyPid(log);
    EXPECT_EQ(log.NumbersOf(pid, 0), NumbersUpTo(200));
    EXPECT_THAT(log.NumbersOf(pid, 1), SizeIs(20)) << "ten of each object";
    EXPECT_EQ(Ended(1), 20u);
}

TEST_P(ExitTest, ThreadLocalDestructorsMayTrace) {
    Run("thread-local-destructors", 3);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    const std::int64_t pid = OnlyPid(log);
    for (const std::int64_t thread : {1, 3}) {
        const auto numbers = log.NumbersOf(pid, thread);
        ASSERT_THAT(numbers, SizeIs(210));
        EXPECT_EQ(std::vector(numbers.begin(), numbers.begin() + 200), NumbersUpTo(200));
        EXPECT_EQ(std::vector(numbers.begin() + 200, numbers.end()), NumbersUpTo(10));
    }
    // Where what scopes need has gone before, they stay closed.
    EXPECT_THAT(log.NumbersOf(pid, 2), SizeIs(Ge(200u)));
    EXPECT_EQ(Ended(2), 210u);
}

TEST_P(ExitTest, WhatThreadsAreDoneWithIsInTheLogThoughTheyRunOn) {
    constexpr int rounds = 10;
    for (int round = 0; round < rounds; ++round) {
        Run("threads-still-running", 3, {.count = 300});

        const ProcessLog log = Log();
        ExpectSoundLog(log);
        const std::int64_t pid = OnlyPid(log);
        for (std::size_t thread = 0; thread < 4; ++thread) {
            ExpectAllOfThread(log, pid, thread);
        }
        EXPECT_LE(log.Unended().size(), 8u) << "two scopes for each thread";
    }
}

TEST_P(ExitTest, FullFilesAreBegunOnTheWay) {
    Run("threads-still-running", 3, {.count = 1000, .limitBytes = 50'000});

    const ProcessLog log = Log();
    EXPECT_GT(log.FullFiles(), 10u);
    ExpectSoundLog(log);
    const std::int64_t pid = OnlyPid(log);
    for (std::size_t thread = 0; thread < 4; ++thread) {
        ExpectAllOfThread(log, pid, thread);
    }
}

TEST_P(ExitTest, AnUncaughtExceptionLeavesWholeLines) {
    Start("uncaught-exception", {.isExpectedToComplain = true});
    const int status = Wait();

    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGABRT);
    const ProcessLog log = Log();
    ExpectSoundLogUpToTheLastLine(log);
    if (!IsAsynchronous()) {
        EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(200));
    }
}

TEST_P(ExitTest, CancelledThreadsLeaveWholeScopesAndTheProcessAlive) {
    Run("cancel-threads", 3, {.count = 80});

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    std::size_t ended = 0;
    for (std::size_t thread = 0; thread < 4; ++thread) {
        ended += log.NumbersOf(OnlyPid(log), static_cast<std::int64_t>(thread)).size();
        EXPECT_EQ(log.NumbersOf(OnlyPid(log), static_cast<std::int64_t>(thread)).size(),
                  Ended(thread));
    }
    EXPECT_GE(ended, 80u) << "each of the threads comes to the end of a scope";
}

TEST_P(ExitTest, AStreamThatNobodyReadsKeepsNeitherThreadsNorTheProcessFromEnding) {
    Run("stuck-stream", 3, {.count = 500, .isExpectedToComplain = true});

    EXPECT_LT(TimeOfLastRun(), std::chrono::seconds(30));
    EXPECT_EQ(Ended(0) + Ended(1) + Ended(2), 1500u);
}

TEST_P(ExitTest, AFileThatHasTheNumberOfTheClosedErrorStreamGetsNoLine) {
    Run("log-by-default", 3, {.hasStandardError = false});

    std::ifstream file(LogPath() + ".host");
    EXPECT_TRUE(file.is_open());
    EXPECT_EQ(file.peek(), std::ifstream::traits_type::eof());
}

// With synchronous delivery who traces is stuck in the log, and who does not is free to end.
TEST_P(ExitTest, ALogThatHangsDoesNotKeepTheProcessFromEnding) {
    Run("hanging-log", 3, {.linesUntilHang = 100, .exitDeadline = std::chrono::milliseconds(300)});

    EXPECT_LT(TimeOfLastRun(), std::chrono::seconds(30));
    const ProcessLog log = Log();
    ExpectSoundLog(log);
    const std::size_t lines = log.Lines().size() + log.Messages().size();
    // The delivering thread writes the lines of a burst, of 64 events at most, together: those
    // before the one that hangs are lost with it.
    constexpr std::size_t burst = 64;
    EXPECT_LE(lines, 100u);
    EXPECT_GE(lines, IsAsynchronous() ? 100u - burst : 100u);
}

TEST_P(ExitTest, AFlushAndAShutdownReturnInTimeWhileTheLogHangsAndNobodyWaitsForItAfterwards) {
    Run("give-up-on-log",
        3,
        {.linesUntilHang = 100, .exitDeadline = std::chrono::milliseconds(300)});
}

// With synchronous delivery the end of the process waits for nobody.
class AsynchronousExitTest : public ExitTest {};

INSTANTIATE_TEST_SUITE_P(Delivering, AsynchronousExitTest, testing::Values("async"), DeliveryName);

TEST_P(AsynchronousExitTest, TheEndWaitsFiveSecondsForALogThatHangsUnlessTheHostSaysOtherwise) {
    Run("hanging-log", 3, {.linesUntilHang = 100, .exitDeadline = std::nullopt});

    EXPECT_GE(TimeOfLastRun(), std::chrono::seconds(5));
    EXPECT_LT(TimeOfLastRun(), std::chrono::seconds(30));
}

TEST_P(ExitTest, TheDeadlineIsGivenToALogThatIsOnlySlow) {
    Run("return-from-main", 3, {.count = 100, .pausePerLine = std::chrono::microseconds(2000)});

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(100));
}

}  // namespace
}  // namespace ProcessTest
