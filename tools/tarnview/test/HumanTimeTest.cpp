#include "commands/HumanTime.h"

#include <cstdlib>
#include <ctime>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

// The local zone is one hour east of UTC in winter and two in summer.
class HumanTimeTest : public testing::Test {
public:
    HumanTimeTest(const HumanTimeTest&) = delete;
    HumanTimeTest& operator=(const HumanTimeTest&) = delete;
    HumanTimeTest(HumanTimeTest&&) = delete;
    HumanTimeTest& operator=(HumanTimeTest&&) = delete;

protected:
    HumanTimeTest() {
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }

    ~HumanTimeTest() override {
        unsetenv("TZ");
        tzset();
    }

    static std::string Read(const std::string& text, Zone zone = Zone::Utc) {
        const Microseconds now = *ParseTimestamp("2026-03-02T00:30:00.5Z");
        const auto time = ParseHumanTime(text, now, zone);
        return time ? FormatTimestamp(*time) : "none";
    }
};

TEST_F(HumanTimeTest, RelativeTimesAreBeforeNow) {
    EXPECT_EQ(Read("now"), "2026-03-02T00:30:00.500000Z");
    EXPECT_EQ(Read("-10m"), "2026-03-02T00:20:00.500000Z");
    EXPECT_EQ(Read("-1h", Zone::Local), "2026-03-01T23:30:00.500000Z");
    EXPECT_EQ(Read("-500ms"), "2026-03-02T00:30:00.000000Z");
    EXPECT_EQ(Read("-"), "none");
    EXPECT_EQ(Read("-soon"), "none");
}

TEST_F(HumanTimeTest, TimesOfTheDayAreOfToday) {
    EXPECT_EQ(Read("13:00"), "2026-03-02T13:00:00.000000Z");
    EXPECT_EQ(Read("13:00:30"), "2026-03-02T13:00:30.000000Z");
    EXPECT_EQ(Read("25:00"), "none");
    EXPECT_EQ(Read("13"), "none");
}

TEST_F(HumanTimeTest, DaysHaveNames) {
    EXPECT_EQ(Read("today"), "2026-03-02T00:00:00.000000Z");
    EXPECT_EQ(Read("yesterday"), "2026-03-01T00:00:00.000000Z");
    EXPECT_EQ(Read("yesterday 13:00"), "2026-03-01T13:00:00.000000Z");
    EXPECT_EQ(Read("yesterdays"), "none");
    EXPECT_EQ(Read("yesterday noon"), "none");
}

TEST_F(HumanTimeTest, LocalTimesAreThoseOfTheClockOnTheWall) {
    EXPECT_EQ(Read("today", Zone::Local), "2026-03-01T23:00:00.000000Z");
    EXPECT_EQ(Read("13:00", Zone::Local), "2026-03-02T12:00:00.000000Z");
    EXPECT_EQ(Read("2026-07-01 13:00", Zone::Local), "2026-07-01T11:00:00.000000Z");
    EXPECT_EQ(Read("2026-07-01", Zone::Local), "2026-06-30T22:00:00.000000Z");
}

TEST_F(HumanTimeTest, AnOffsetOverrulesTheZone) {
    EXPECT_EQ(Read("2026-07-01T13:00:00Z", Zone::Local), "2026-07-01T13:00:00.000000Z");
    EXPECT_EQ(Read("2026-07-01T13:00:00+05:00", Zone::Local), "2026-07-01T08:00:00.000000Z");
    EXPECT_EQ(Read("2026-07-01T13:00:00"), "2026-07-01T13:00:00.000000Z");
}

}  // namespace
}  // namespace tarnview
