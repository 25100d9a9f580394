#include "activity/Activity.h"

#include <cmath>

#include <gtest/gtest.h>

namespace tarnview {
namespace {

// A parent of 2.5 ms and a child of 1.2 ms, as the times of their lines say; the log counts whole
// milliseconds.
class ActivityTest : public testing::Test {
protected:
    static Activity Ended(Microseconds duration) {
        Activity activity;
        activity.hasBegin = activity.hasEnd = true;
        activity.begin = 1'000'000;
        activity.end = activity.begin + duration;
        activity.elapsed = std::floor(static_cast<double>(duration) / 1e3) / 1e3;
        activity.result = "ok";
        return activity;
    }

    ActivityTest() {
        m_parent.exclusive = 0.001;
        m_parent.childrenTime = 1'200;
        m_parent.childrenLoggedTime = 1'000;
    }

    Activity m_parent = Ended(2'500);
};

TEST_F(ActivityTest, ItsDurationIsAsFineAsTheTimesOfItsLines) {
    EXPECT_EQ(m_parent.Duration(), 2'500);
}

TEST_F(ActivityTest, ItsDurationIsThatOfTheLogIfTheTimesOfTheLinesSayAnother) {
    m_parent.end = m_parent.begin + 3'600'000'000;

    EXPECT_EQ(m_parent.Duration(), 2'000);
}

TEST_F(ActivityTest, ItsExclusiveTimeIsAsFineAsTheTimesOfTheLines) {
    EXPECT_EQ(m_parent.ExclusiveTime(), 1'300);
}

TEST_F(ActivityTest, ItsExclusiveTimeIsThatOfTheLogIfAChildIsMissing) {
    m_parent.childrenTime = m_parent.childrenLoggedTime = 0;

    EXPECT_EQ(m_parent.ExclusiveTime(), 1'000);
}

// Each of a thousand children takes less than the last digit of the log.
TEST_F(ActivityTest, ManyShortChildrenTakeTheirTimeFromIt) {
    m_parent = Ended(60'900);
    m_parent.exclusive = 0.06;
    m_parent.childrenTime = 1'000 * 60;
    m_parent.childrenLoggedTime = 0;

    EXPECT_EQ(m_parent.ExclusiveTime(), 900);
}

TEST_F(ActivityTest, WhatNeverEndedHasTakenNoTime) {
    Activity open;
    open.hasBegin = true;
    open.begin = open.end = 1'000'000;

    EXPECT_EQ(open.Duration(), 0);
    EXPECT_EQ(open.ExclusiveTime(), 0);
}

}  // namespace
}  // namespace tarnview
