#include "read/Timestamp.h"

#include <gtest/gtest.h>

namespace tarnview {
namespace {

TEST(TimestampTest, MicrosecondsCountFromNineteenSeventy) {
    EXPECT_EQ(ParseTimestamp("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(ParseTimestamp("1970-01-02T00:00:01.5Z"), 86'401'500'000);
    EXPECT_EQ(ParseTimestamp("2026-11-21T06:02:25.181892Z"), 1'795'240'945'181'892);
}

TEST(TimestampTest, DecimalsBeyondTheSixthAreCutOff) {
    EXPECT_EQ(ParseTimestamp("1970-01-01T00:00:00.123456789Z"), 123'456);
}

TEST(TimestampTest, AnOffsetIsTakenOff) {
    EXPECT_EQ(ParseTimestamp("1970-01-01T01:30:00+01:30"), 0);
    EXPECT_EQ(ParseTimestamp("1969-12-31T23:00:00-01:00"), 0);
}

TEST(TimestampTest, WhatIsNoTimeReadsAsNothing) {
    for (const char* const text : {"",
                                   "now",
                                   "2026-11-21",
                                   "2026-11-21T06:02:25",
                                   "2026-02-30T00:00:00Z",
                                   "2026-13-01T00:00:00Z",
                                   "2026-11-21T24:00:00Z",
                                   "2026-11-21T06:60:00Z",
                                   "2026-11-21T06:02:25.Z",
                                   "2026-11-21T06:02:25Zx",
                                   "2026-11-21 06:02:25Z"}) {
        EXPECT_EQ(ParseTimestamp(text), std::nullopt) << text;
    }
}

TEST(TimestampTest, PeopleMayLeaveOutTheEnd) {
    const Microseconds day = *ParseTimestamp("2026-11-21T00:00:00Z");

    EXPECT_EQ(ParseLooseTimestamp("2026-11-21"), day);
    EXPECT_EQ(ParseLooseTimestamp("2026-11-21T00:01"), day + 60'000'000);
    EXPECT_EQ(ParseLooseTimestamp("2026-11-21 00:00:02"), day + 2'000'000);
    EXPECT_EQ(ParseLooseTimestamp("2026-11-21T00:00:00.25"), day + 250'000);
    EXPECT_EQ(ParseLooseTimestamp("2026-11-21T01:00:00+01:00"), day);
    EXPECT_EQ(ParseLooseTimestamp("soon"), std::nullopt);
}

TEST(TimestampTest, WhatIsWrittenIsReadBack) {
    for (const Microseconds time : {Microseconds{0}, Microseconds{-1}, 1'795'240'945'181'892}) {
        EXPECT_EQ(ParseTimestamp(FormatTimestamp(time)), time);
    }
    EXPECT_EQ(FormatTimestamp(-1), "1969-12-31T23:59:59.999999Z");
}

}  // namespace
}  // namespace tarnview
