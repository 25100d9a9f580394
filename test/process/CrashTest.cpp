#include "Environment.h"
#include "ProcessTest.h"
#include "Sanitizers.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ProcessTest {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Le;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::UnorderedElementsAre;

// As the subject numbers them.
constexpr std::size_t handlerCalls = 9;
constexpr std::size_t rightArguments = 10;

/// A process that has switched on that its log is saved when it crashes.
class CrashTest : public ProcessTest {
protected:
    void SetUp() override {
        if (tarn::test::hasThreadSanitizer) {
            GTEST_SKIP() << "thread sanitizer calls signal handlers by itself, later, on its terms";
        }
        ProcessTest::SetUp();
    }

    static constexpr std::size_t scopes = 51;

    /// Runs it to its end by the signal.
    void Crash(const std::string& scenario,
               int signal,
               SubjectOptions options = {.count = scopes}) {
        options.isExpectedToComplain = true;
        Start(scenario, options);
        const int status = Wait();
        ASSERT_TRUE(WIFSIGNALED(status)) << scenario << " exited with " << WEXITSTATUS(status);
        ASSERT_EQ(WTERMSIG(status), signal) << scenario;
    }

    std::string ForThisDelivery(const std::string& scenario) const {
        return scenario + "-" + GetParam();
    }

    static std::vector<std::string> LastWords(const ProcessLog& log) {
        std::vector<std::string> words;
        std::copy_if(log.Messages().begin(),
                     log.Messages().end(),
                     std::back_inserter(words),
                     [](const std::string& message) { return message.rfind("Crashed", 0) == 0; });
        return words;
    }

    static std::int64_t OnlyPid(const ProcessLog& log) {
        const auto ids = log.ProcessIds();
        EXPECT_THAT(ids, SizeIs(1));
        return ids.empty() ? 0 : *ids.begin();
    }

    /// Everything of the thread `number` is there, and what it was at is named.
    void ExpectSaved(const std::string& reason,
                     const std::string& openScopes = R"(inner [0-9]+\.[0-9] ms, outer [0-9.]+ ms)",
                     std::int64_t number = 0) const {
        const ProcessLog log = Log();
        ExpectSoundLog(log);
        EXPECT_EQ(log.NumbersOf(OnlyPid(log), number), NumbersUpTo(scopes));
        EXPECT_THAT(LastWords(log),
                    ElementsAre(MatchesRegex("Crashed by " + reason +
                                             " on thread [0-9]+; open scopes: " + openScopes)));
    }
};

INSTANTIATE_TEST_SUITE_P(Delivering, CrashTest, testing::Values("sync", "async"), DeliveryName);

TEST_P(CrashTest, EverythingIsInTheLogAfterAnAbort) {
    Crash("crash-by-abort", SIGABRT);

    ExpectSaved("SIGABRT");
    EXPECT_THAT(Log().Unended(), UnorderedElementsAre("outer", "inner"));
}

TEST_P(CrashTest, EverythingIsInTheLogAfterAnAccessToForbiddenMemory) {
    Crash("crash-by-segv", SIGSEGV);

    ExpectSaved("SIGSEGV");
}

TEST_P(CrashTest, EverythingIsInTheLogAfterAnAccessBeyondTheEndOfAFile) {
    Crash("crash-by-bus", SIGBUS);

    ExpectSaved("SIGBUS");
}

TEST_P(CrashTest, EverythingIsInTheLogAfterADivisionByZero) {
    Crash("crash-by-fpe", SIGFPE);

    ExpectSaved("SIGFPE");
}

TEST_P(CrashTest, EverythingIsInTheLogAfterAnIllegalInstruction) {
    Crash("crash-by-ill", SIGILL);

    ExpectSaved("SIGILL");
}

TEST_P(CrashTest, EverythingIsInTheLogAfterTerminate) {
    Crash("crash-by-terminate", SIGABRT);

    ExpectSaved("std::terminate");
}

TEST_P(CrashTest, EverythingIsInTheLogAfterAnExceptionThatNobodyCatches) {
    Crash("crash-by-exception", SIGABRT);

    ExpectSaved("std::terminate");
}

TEST_P(CrashTest, ASessionMaySwitchItOn) {
    Crash("crash-by-session", SIGABRT);

    ExpectSaved("SIGABRT");
}

TEST_P(CrashTest, TheMainThreadSurvivesTheOverflowOfItsStackForLongEnough) {
    Crash("crash-by-stack-overflow", SIGSEGV);

    ExpectSaved("SIGSEGV");
}

TEST_P(CrashTest, SoDoesAThreadThatHasAStackForCrashes) {
    Crash("crash-by-overflow-on-thread", SIGSEGV);

    ExpectSaved("SIGSEGV", "outer [0-9.]+ ms");
}

TEST_P(CrashTest, ACrashInAHandlerOnAnAlternativeStackIsLikeOthers) {
    Crash("crash-on-alternative-stack", SIGSEGV);

    ExpectSaved("SIGSEGV", "outer [0-9.]+ ms");
}

TEST_P(CrashTest, EverythingIsInTheLogThoughThereIsNoMemoryLeft) {
    if (tarn::test::hasAddressSanitizer) {
        GTEST_SKIP() << "it limits the address space, of which sanitizers take terabytes";
    }
    Crash("crash-without-memory", SIGABRT);

    ExpectSaved("std::terminate", "outer [0-9.]+ ms");
}

std::size_t Crashes() {
    constexpr uint64 usual = 50;
    return tarn::test::NumberFromEnvironment("TARN_CRASHES").value_or(usual);
}

// Scopes that were accepted, in the log or not, counted over many crashes.
TEST_P(CrashTest, NothingIsMissingWhileFourThreadsGoOn) {
    const std::size_t crashes = Crashes();
    std::size_t accepted = 0;
    std::size_t missing = 0;
    for (std::size_t crash = 0; crash < crashes && !HasFailure(); ++crash) {
        Crash("crash-among-threads", SIGSEGV, {.count = 100});

        const ProcessLog log = Log();
        ExpectSoundLogUpToTheLastLine(log);
        EXPECT_THAT(LastWords(log), SizeIs(1));
        const std::int64_t pid = OnlyPid(log);
        for (std::size_t thread = 0; thread < 4; ++thread) {
            const auto numbers = log.NumbersOf(pid, static_cast<std::int64_t>(thread));
            EXPECT_EQ(numbers, NumbersUpTo(numbers.size()));
            const std::size_t ended = Ended(thread);
            accepted += ended;
            missing += ended - std::min(ended, numbers.size());
        }
    }
    std::printf("%zu of %zu accepted scopes are missing\n", missing, accepted);
    EXPECT_GT(accepted, 10u * crashes);
    EXPECT_EQ(missing, 0u);
}

// The signal may come while the thread has any lock. Then something may be missing, but the process
// ends, and what is there is whole.
TEST_P(CrashTest, ASignalAtAnyMomentEndsTheProcess) {
    const std::size_t crashes = Crashes();
    std::size_t saved = 0;
    for (std::size_t crash = 0; crash < crashes && !HasFailure(); ++crash) {
        Crash("crash-at-any-moment", SIGABRT, {.count = 50 + 7 * crash});

        const ProcessLog log = Log();
        ExpectSoundLogUpToTheLastLine(log);
        EXPECT_THAT(LastWords(log), SizeIs(Le(1u)));
        saved += LastWords(log).size();
    }
    std::printf("last words in %zu of %zu crashes\n", saved, crashes);
    EXPECT_GT(saved, crashes / 2) << "a few may have locked what the delivery needs";
}

// What comes after it is delivered in the place of the thread that crashed.
TEST_P(CrashTest, ACrashInASinkCostsTheEventThatItWasGiven) {
    Crash(ForThisDelivery("crash-in-sink"), SIGSEGV);

    const ProcessLog log = Log();
    EXPECT_THAT(log.BrokenLines(), IsEmpty());
    const std::int64_t pid = OnlyPid(log);
    EXPECT_EQ(log.NumbersOf(pid, 0), NumbersUpTo(5));
    EXPECT_EQ(log.NumbersOf(pid, 1), NumbersUpTo(IsAsynchronous() ? 5 : 0));
    EXPECT_EQ(log.CountBegun("fatal"), 0u);
    EXPECT_THAT(LastWords(log), ElementsAre(HasSubstr("outer ")));
}

// An end is several events, which lie in no queue any more when the first is delivered.
TEST_P(CrashTest, ACrashInTheMiddleOfAnEndCostsNothingOfTheEnd) {
    if (!IsAsynchronous()) {
        GTEST_SKIP() << "the thread that crashes is the one that would say the rest";
    }
    Crash("crash-in-end", SIGSEGV);

    const ProcessLog log = Log();
    EXPECT_THAT(log.BrokenLines(), IsEmpty());
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 1), NumbersUpTo(5));
    EXPECT_EQ(log.CountBegun("fatal"), 1u);
    EXPECT_THAT(log.Unended(), ElementsAre("outer"));
    EXPECT_THAT(LastWords(log), ElementsAre(HasSubstr("outer ")));
}

// The log's file is locked for good.
TEST_P(CrashTest, ACrashWhileALineIsWrittenCostsWhatIsWrittenWithIt) {
    Crash("crash-in-write", SIGABRT);

    EXPECT_LT(TimeOfLastRun(), std::chrono::seconds(20)) << "the deadline is 30 seconds";
    const ProcessLog log = Log();
    EXPECT_THAT(log.BrokenLines(), IsEmpty());
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(scopes));
    EXPECT_THAT(LastWords(log), ElementsAre(HasSubstr("outer ")));
}

TEST_P(CrashTest, ACrashInTheRescueItselfEndsTheProcessAtOnce) {
    Crash(ForThisDelivery("crash-in-rescue"), SIGSEGV);

    EXPECT_LT(TimeOfLastRun(), std::chrono::seconds(20)) << "the deadline is 30 seconds";
    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(5));
}

TEST_P(CrashTest, OfTwoThreadsThatCrashOneEndsTheProcess) {
    Crash("crash-of-two-threads", SIGSEGV);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    const std::int64_t pid = OnlyPid(log);
    EXPECT_EQ(log.NumbersOf(pid, 0), NumbersUpTo(scopes));
    EXPECT_EQ(log.NumbersOf(pid, 1), NumbersUpTo(scopes));
    EXPECT_THAT(LastWords(log), ElementsAre(HasSubstr("outer ")));
    EXPECT_EQ(Ended(handlerCalls), 1u);
}

TEST_P(CrashTest, AThreadThatCrashesWhileTheHostsHandlerRunsDoesNotCallItAgain) {
    Crash("crash-of-another-thread", SIGSEGV);

    EXPECT_THAT(LastWords(Log()), SizeIs(1));
    EXPECT_EQ(Ended(handlerCalls), 1u);
}

TEST_P(CrashTest, AHandlerThatIsToBeCalledOnceMayRaiseTheSignalAgain) {
    Crash("crash-with-handler-for-once", SIGSEGV);

    ExpectSaved("SIGSEGV", "outer [0-9.]+ ms");
    EXPECT_EQ(Ended(handlerCalls), 1u);
}

// With synchronous delivery the sink crashes on the thread that emits.
class AsynchronousCrashTest : public CrashTest {};

INSTANTIATE_TEST_SUITE_P(Delivering, AsynchronousCrashTest, testing::Values("async"), DeliveryName);

TEST_P(AsynchronousCrashTest, ASinkThatCrashesMeanwhileDoesNotHoldUpTheRescue) {
    Crash("crash-while-sink-crashes", SIGABRT);

    EXPECT_LT(TimeOfLastRun(), std::chrono::seconds(20)) << "the deadline is 30 seconds";
    const ProcessLog log = Log();
    EXPECT_THAT(log.BrokenLines(), IsEmpty());
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(5));
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 1), NumbersUpTo(5));
    EXPECT_THAT(LastWords(log), ElementsAre(HasSubstr("Crashed by SIGABRT")));
}

TEST_P(AsynchronousCrashTest, AThreadThatGoesOnWaitsForTheRescueThatHasTakenItsPlace) {
    Run("crash-returning-late", 3);

    const ProcessLog log = Log();
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 2), NumbersUpTo(5)) << "what it emits afterwards is kept";
}

TEST_P(CrashTest, WaitingForACrashDoesNotKeepAProcessAliveThatItsThreadsHaveLeft) {
    Run("crash-never-main-leaves", 0, {.count = scopes});

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    EXPECT_EQ(log.NumbersOf(OnlyPid(log), 0), NumbersUpTo(scopes));
}

TEST_P(CrashTest, TheHostsHandlerRunsOnceAfterwardsWithTheSameArguments) {
    Crash("crash-with-hosts-handler", SIGSEGV);

    ExpectSaved("SIGSEGV", "outer [0-9.]+ ms");
    EXPECT_EQ(Ended(handlerCalls), 1u);
    EXPECT_EQ(Ended(rightArguments), 1u);
}

TEST_P(CrashTest, AChainOfHandlersThatComesBackEnds) {
    Crash("crash-in-circle", SIGSEGV);

    ExpectSaved("SIGSEGV", "outer [0-9.]+ ms");
    EXPECT_EQ(Ended(handlerCalls), 2u) << "it was set twice";
}

TEST_P(CrashTest, TracingGoesOnIfTheHostsHandlerMendsTheFault) {
    Run("crash-mended", 3);

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    for (const std::int64_t round : {0, 1, 2, 3}) {
        EXPECT_EQ(log.NumbersOf(OnlyPid(log), round), NumbersUpTo(50));
    }
    EXPECT_THAT(LastWords(log), SizeIs(3));
    EXPECT_EQ(Ended(handlerCalls), 3u);
}

TEST_P(CrashTest, ALogThatHangsDoesNotKeepTheProcessFromEnding) {
    Crash("crash-while-log-hangs", SIGSEGV, {.count = scopes, .linesUntilHang = 60});

    EXPECT_LT(TimeOfLastRun(), std::chrono::seconds(20));
    ExpectSoundLogUpToTheLastLine(Log());
}

TEST_P(CrashTest, AForkedChildSavesItsOwn) {
    Run("crash-in-forked-child", 3, {.count = scopes});

    const ProcessLog log = Log();
    ExpectSoundLog(log);
    const auto ids = log.ProcessIds();
    ASSERT_THAT(ids, SizeIs(2));
    std::size_t ofChild = 0;
    for (const std::int64_t pid : ids) {
        ofChild += log.NumbersOf(pid, 1).size();
    }
    EXPECT_EQ(ofChild, scopes);
    EXPECT_THAT(LastWords(log), ElementsAre(HasSubstr("open scopes: outer ")));
}

TEST_P(CrashTest, SwitchedOffTheFormerHandlersAreBack) {
    Run("crash-switched-off", 3);
}

TEST_P(CrashTest, ASignalThatCannotBeHandledIsRefusedAndNothingChanges) {
    Run("crash-of-signal-that-cannot-be-handled", 3);
}

TEST_P(CrashTest, ASignalThatTheHostIgnoresStaysIgnored) {
    Run("crash-of-ignored-signal", 3);

    EXPECT_THAT(LastWords(Log()), IsEmpty());
}

TEST_P(CrashTest, TheHostsErrnoIsUnchangedIfItsHandlerReturns) {
    Run("crash-keeping-errno", 3);
}

}  // namespace
}  // namespace ProcessTest
