#include "model/DurationHistogram.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace tarnview {
namespace {

TEST(DurationHistogramTest, NothingHasTheQuantileZero) {
    EXPECT_EQ(DurationHistogram().Quantile(0.5), 0U);
}

TEST(DurationHistogramTest, AQuantileIsTheSmallestValueThatEnoughDoNotExceed) {
    DurationHistogram histogram;
    for (const std::uint64_t value : {10U, 20U, 30U, 40U}) {
        histogram.Add(value);
    }

    EXPECT_EQ(histogram.Quantile(0), 10U);
    EXPECT_EQ(histogram.Quantile(0.25), 10U);
    EXPECT_EQ(histogram.Quantile(0.26), 20U);
    EXPECT_EQ(histogram.Quantile(0.5), 20U);
    EXPECT_EQ(histogram.Quantile(0.9), 40U);
    EXPECT_EQ(histogram.Quantile(1), 40U);
}

TEST(DurationHistogramTest, AFewThousandValuesAreExactHoweverLargeTheyAre) {
    std::mt19937_64 random(5);
    std::vector<std::uint64_t> values;
    DurationHistogram histogram;
    for (int count = 0; count < 10'000; ++count) {
        values.push_back(random() >> (24 + random() % 40));
        histogram.Add(values.back());
    }
    std::sort(values.begin(), values.end());

    for (const double share : {0.01, 0.5, 0.9, 0.99, 1.0}) {
        const auto rank = static_cast<std::size_t>(std::ceil(share * 10'000)) - 1;
        EXPECT_EQ(histogram.Quantile(share), values[rank]) << share;
    }
}

TEST(DurationHistogramTest, OfManyValuesThoseOfTwoMillisecondsAndLessAreExact) {
    DurationHistogram histogram;
    for (std::uint64_t round = 0; round < 10; ++round) {
        for (std::uint64_t value = 0; value < 2048; ++value) {
            histogram.Add(value);
        }
    }

    for (std::uint64_t value = 0; value < 2048; ++value) {
        const double share = static_cast<double>(value + 1) / 2048;
        ASSERT_EQ(histogram.Quantile(share), value);
    }
}

TEST(DurationHistogramTest, OfManyValuesTheLargerOnesAreOffByLessThanAThousandth) {
    constexpr std::size_t count = 40'000;
    std::mt19937_64 random(17);
    std::vector<std::uint64_t> values;
    DurationHistogram histogram;
    for (std::size_t number = 0; number < count; ++number) {
        values.push_back(random() >> (24 + random() % 40));
        histogram.Add(values.back());
    }
    std::sort(values.begin(), values.end());

    for (const double share : {0.01, 0.5, 0.9, 0.99, 1.0}) {
        const auto rank = static_cast<std::size_t>(std::ceil(share * count)) - 1;
        const auto exact = static_cast<double>(values[rank]);
        const auto found = static_cast<double>(histogram.Quantile(share));
        EXPECT_LE(found, exact);
        EXPECT_GE(found, exact * 0.999) << share;
    }
}

TEST(DurationHistogramTest, AValueBeyondAllMeasureIsTaken) {
    DurationHistogram histogram;
    for (int count = 0; count < 20'000; ++count) {
        histogram.Add(UINT64_MAX);
    }

    EXPECT_EQ(histogram.Count(), 20'000U);
    EXPECT_GT(histogram.Quantile(1), 3'000'000'000'000'000U);
}

}  // namespace
}  // namespace tarnview
