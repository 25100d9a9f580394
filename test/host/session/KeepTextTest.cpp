#include "KeepText.h"

#include <chrono>
#include <cstddef>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using testing::ElementsAre;

using namespace std::chrono_literals;

TEST(KeepTextTest, AllConditionsAndLimitsAreRead) {
    const auto rules = ReadKeepRules(
        "slow=50ms, failed,name=checkout|pay,fraction=0.01,sampled,bytes=16M,trees=500,age=2m");

    ASSERT_TRUE(rules);
    EXPECT_EQ(rules->slow, 50ms);
    EXPECT_TRUE(rules->failed);
    EXPECT_THAT(rules->names, ElementsAre("checkout", "pay"));
    EXPECT_EQ(rules->fraction, 0.01);
    EXPECT_TRUE(rules->sampled);
    EXPECT_EQ(rules->waitingBytes, std::size_t{16} << 20);
    EXPECT_EQ(rules->waitingTrees, 500U);
    EXPECT_EQ(rules->waitingTime, 120s);
}

TEST(KeepTextTest, AllMeansNoCondition) {
    const auto rules = ReadKeepRules(" all ");

    ASSERT_TRUE(rules);
    EXPECT_EQ(rules->slow, 0ms);
    EXPECT_FALSE(rules->failed || rules->sampled || rules->fraction > 0 || !rules->names.empty());
}

TEST(KeepTextTest, UnitsOfTimeAreRead) {
    EXPECT_EQ(ReadKeepRules("slow=7us")->slow, 7us);
    EXPECT_EQ(ReadKeepRules("slow=7ms")->slow, 7ms);
    EXPECT_EQ(ReadKeepRules("slow=7s")->slow, 7s);
    EXPECT_EQ(ReadKeepRules("slow=7m")->slow, 7min);
}

TEST(KeepTextTest, WhatIsWrongIsRefusedAsAWhole) {
    for (const std::string text : {"",
                                   ",",
                                   "fast",
                                   "all,failed",
                                   "bytes=16M",
                                   "failed,quick",
                                   "failed=1",
                                   "slow",
                                   "slow=",
                                   "slow=5",
                                   "slow=ms",
                                   "slow=0ms",
                                   "slow=-5ms",
                                   "slow=5 ms",
                                   "slow=5h",
                                   "slow=5mss",
                                   "slow=99999999999999999999s",
                                   "slow=9223372036854775807m",
                                   "name=",
                                   "name=|",
                                   "fraction=0",
                                   "fraction=1.01",
                                   "fraction=-0.5",
                                   "fraction=nan",
                                   "fraction=inf",
                                   "fraction=0,5",
                                   "fraction=1e999",
                                   "failed,bytes=1X",
                                   "failed,bytes=99999999999G",
                                   "failed,trees=0",
                                   "failed,trees=-1",
                                   "failed,age=0s",
                                   "Failed",
                                   "failed;sampled"}) {
        EXPECT_FALSE(ReadKeepRules(text)) << text;
    }
}

TEST(KeepTextTest, NoTextDoesMoreHarmThanToBeRefused) {
    const std::string pieces[] = {"slow=",
                                  "failed",
                                  "name=",
                                  "fraction=",
                                  "sampled",
                                  "bytes=",
                                  "trees=",
                                  "age=",
                                  "all",
                                  ",",
                                  "|",
                                  "=",
                                  "5",
                                  "0.5",
                                  "ms",
                                  "-",
                                  "e9",
                                  "K",
                                  "\xff",
                                  " ",
                                  "99999999999999999999",
                                  std::string(1, '\0')};
    std::mt19937 random(7);
    int readable = 0;
    for (int i = 0; i < 50'000; ++i) {
        std::string text;
        for (std::size_t count = random() % 8; count > 0; --count) {
            text += pieces[random() % std::size(pieces)];
        }

        const auto rules = ReadKeepRules(text);

        if (rules) {
            ++readable;
            EXPECT_GE(rules->slow, 0us);
            EXPECT_GT(rules->waitingTime, 0us);
            EXPECT_GT(rules->waitingTrees, 0U);
            EXPECT_TRUE(rules->fraction >= 0 && rules->fraction <= 1) << text;
        }
    }
    EXPECT_GT(readable, 100);
}

}  // namespace
}  // namespace tarn::test
