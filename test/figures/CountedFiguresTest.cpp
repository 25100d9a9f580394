#include "Addition.h"
#include "Environment.h"
#include "FiguresTest.h"
#include "Script.h"

#include <iostream>
#include <string>

#include <gtest/gtest.h>

// A program whose new and delete are counted: the scopes' own allocations are in the figures as
// well, so nobody can say beforehand what they are. They have to add up all the same.
//   TARN_FIGURES_SEED     the seed (a number) in place of the test's own
//   TARN_FIGURES_SCRIPTS  how many scripts it runs
namespace figures {
namespace {

using tarn::test::NumberFromEnvironment;

class CountedFiguresTest : public FiguresTest {};

TEST_F(CountedFiguresTest, WithNewAndDeleteCountedAllTreesOfAnOrderlyProgramAddUp) {
    const uint64 seed = NumberFromEnvironment("TARN_FIGURES_SEED").value_or(20261121);
    const uint64 scripts = NumberFromEnvironment("TARN_FIGURES_SCRIPTS").value_or(1000);
    Sightings seen;
    uint64 withMoreThanTheBlocks = 0;

    for (uint64 number = 0; number < scripts && !HasFailure(); ++number) {
        const Script script = MakeOrderlyScript(seed, number);
        const LoggedScopes log = RunAndReadLog(script, Blocks::FromNew);
        const Expectation expectation = WorkOutLast(script);
        const auto fault = FindFaultInSums(expectation, log, seen);
        EXPECT_FALSE(fault) << *fault << "\nscript " << number << " of seed " << seed << '\n'
                            << Text(script);
        for (std::size_t i = 0; i < log.scopes.size(); ++i) {
            const int64 blocks = expectation.scopes[i].Inclusive(AllocatedBytes);
            const int64 logged = log.scopes[i].inclusive[AllocatedBytes];
            EXPECT_GE(logged, blocks) << "s" << i << " of script " << number << ", seed " << seed;
            withMoreThanTheBlocks += logged > blocks ? 1U : 0U;
        }
    }

    std::cout << seen.scopes << " scopes in " << seen.trees << " trees\n";
    for (std::size_t i = 0; i < exceptionCount; ++i) {
        EXPECT_EQ(seen.exceptions[i] != 0, i == OnAnotherThread) << exceptionNames[i];
    }
    EXPECT_GT(withMoreThanTheBlocks, scripts);
}

}  // namespace
}  // namespace figures
