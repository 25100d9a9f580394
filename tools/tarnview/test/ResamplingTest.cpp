#include "model/Resampling.h"

#include "model/DurationClasses.h"
#include "model/HeatMap.h"
#include "model/OverTime.h"

#include <numeric>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::Each;
using testing::Ge;
using testing::SizeIs;

std::vector<Microseconds> From(Microseconds first, std::size_t count, Microseconds step = 1) {
    std::vector<Microseconds> values(count);
    for (std::size_t index = 0; index < count; ++index) {
        values[index] = first + static_cast<Microseconds>(index) * step;
    }
    return values;
}

TEST(ResamplingTest, EqualSamplesDifferByChance) {
    EXPECT_EQ(ChanceOfDifference(From(0, 50), From(0, 50)), 1);
    EXPECT_EQ(ChanceOfDifference({7, 7, 7}, {7, 7}), 1);
    EXPECT_EQ(ChanceOfDifference({}, {1, 2}), 1);
}

TEST(ResamplingTest, SamplesThatDoNotOverlapDifferForAReason) {
    EXPECT_LE(ChanceOfDifference(From(0, 50), From(100, 30)), 0.0005);
    EXPECT_LE(ChanceOfDifference(From(100, 30), From(0, 50)), 0.0005);
}

// Of the 20 ways to deal out six values to three and three, two are as extreme as this one.
TEST(ResamplingTest, FewValuesProveLittle) {
    EXPECT_NEAR(ChanceOfDifference({1, 2, 3}, {4, 5, 6}), 0.1, 0.02);
}

// Of the 252 ways to deal out ten values, 12 give the one side a rank sum of at most 19, as here,
// and 12 one of at least 36.
TEST(ResamplingTest, ChancesAreThoseOfAllWaysToDealOut) {
    EXPECT_NEAR(ChanceOfDifference({10, 20, 30, 40, 90}, {50, 60, 70, 80, 100}), 24.0 / 252, 0.02);
}

TEST(ResamplingTest, OneExtremeValueDoesNotMakeADifference) {
    std::vector<Microseconds> after = From(0, 50);
    after.back() = 1'000'000'000;

    EXPECT_GT(ChanceOfDifference(From(0, 50), after), 0.5);
}

TEST(ResamplingTest, TheAnswerIsTheSameInEveryRun) {
    EXPECT_EQ(ChanceOfDifference(From(0, 40), From(8, 40)),
              ChanceOfDifference(From(0, 40), From(8, 40)));
}

TEST(ResamplingTest, OfManyChancesTheFalseOnesAreFew) {
    EXPECT_EQ(LargestSignificant({0.001, 0.9, 0.04}), 0.001);
    EXPECT_EQ(LargestSignificant({0.01, 0.02, 0.03, 0.04, 0.05}), 0.05);
    EXPECT_LT(LargestSignificant({0.2, 0.9}), 0);
    EXPECT_LT(LargestSignificant({}), 0);
}

TEST(ResamplingTest, ASampleOfManyIsAFairChoice) {
    DurationSample sample;
    for (Microseconds duration = 0; duration < 100'000; ++duration) {
        sample.Add(duration);
    }

    EXPECT_THAT(sample.Values(), SizeIs(400));
    EXPECT_THAT(sample.Values(), Each(Ge(0)));
    const double sum = std::accumulate(sample.Values().begin(), sample.Values().end(), 0.0);
    EXPECT_NEAR(sum / 400, 50'000, 5'000);
}

TEST(DurationClassesTest, ClassesBeginAtOneTwoAndFiveOfEachPowerOfTen) {
    EXPECT_EQ(DurationClassOf(-5), 0U);
    EXPECT_EQ(DurationClassOf(0), 0U);
    for (std::size_t number = 1; number < 40; ++number) {
        EXPECT_EQ(DurationClassOf(BeginOfDurationClass(number)), number);
        EXPECT_EQ(DurationClassOf(BeginOfDurationClass(number) - 1), number - 1);
    }
    EXPECT_EQ(BeginOfDurationClass(10), 1'000);
    EXPECT_EQ(BeginOfDurationClass(11), 2'000);
    EXPECT_EQ(BeginOfDurationClass(12), 5'000);
}

// Coarser steps must not move anything to another interval.
TEST(HeatMapTest, CountsAreExactHoweverManyTimesThereAre) {
    HeatMap map;
    std::map<Microseconds, std::uint64_t> expected;
    const Microseconds length = IntervalFor(50'000 * 7'654'321LL, 100);
    for (Microseconds number = 0; number < 50'000; ++number) {
        const Microseconds time = number * 7'654'321;
        map.Add(time, 3);
        ++expected[BeginOfInterval(time, length)];
    }

    std::map<Microseconds, std::uint64_t> counts;
    for (const auto& [time, classes] : map.In(length)) {
        counts[time] = classes.at(3);
    }

    EXPECT_EQ(counts, expected);
    EXPECT_LE(counts.size(), 100U);
}

TEST(HeatMapTest, IntervalsBeforeNineteenSeventyBeginInThePast) {
    EXPECT_EQ(BeginOfInterval(-1, 10), -10);
    EXPECT_EQ(BeginOfInterval(-10, 10), -10);
    EXPECT_EQ(BeginOfInterval(9, 10), 0);
}

TEST(IntervalTest, AsManyAsAreAllowedCoverTheSpan) {
    EXPECT_EQ(IntervalFor(0, 80), 1);
    EXPECT_EQ(IntervalFor(60'000'000, 80), 1'000'000);
    EXPECT_EQ(IntervalFor(3'600'000'000, 61), 60'000'000 * 2);
    for (const Microseconds span :
         {1LL, 999LL, 123'456'789LL, 86'400'000'000LL, 9'000'000'000'000'000LL}) {
        EXPECT_LT(span / IntervalFor(span, 80), 80);
    }
}

}  // namespace
}  // namespace tarnview
