#include "EndActivityFiguresTest.h"

#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::EndActivityFiguresTest;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using testing::AllOf;

TEST_F(EndActivityFiguresTest, TheElapsedTimeIsInWholeMillisecondsCutOff) {
    const std::vector<std::pair<int64, double>> durations = {{0, 0.0},
                                                             {999'999, 0.0},
                                                             {1'000'000, 0.001},
                                                             {1'999'999, 0.001},
                                                             {1'234'999'999, 1.234},
                                                             {3'600'000'000'000, 3600.0}};
    for (const auto& [nanoseconds, seconds] : durations) {
        Send(EventBuilder::OpenScope(7, "query").In(rootContext).At(5'500'000));

        Send(EventBuilder::CloseScope(7).In(rootContext).At(5'500'000 + nanoseconds));

        EXPECT_THAT(LastEvent(), HasActivityField("elapsed", seconds)) << nanoseconds << " ns";
    }
}

TEST_F(EndActivityFiguresTest, TheClocksOriginDoesNotMatter) {
    Send(EventBuilder::OpenScope(7, "query").In(rootContext).At(-3'000'000));

    Send(EventBuilder::CloseScope(7).In(rootContext).At(4'000'000));

    EXPECT_THAT(LastEvent(), HasActivityField("elapsed", 0.007));
}

TEST_F(EndActivityFiguresTest, AClockThatRanBackwardsGivesAnUnsignedDifference) {
    OpenAt(2, 7, "query");

    CloseAt(1, 7);

    // 2^64 - 1,000,000 nanoseconds, in whole milliseconds.
    EXPECT_THAT(LastEvent(), HasActivityField("elapsed", 18446744073708.0 / 1000.0));
}

TEST_F(EndActivityFiguresTest, WithoutChildrenTheExclusiveTimeIsTheElapsedTime) {
    OpenAt(10, 7, "query");

    CloseAt(25, 7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("elapsed", 0.015), HasActivityField("exclusive", 0.015)));
}

TEST_F(EndActivityFiguresTest, ChildrenAreTakenOutOfTheExclusiveTime) {
    OpenAt(0, 7, "outer");
    OpenAt(1, 8, "first");
    CloseAt(5, 8);
    OpenAt(6, 9, "second");
    CloseAt(8, 9);

    CloseAt(10, 7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("elapsed", 0.01),
                      HasActivityField("exclusive", 0.01 - (0.004 + 0.002))));
}

TEST_F(EndActivityFiguresTest, GrandchildrenCountInTheirParentOnly) {
    OpenAt(0, 7, "outer");
    OpenAt(1, 8, "middle");
    OpenAt(2, 9, "inner");
    CloseAt(5, 9);
    CloseAt(8, 8);
    EXPECT_THAT(LastEvent(), HasActivityField("exclusive", 0.007 - 0.003));

    CloseAt(10, 7);

    EXPECT_THAT(LastEvent(), HasActivityField("exclusive", 0.01 - 0.007));
}

TEST_F(EndActivityFiguresTest, ASiblingThatEndedBeforeCountsInTheParentOnly) {
    OpenAt(0, 7, "outer");
    OpenAt(0, 8, "first");
    CloseAt(5, 8);
    OpenAt(6, 9, "second");

    CloseAt(8, 9);

    EXPECT_THAT(LastEvent(), AllOf(Ends("second"), HasActivityField("exclusive", 0.002)));
}

TEST_F(EndActivityFiguresTest, AChildOnAnotherThreadDoesNotReduceTheExclusiveTime) {
    OpenAt(0, 7, "outer", {{"tid", 40}});
    OpenAt(1, 8, "elsewhere", {{"tid", 50}});
    CloseAt(5, 8);

    CloseAt(10, 7);

    EXPECT_THAT(LastEvent(), HasActivityField("exclusive", 0.01));
}

TEST_F(EndActivityFiguresTest, TheThreadAtTheEndDecides) {
    OpenAt(0, 7, "outer", {{"tid", 40}});
    OpenAt(1, 8, "inner", {{"tid", 50}});
    Send(EventBuilder::ScopeValue(8, "tid", 40));
    CloseAt(5, 8);

    CloseAt(10, 7);

    EXPECT_THAT(LastEvent(), HasActivityField("exclusive", 0.01 - 0.004));
}

TEST_F(EndActivityFiguresTest, ExclusiveTimesAreNotClamped) {
    OpenAt(0, 7, "outer");
    for (const uint64 context : {2U, 3U}) {
        OpenContext(context, rootContext);
        Send(EventBuilder::OpenScope(context + 6, "parallel").In(context));
    }
    for (const uint64 context : {2U, 3U}) {
        Send(EventBuilder::CloseScope(context + 6).In(context).AtMilliseconds(8));
    }

    CloseAt(10, 7);

    EXPECT_THAT(LastEvent(), HasActivityField("exclusive", 0.01 - (0.008 + 0.008)));
}

TEST_F(EndActivityFiguresTest, AnUnloggedTransparentChildCountsAsAChild) {
    OpenAt(0, 7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent().AtMilliseconds(1));
    OpenAt(2, 9, "inner");
    CloseAt(4, 9);
    CloseAt(6, 8);

    CloseAt(10, 7);

    // The inner scope is the transparent one's child, and that one the outer's.
    EXPECT_THAT(LastEvent(), HasActivityField("exclusive", 0.01 - 0.005));
}

TEST_F(EndActivityFiguresTest, AfterTheSponsorHasClosedTheNextOneOutwardsGetsTheFigures) {
    OpenAt(0, 7, "outer");
    OpenAt(0, 8, "middle");
    OpenContext(2, rootContext);
    Send(EventBuilder::OpenScope(9, "child").In(2));
    CloseAt(1, 8);
    Send(EventBuilder::CloseScope(9).In(2).AtMilliseconds(4));

    CloseAt(10, 7);

    EXPECT_THAT(LastEvent(), HasActivityField("exclusive", 0.01 - (0.001 + 0.004)));
}

}  // namespace
