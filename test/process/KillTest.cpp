#include "Environment.h"
#include "ProcessTest.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <random>
#include <string>
#include <sys/wait.h>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace ProcessTest {
namespace {

using testing::SizeIs;

/// A process that is killed while it writes.
class KillTest : public ProcessTest {
protected:
    // The same moments again with TARN_KILL_SEED.
    static unsigned Seed() {
        const auto given = tarn::test::NumberFromEnvironment("TARN_KILL_SEED");
        return given ? static_cast<unsigned>(*given) : std::random_device()();
    }

    void KillAt(std::chrono::microseconds moment, const SubjectOptions& options) {
        Start("until-killed", options);
        // A dozen lines.
        constexpr std::uintmax_t begun = 5000;
        ASSERT_TRUE(WaitForLog(begun));
        std::this_thread::sleep_for(moment);
        Kill();
        const int status = Wait();
        ASSERT_TRUE(WIFSIGNALED(status));
        ASSERT_EQ(WTERMSIG(status), SIGKILL);
    }

    // Half of the kills of both ways of delivery together.
    void KillFiftyTimes(const SubjectOptions& options) {
        const unsigned seed = Seed();
        SCOPED_TRACE("TARN_KILL_SEED=" + std::to_string(seed));
        std::printf("TARN_KILL_SEED=%u\n", seed);
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> moments(0, 20'000);
        std::size_t lines = 0;
        std::size_t fullFiles = 0;

        constexpr int kills = 50;
        for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
            KillAt(std::chrono::microseconds(moments(random)), options);

            const ProcessLog log = Log();
            ExpectSoundLogUpToTheLastLine(log);
            lines += log.Lines().size();
            fullFiles += log.FullFiles();
        }
        EXPECT_GT(lines, 8u * kills) << "they were killed before they had begun";
        EXPECT_EQ(fullFiles != 0, options.limitBytes != 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Delivering, KillTest, testing::Values("sync", "async"), DeliveryName);

TEST_P(KillTest, AProcessThatEndsByItselfIsWaitedForNoLonger) {
    Start("no such scenario", {.hasStandardError = false});

    EXPECT_NONFATAL_FAILURE(WaitForLog(1), "the process has ended");
}

TEST_P(KillTest, EveryLineButTheLastIsWhole) {
    KillFiftyTimes({});
}

TEST_P(KillTest, EveryLineButTheLastIsWholeWhileFilesAreRotated) {
    KillFiftyTimes({.limitBytes = 20'000});
}

class SynchronousKillTest : public KillTest {};

INSTANTIATE_TEST_SUITE_P(Delivering, SynchronousKillTest, testing::Values("sync"), DeliveryName);

// What a thread was done with is in the file: the kernel has it. What is queued goes with the
// process.
TEST_P(SynchronousKillTest, NothingThatEndedIsMissing) {
    KillAt(std::chrono::milliseconds(20), {});

    const ProcessLog log = Log();
    ASSERT_THAT(log.ProcessIds(), SizeIs(1));
    for (std::size_t thread = 0; thread < 3; ++thread) {
        EXPECT_GE(
            log.NumbersOf(*log.ProcessIds().begin(), static_cast<std::int64_t>(thread)).size(),
            Ended(thread));
    }
}

}  // namespace
}  // namespace ProcessTest
