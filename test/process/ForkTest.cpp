#include "ProcessTest.h"
#include "Sanitizers.h"

#include <algorithm>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ProcessTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::int64_t childsThread = 8;

/// Processes that share a log because one has forked the other.
class ForkTest : public ProcessTest {
protected:
    void SetUp() override {
        if (IsAsynchronous() && tarn::test::hasThreadSanitizer) {
            GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
        }
    }

    static std::set<std::int64_t> Children(const ProcessLog& log, std::int64_t parent) {
        std::set<std::int64_t> children = log.ProcessIds();
        EXPECT_EQ(children.erase(parent), 1u);
        return children;
    }

    // A child has one thread that traces, its main thread.
    static void ExpectOwnThreadIds(const ProcessLog& log, const std::set<std::int64_t>& children) {
        for (const LogLine& line : log.Lines()) {
            if (children.count(line.pid) != 0) {
                EXPECT_EQ(line.tid, line.pid) << line.name << ' ' << line.id;
            }
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Delivering, ForkTest, testing::Values("sync", "async"), DeliveryName);

TEST_P(ForkTest, ParentAndChildWriteEveryLineOnceUnderIdsOfTheirOwn) {
    Start("fork-and-go-on");
    const pid_t parent = Pid();
    ASSERT_EQ(Wait(), 0);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    const auto children = Children(log, parent);
    ASSERT_THAT(children, SizeIs(1));
    EXPECT_EQ(log.NumbersOf(*children.begin(), childsThread), NumbersUpTo(200));
    EXPECT_THAT(log.NumbersOf(*children.begin(), 0), IsEmpty()) << "they are the parent's";
    EXPECT_THAT(log.NumbersOf(parent, 0), SizeIs(400));
    EXPECT_THAT(log.NumbersOf(parent, childsThread), IsEmpty());
    ExpectOwnThreadIds(log, children);
}

TEST_P(ForkTest, AChildsScopesHaveTheirSponsorThoughNothingWasDeliveredYet) {
    Start("fork-at-once", {.count = 20, .pausePerLine = std::chrono::microseconds(1000)});
    const pid_t parent = Pid();
    ASSERT_EQ(Wait(), 0);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    const auto children = Children(log, parent);
    ASSERT_THAT(children, SizeIs(1));
    EXPECT_EQ(log.NumbersOf(*children.begin(), childsThread), NumbersUpTo(20));
    std::string open;
    for (const LogLine& line : log.Lines()) {
        open = line.name == "open" && line.isBegin ? line.id : open;
        if (line.name == "work") {
            EXPECT_FALSE(open.empty());
            EXPECT_EQ(line.sponsor, open);
        }
    }
}

TEST_P(ForkTest, AChildMayForkInItsTurn) {
    Start("fork-twice");
    const pid_t parent = Pid();
    ASSERT_EQ(Wait(), 0);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    const auto children = Children(log, parent);
    ASSERT_THAT(children, SizeIs(2));
    std::multiset<std::size_t> sizes;
    for (const std::int64_t child : children) {
        sizes.insert(log.NumbersOf(child, childsThread).size());
    }
    EXPECT_THAT(sizes, ElementsAre(200u, 400u));
    ExpectOwnThreadIds(log, children);
}

TEST_P(ForkTest, ManyForksWhileOtherThreadsTraceNeitherHangNorLose) {
    // With thread sanitizer a fork takes long.
    const std::size_t forks = tarn::test::hasThreadSanitizer ? 15 : 100;
    Start("fork-while-others-work", {.count = forks, .limitBytes = 2'000'000});
    const pid_t parent = Pid();
    ASSERT_EQ(Wait(), 0);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    const auto children = Children(log, parent);
    EXPECT_THAT(children, SizeIs(forks));
    for (const std::int64_t child : children) {
        EXPECT_EQ(log.NumbersOf(child, childsThread), NumbersUpTo(5));
    }
    for (std::size_t thread = 1; thread <= 3; ++thread) {
        EXPECT_THAT(log.NumbersOf(parent, static_cast<std::int64_t>(thread)),
                    SizeIs(Ended(thread)));
    }
    ExpectOwnThreadIds(log, children);
}

TEST_P(ForkTest, AForkWhileAQueueIsFullLeavesWhatIsQueuedToTheParent) {
    Start("fork-with-full-queue", {.count = 100, .pausePerLine = std::chrono::microseconds(1000)});
    const pid_t parent = Pid();
    ASSERT_EQ(Wait(), 0);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    const auto children = Children(log, parent);
    ASSERT_THAT(children, SizeIs(3));
    for (const std::int64_t child : children) {
        EXPECT_EQ(log.NumbersOf(child, childsThread), NumbersUpTo(20));
    }
    EXPECT_EQ(log.NumbersOf(parent, 1), NumbersUpTo(100));
    EXPECT_THAT(log.NumbersOf(parent, 0), SizeIs(9));
    ExpectOwnThreadIds(log, children);
}

TEST_P(ForkTest, AStreamThatNobodyReadsHoldsUpNoFork) {
    Start("fork-with-stuck-stream", {.count = 10, .isExpectedToComplain = true});

    EXPECT_EQ(Wait(), 0);
    EXPECT_LT(TimeOfLastRun(), std::chrono::seconds(40));
}

TEST_P(ForkTest, ProgramsThatAreStartedHaveNoPartInTheLog) {
    Start("start-programs", {.count = 50});
    const pid_t parent = Pid();
    ASSERT_EQ(Wait(), 0);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_THAT(log.Unended(), IsEmpty());
    EXPECT_THAT(Children(log, parent), IsEmpty());
    EXPECT_THAT(log.NumbersOf(parent, 0), SizeIs(100));
    for (std::size_t thread = 1; thread <= 2; ++thread) {
        EXPECT_EQ(log.NumbersOf(parent, static_cast<std::int64_t>(thread)).size(), Ended(thread));
    }
}

}  // namespace
}  // namespace ProcessTest
