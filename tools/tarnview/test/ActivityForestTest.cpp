#include "model/ActivityForest.h"

#include <cmath>
#include <sstream>

#include <gtest/gtest.h>

namespace tarnview {
namespace {

// A parent of 2.5 ms and a child of 1.2 ms, as the times of their lines say; the log counts whole
// milliseconds.
class ActivityForestTest : public testing::Test {
protected:
    static Activity Ended(const std::string& id, Microseconds begin, Microseconds end) {
        Activity activity;
        activity.id = activity.name = id;
        activity.root = "parent";
        activity.beginThread = activity.endThread = 1;
        activity.hasBegin = activity.hasEnd = true;
        activity.begin = begin;
        activity.end = end;
        activity.elapsed = std::floor(static_cast<double>(end - begin) / 1e3) / 1e3;
        activity.exclusive = activity.elapsed;
        activity.result = "ok";
        return activity;
    }

    ActivityForestTest() {
        m_parent.exclusive = 0.001;
        m_child.sponsor = "parent";
        m_child.depth = 1;
    }

    Microseconds ExclusiveTimeOfTheParent() {
        std::ostringstream ignored;
        Problems problems(ignored);
        ActivityForest forest;
        forest.Add(Activity(m_parent));
        forest.Add(Activity(m_child));
        forest.Link(problems);
        return forest.ExclusiveTime(0);
    }

    Activity m_parent = Ended("parent", 0, 2'500);
    Activity m_child = Ended("child", 200, 1'400);
};

TEST_F(ActivityForestTest, ExclusiveTimeIsAsFineAsTheTimesOfTheLines) {
    EXPECT_EQ(ExclusiveTimeOfTheParent(), 1'300);
}

TEST_F(ActivityForestTest, AChildOnAnotherThreadTakesNoExclusiveTime) {
    m_child.beginThread = m_child.endThread = 2;
    m_parent.exclusive = 0.002;

    EXPECT_EQ(ExclusiveTimeOfTheParent(), 2'500);
}

TEST_F(ActivityForestTest, ExclusiveTimeIsThatOfTheLogIfTheTimesOfTheLinesSayAnother) {
    m_parent.exclusive = 0.1;

    EXPECT_EQ(ExclusiveTimeOfTheParent(), 100'000);
}

TEST_F(ActivityForestTest, WhatNeverEndedHasNoExclusiveTime) {
    m_parent.hasEnd = false;

    EXPECT_EQ(ExclusiveTimeOfTheParent(), 0);
}

}  // namespace
}  // namespace tarnview
