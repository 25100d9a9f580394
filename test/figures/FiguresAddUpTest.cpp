#include "Addition.h"
#include "Environment.h"
#include "FakeTime.h"
#include "FiguresTest.h"
#include "LoggedScopes.h"
#include "Oracle.h"
#include "Script.h"

#include "tarn/ActivityScope.h"

#include "cvlmetrics/Context.h"
#include "cvlsys/CpuTime.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

// Random programs of scopes, through the scopes, the bus, the monitor and the event builder into a
// sink; then the log is added up. To look further or to see a failure again:
//   TARN_FIGURES_SEED     the seed (a number) in place of each test's own
//   TARN_FIGURES_SCRIPTS  how many scripts each test runs
//   TARN_FIGURES_SCRIPT   only this script of the seed
namespace figures {
namespace {

using tarn::test::NumberFromEnvironment;

constexpr uint64 defaultSeed = 20261121;
constexpr uint64 defaultScripts = 1500;

class FiguresAddUpTest : public FiguresTest {
protected:
    Sightings ExpectSums(Family family, uint64 seed) {
        seed = NumberFromEnvironment("TARN_FIGURES_SEED").value_or(seed);
        const uint64 scripts =
            NumberFromEnvironment("TARN_FIGURES_SCRIPTS").value_or(defaultScripts);
        const std::optional<uint64> only = NumberFromEnvironment("TARN_FIGURES_SCRIPT");
        Sightings seen;
        for (uint64 number = only.value_or(0); number < (only ? *only + 1 : scripts); ++number) {
            const Script script = MakeScript(family, seed, number);
            const LoggedScopes log = RunAndReadLog(script);
            if (const auto fault = FindFault(WorkOutLast(script), log, seen)) {
                ADD_FAILURE() << *fault << "\nTo see it again: TARN_FIGURES_SEED=" << seed
                              << " TARN_FIGURES_SCRIPT=" << number << "\n"
                              << figures::Text(script);
            }
            if (HasFailure()) {
                break;
            }
        }
        m_isWhole = !only && scripts >= defaultScripts && !HasFailure();
        return seen;
    }

    /// Whether the run was long enough to meet rare things.
    bool IsWhole() const { return m_isWhole; }

    static std::string Text(const Sightings& seen) {
        std::string text = std::to_string(seen.scopes) + " scopes in " +
                           std::to_string(seen.trees) +
                           " trees; add up: " + std::to_string(seen.treesThatAddUp) +
                           ", in time: " + std::to_string(seen.treesWhoseTimeAddsUp) +
                           ", true: " + std::to_string(seen.treesThatTellTheTruth) +
                           "; negative figures: " + std::to_string(seen.negativeFigures);
        for (std::size_t i = 0; i < exceptionCount; ++i) {
            text +=
                std::string("; ") + exceptionNames[i] + " " + std::to_string(seen.exceptions[i]);
        }
        return text;
    }

private:
    bool m_isWhole = false;
};

void ExpectToHaveSeen(const Sightings& seen, const std::vector<Exception>& exceptions) {
    constexpr uint64 enough = 20;
    for (const Exception exception : exceptions) {
        EXPECT_GE(seen.exceptions[exception], enough) << exceptionNames[exception];
    }
    EXPECT_GE(seen.treesThatAddUp, 10 * enough);
    EXPECT_GE(seen.treesWhoseTimeAddsUp, 10 * enough);
    EXPECT_GE(seen.treesThatTellTheTruth, 10 * enough);
    EXPECT_GE(seen.negativeFigures, enough);
}

TEST_F(FiguresAddUpTest, OnOneThread) {
    const Sightings seen = ExpectSums(Family::OneThread, defaultSeed);

    std::cout << Text(seen) << '\n';
    if (IsWhole()) {
        ExpectToHaveSeen(seen,
                         {RootHasNoEnd,
                          SponsorsHadEnded,
                          TreesDiffer,
                          TransparentIsLogged,
                          TransparentIsLost,
                          EndedOutOfOrder,
                          TransparentTakesTime});
    }
}

TEST_F(FiguresAddUpTest, OnTwoThreadsInTurns) {
    const Sightings seen = ExpectSums(Family::TwoThreadsInTurns, defaultSeed);

    std::cout << Text(seen) << '\n';
    if (IsWhole()) {
        ExpectToHaveSeen(seen,
                         {RootHasNoEnd,
                          SponsorsHadEnded,
                          TreesDiffer,
                          TransparentIsLogged,
                          TransparentIsLost,
                          EndedOutOfOrder,
                          OnAnotherThread,
                          TransparentTakesTime});
    }
}

TEST_F(FiguresAddUpTest, OnTwoThreadsAtOnce) {
    const Sightings seen = ExpectSums(Family::TwoThreadsAtOnce, defaultSeed);

    std::cout << Text(seen) << '\n';
    if (IsWhole()) {
        ExpectToHaveSeen(
            seen, {RootHasNoEnd, TransparentIsLogged, OnAnotherThread, TransparentTakesTime});
    }
}

TEST_F(FiguresAddUpTest, OfScriptsThatNobodyHasSeenBefore) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto seed =
        static_cast<uint64>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());

    ExpectSums(Family::TwoThreadsInTurns, seed);
}

/// A tree of three scopes whose figures are neither all zero nor all the same.
Script SmallScript() {
    Script script;
    script.scopes = 3;
    script.blocks = 2;
    const auto open = [](int scope) {
        Op op;
        op.type = OpType::OpenScope;
        op.index = scope;
        return op;
    };
    const auto with = [](OpType type, int index, int64 amount) {
        Op op;
        op.type = type;
        op.index = index;
        op.bytes = static_cast<std::size_t>(amount);
        op.amount = amount;
        op.second = amount / 2;
        return op;
    };
    script.steps.resize(1);
    script.steps[0][0] = {open(0),
                          with(OpType::Allocate, 0, 100),
                          open(1),
                          with(OpType::PassTime, -1, 3'000'000),
                          with(OpType::UseProcessor, -1, 40),
                          with(OpType::Allocate, 1, 30),
                          open(2),
                          with(OpType::Release, 0, 0),
                          with(OpType::PassTime, -1, 5'000'000),
                          with(OpType::CloseTop, -1, 0),
                          with(OpType::CloseTop, -1, 0),
                          with(OpType::CloseTop, -1, 0)};
    return script;
}

TEST_F(FiguresAddUpTest, TheComparisonSeesEachFigureThatIsOffByOne) {
    const Script script = SmallScript();
    const LoggedScopes log = RunAndReadLog(script);
    const Expectation expectation = WorkOutLast(script);
    std::vector<std::function<void(LoggedScope&)>> faults = {
        [](LoggedScope& scope) { ++scope.begins; },
        [](LoggedScope& scope) { --scope.ends; },
        [](LoggedScope& scope) { scope.root += "x"; },
        [](LoggedScope& scope) { scope.elapsed += 0.001; },
        [](LoggedScope& scope) { scope.exclusiveTime -= 0.001; },
        [](LoggedScope& scope) { ++scope.peak; },
        [](LoggedScope& scope) { ++scope.threads; }};
    for (std::size_t i = 0; i < figureCount; ++i) {
        faults.emplace_back([i](LoggedScope& scope) { ++scope.inclusive[i]; });
        faults.emplace_back([i](LoggedScope& scope) { --scope.exclusive[i]; });
    }

    Sightings seen;
    EXPECT_EQ(FindFault(expectation, log, seen), std::nullopt);
    for (std::size_t i = 0; i < faults.size(); ++i) {
        LoggedScopes wrong = log;
        faults[i](wrong.scopes[1]);
        EXPECT_NE(FindFault(expectation, wrong, seen), std::nullopt) << "fault " << i;
    }
}

// Even where the expectation shares the mistake.
TEST_F(FiguresAddUpTest, TheSumSeesAShareThatIsGivenToNobodyOrTwice) {
    const Script script = SmallScript();
    const LoggedScopes log = RunAndReadLog(script);
    const Expectation expectation = WorkOutLast(script);

    Sightings seen;
    for (std::size_t i = 0; i < figureCount; ++i) {
        for (const int64 mistake : {-1, 1}) {
            LoggedScopes wrongLog = log;
            wrongLog.scopes[2].exclusive[i] += mistake;
            Expectation wrongExpectation = expectation;
            wrongExpectation.scopes[2].account.figures[i].exclusive += mistake;
            const auto fault = FindFault(wrongExpectation, wrongLog, seen);
            ASSERT_NE(fault, std::nullopt) << figureNames[i];
            EXPECT_NE(fault->find("add up"), std::string::npos) << *fault;
        }
    }
    LoggedScopes wrongLog = log;
    wrongLog.scopes[1].exclusiveTime = 0.002;
    Expectation wrongExpectation = expectation;
    wrongExpectation.scopes[1].account.exclusiveTime = 0.002;
    ++wrongExpectation.scopes[1].childrenMs;
    const auto fault = FindFault(wrongExpectation, wrongLog, seen);
    ASSERT_NE(fault, std::nullopt);
    EXPECT_NE(fault->find("milliseconds"), std::string::npos) << *fault;
}

TEST_F(FiguresAddUpTest,
       TheSystemIsAskedForProcessorTimesByMeasuredScopesAndOnlyWhileTrackingIsOn) {
    Metrics::Context context(0, Metrics::Context::Create(true));
    context.OpenScope();
    const auto questionsOf = [](tarn::Traits traits) {
        const uint64 before = fake_time::Questions();
        { const tarn::ActivityScope scope("asks", traits); }
        return fake_time::Questions() - before;
    };

    corvala::cputime::SetCpuTrackingEnabled(true);
    EXPECT_EQ(questionsOf(tarn::TraceType::Normal), 2U);
    EXPECT_EQ(questionsOf(tarn::TraceType::Transparent), 2U);
    EXPECT_EQ(questionsOf(tarn::TraceType::Untracked), 0U);
    EXPECT_EQ(questionsOf(tarn::TraceRank{1}), 0U);

    corvala::cputime::SetCpuTrackingEnabled(false);
    EXPECT_EQ(questionsOf(tarn::TraceType::Normal), 0U);
}

}  // namespace
}  // namespace figures
