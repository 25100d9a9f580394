#include "SmallRandom.h"

#include <bit>
#include <cstdint>

#include <gtest/gtest.h>

namespace {

using host::SmallRandom;

TEST(HostSmallRandomTest, GivesThePublishedNumbersOfItsAlgorithm) {
    SmallRandom random({1, 2, 3, 4});

    for (const std::uint64_t expected : {std::uint64_t{11520},
                                         std::uint64_t{0},
                                         std::uint64_t{1509978240},
                                         std::uint64_t{1215971899390074240},
                                         std::uint64_t{1216172134540287360},
                                         std::uint64_t{607988272756665600},
                                         std::uint64_t{16172922978634559625U},
                                         std::uint64_t{8476171486693032832}}) {
        EXPECT_EQ(random.Next(), expected);
    }
}

TEST(HostSmallRandomTest, StatesThatDifferInOneBitSoonDifferInAboutHalfOfTheirNumbersBits) {
    SmallRandom one({1, 2, 3, 4});
    SmallRandom other({1, 2, 3, 4 ^ std::uint64_t{1} << 63});

    for (int i = 0; i < 100; ++i) {
        static_cast<void>(one.Next() ^ other.Next());
    }
    int different = 0;
    for (int i = 0; i < 100; ++i) {
        different += std::popcount(one.Next() ^ other.Next());
    }

    EXPECT_NEAR(different, 3200, 400);
}

}  // namespace
