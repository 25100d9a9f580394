#include "model/Filter.h"

#include <gtest/gtest.h>

namespace tarnview {
namespace {

Activity Ended(const std::string& name, double elapsed) {
    Activity activity;
    activity.name = name;
    activity.root = "ABCD-1";
    activity.user = "ada";
    activity.site = "north";
    activity.hasBegin = activity.hasEnd = true;
    activity.begin = 1'000'000;
    activity.end = 2'000'000;
    activity.elapsed = elapsed;
    activity.result = "ok";
    return activity;
}

TEST(FilterTest, AnEmptyOnePassesEverything) {
    EXPECT_TRUE(Filter().IsEmpty());
    EXPECT_TRUE(Filter().Passes(Ended("load", 1)));
    EXPECT_TRUE(Filter().Passes(Activity()));
}

TEST(FilterTest, NamesUsersAndSitesArePatterns) {
    EXPECT_TRUE((Filter{.names = {"x", "lo*"}}).Passes(Ended("load", 1)));
    EXPECT_FALSE((Filter{.names = {"lo"}}).Passes(Ended("load", 1)));
    EXPECT_TRUE((Filter{.users = {"a?a"}}).Passes(Ended("load", 1)));
    EXPECT_FALSE((Filter{.users = {"a?a"}, .sites = {"south"}}).Passes(Ended("load", 1)));
}

TEST(FilterTest, ARootIsNamedByTheBeginningOfItsId) {
    EXPECT_TRUE((Filter{.roots = {"AB"}}).Passes(Ended("load", 1)));
    EXPECT_FALSE((Filter{.roots = {"B"}}).Passes(Ended("load", 1)));
}

TEST(FilterTest, FailedIsNeitherOkNorTerminatedEarly) {
    Activity activity = Ended("load", 1);
    EXPECT_FALSE((Filter{.isFailed = true}).Passes(activity));

    activity.result = "exception";
    EXPECT_TRUE((Filter{.isFailed = true}).Passes(activity));

    activity.result = "early-termination";

    EXPECT_FALSE((Filter{.isFailed = true}).Passes(activity));
    EXPECT_TRUE((Filter{.isNotOk = true}).Passes(activity));
    EXPECT_TRUE((Filter{.results = {"early*"}}).Passes(activity));
    EXPECT_FALSE((Filter{.results = {"exception"}}).Passes(activity));
}

TEST(FilterTest, SlowerThanLeavesOutWhatTookExactlyThatLong) {
    EXPECT_FALSE((Filter{.slowerThan = 1'000'000}).Passes(Ended("load", 1)));
    EXPECT_TRUE((Filter{.slowerThan = 1'000'000}).Passes(Ended("load", 1.001)));
}

TEST(FilterTest, ATimeRangeTakesWhatRanWithinIt) {
    const Activity activity = Ended("load", 1);

    EXPECT_TRUE((Filter{.since = 2'000'000}).Passes(activity));
    EXPECT_FALSE((Filter{.since = 2'000'001}).Passes(activity));
    EXPECT_TRUE((Filter{.before = 1'000'001}).Passes(activity));
    EXPECT_FALSE((Filter{.before = 1'000'000}).Passes(activity));
}

TEST(FilterTest, WhatNeverEndedHasNoResultAndIsNotOver) {
    Activity activity = Ended("load", 0);
    activity.hasEnd = false;

    EXPECT_TRUE((Filter{.since = 9'000'000}).Passes(activity));
    EXPECT_FALSE((Filter{.slowerThan = 0}).Passes(activity));
    EXPECT_FALSE((Filter{.isFailed = true}).Passes(activity));
}

TEST(FilterTest, SlowerThanComparesMicrosecondsThatTheLogCutsOff) {
    Activity activity = Ended("lookup", 0);
    activity.end = activity.begin + 604;

    EXPECT_TRUE((Filter{.slowerThan = 603}).Passes(activity));
    EXPECT_FALSE((Filter{.slowerThan = 604}).Passes(activity));
}

TEST(DurationTextTest, DurationsHaveUnits) {
    EXPECT_EQ(ParseDuration("2"), 2'000'000);
    EXPECT_EQ(ParseDuration("1.5s"), 1'500'000);
    EXPECT_EQ(ParseDuration("250ms"), 250'000);
    EXPECT_EQ(ParseDuration("3m"), 180'000'000);
    EXPECT_EQ(ParseDuration("1h"), 3'600'000'000);
    EXPECT_EQ(ParseDuration("7us"), 7);
    for (const char* const text : {"", "s", "1x", "-1", "nan", "1 s s"}) {
        EXPECT_EQ(ParseDuration(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace tarnview
