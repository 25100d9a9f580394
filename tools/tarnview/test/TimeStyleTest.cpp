#include "output/TimeStyle.h"

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

namespace tarnview {
namespace {

class TimeStyleTest : public testing::Test {
public:
    ~TimeStyleTest() override { SetZone("UTC"); }

    TimeStyleTest(const TimeStyleTest&) = delete;
    TimeStyleTest& operator=(const TimeStyleTest&) = delete;
    TimeStyleTest(TimeStyleTest&&) = delete;
    TimeStyleTest& operator=(TimeStyleTest&&) = delete;

protected:
    TimeStyleTest() = default;

    static void SetZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    static std::string Local(const char* zone, const char* time) {
        SetZone(zone);
        return TimeStyle{TimeStyle::Kind::Local, 0}.Text(*ParseTimestamp(time));
    }
};

TEST_F(TimeStyleTest, LocalTimesHaveTheOffsetOfTheirDay) {
    EXPECT_EQ(Local("CET-1CEST,M3.5.0,M10.5.0/3", "2026-03-01T23:30:00.000001Z"),
              "2026-03-02T00:30:00.000001+01:00");
    EXPECT_EQ(Local("CET-1CEST,M3.5.0,M10.5.0/3", "2026-07-01T10:00:00Z"),
              "2026-07-01T12:00:00.000000+02:00");
    EXPECT_EQ(Local("NST3:30", "2026-03-01T10:00:00Z"), "2026-03-01T06:30:00.000000-03:30");
}

TEST_F(TimeStyleTest, RelativeTimesAreSinceTheFirstOfTheLog) {
    const TimeStyle style{TimeStyle::Kind::Relative, 5'000'000};

    EXPECT_EQ(style.Text(5'000'000), "+0.000000 s");
    EXPECT_EQ(style.Text(3'605'250'001), "+3600.250001 s");
    EXPECT_EQ(style.Text(4'999'999), "-0.000001 s");
}

}  // namespace
}  // namespace tarnview
