// The rules with which both oracles work, against figures that were added up by hand.
#include "FoldingRules.h"

#include <limits>
#include <optional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace folding {
namespace {

using testing::ElementsAre;

constexpr uint64 here = 1;
constexpr uint64 there = 2;

Account Measured(int64 amount, uint64 threadId = here) {
    Account account;
    account.threadId = threadId;
    AddMeasured(account, AllocatedBytes, amount);
    SetElapsed(account, 7'999'999);
    return account;
}

Figure Bytes(const Account& account) {
    return account.figures[AllocatedBytes];
}

TEST(FoldingRulesTest, OnOneThreadTheSponsorHasMeasuredTheChildToo) {
    Account sponsor = Measured(100);

    EXPECT_TRUE(Fold(Measured(30), sponsor));

    EXPECT_EQ(Bytes(sponsor), (Figure{70, 100, 0}));
    EXPECT_EQ(Bytes(sponsor).Inclusive(), 100);
    EXPECT_EQ(sponsor.figures[ReleaseCount], Figure());
}

TEST(FoldingRulesTest, FromAnotherThreadTheSponsorHasMeasuredNothing) {
    Account sponsor = Measured(100);

    EXPECT_FALSE(Fold(Measured(30, there), sponsor));

    EXPECT_EQ(Bytes(sponsor), (Figure{100, 100, 30}));
    EXPECT_EQ(Bytes(sponsor).Inclusive(), 130);
}

TEST(FoldingRulesTest, WhatCameFromOtherThreadsStaysThat) {
    Account child = Measured(30);
    Fold(Measured(5, there), child);
    Account sponsor = Measured(100);

    Fold(child, sponsor);

    EXPECT_EQ(Bytes(sponsor), (Figure{70, 100, 5}));
}

TEST(FoldingRulesTest, ASponsorThatMeasuresNothingTakesItsChildrensFigures) {
    Account sponsor = Measured(0);
    sponsor.measuresNothing = true;

    Fold(Measured(30), sponsor);
    Fold(Measured(8, there), sponsor);

    EXPECT_EQ(Bytes(sponsor), (Figure{0, 30, 8}));
}

TEST(FoldingRulesTest, ATransparentChildLeavesItsOwnShareWithTheSponsor) {
    Account inner = Measured(10);
    Account child = Measured(30);
    child.transparent = true;
    Fold(inner, child);
    Account onSameThread = Measured(100);
    Account onAnother = Measured(100, there);
    Account measuringNothing = Measured(0);
    measuringNothing.measuresNothing = true;

    Fold(child, onSameThread);
    Fold(child, onAnother);
    Fold(child, measuringNothing);

    EXPECT_EQ(Bytes(onSameThread), (Figure{90, 100, 0}));
    EXPECT_EQ(Bytes(onAnother), (Figure{120, 100, 30}));
    EXPECT_EQ(Bytes(measuringNothing), (Figure{0, 30, 0}));
}

TEST(FoldingRulesTest, OnlyTheTimeOfChildrenOnTheSameThreadIsTakenOff) {
    Account sponsor;
    sponsor.threadId = here;
    SetElapsed(sponsor, 50'000'000);

    Fold(Measured(0), sponsor);
    Fold(Measured(0, there), sponsor);
    SetExclusiveTime(sponsor);

    EXPECT_EQ(sponsor.elapsed, 0.050);
    EXPECT_EQ(sponsor.childrenTime, 0.007) << "cut to whole milliseconds";
    EXPECT_EQ(sponsor.exclusiveTime, 0.050 - 0.007);
    EXPECT_THAT(sponsor.threadIds, ElementsAre(here, there));
}

TEST(FoldingRulesTest, FiguresWrapAround) {
    Account sponsor = Measured(std::numeric_limits<int64>::min());

    Fold(Measured(1), sponsor);

    EXPECT_EQ(Bytes(sponsor).exclusive, std::numeric_limits<int64>::max());
}

TEST(FoldingRulesTest, TheNearestSponsorThatIsThereIsTaken) {
    const std::vector<uint64> chain{1, 2, 3};

    EXPECT_EQ(NearestSponsor(chain, [](uint64 id) { return id != 3; }), 2U);
    EXPECT_EQ(NearestSponsor(chain, [](uint64 id) { return id == 1; }), 1U);
    EXPECT_EQ(NearestSponsor(chain, [](uint64) { return false; }), std::nullopt);
}

}  // namespace
}  // namespace folding
