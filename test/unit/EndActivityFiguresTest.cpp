#include "MonitorTest.h"

#include "tarn/OptTarn.h"

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::LacksActivityField;
using tarn::test::LogValue;
using testing::AllOf;
using testing::Throws;

class EndActivityFiguresTest : public tarn::test::MonitorTest {
protected:
    void OpenAt(int64 milliseconds,
                uint64 id,
                const std::string& name,
                const Metrics::NameValueList& pairs = {}) {
        Send(EventBuilder::OpenScope(id, name)
                 .In(rootContext)
                 .With(pairs)
                 .AtMilliseconds(milliseconds));
    }

    void CloseAt(int64 milliseconds, uint64 id) {
        Send(EventBuilder::CloseScope(id).In(rootContext).AtMilliseconds(milliseconds));
    }

    void EndsWith(uint64 id, const Metrics::MetricsValue& resultKey) {
        Send(EventBuilder::ScopePairs(id, "resultAttrs", {{"rk", resultKey}}));
    }
};

// ---- Times.

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

// ---- Results.

TEST_F(EndActivityFiguresTest, AScopeThatReportsNothingEndsOk) {
    Open(7, "query");

    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("rk", "ok"),
                      HasActivityField("rv", LogValue::Object({})),
                      LacksActivityField("rnerr"),
                      LacksActivityField("rnterm")));
}

TEST_F(EndActivityFiguresTest, AChildThatEndedOkChangesNoCount) {
    Open(7, "outer");
    Open(8, "inner");
    EndsWith(8, "ok");

    Close(8);
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("rk", "ok"),
                      LacksActivityField("rnerr"),
                      LacksActivityField("rnterm")));
}

TEST_F(EndActivityFiguresTest, FailuresAndEarlyTerminationsOfChildrenAreCountedApart) {
    Open(7, "outer");
    for (const char* const result : {"exception", "early-termination", "error", "failure", "ok"}) {
        Open(8, "inner");
        EndsWith(8, result);
        Close(8);
    }

    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("outer"),
                      HasActivityField("rk", "ok"),
                      HasActivityField("rnerr", 3),
                      HasActivityField("rnterm", 1),
                      HasActivityField("rv", LogValue::Object({}))));
}

TEST_F(EndActivityFiguresTest, ResultsAreComparedExactly) {
    Open(7, "outer");
    for (const char* const result : {"OK", "Early-Termination", "ok "}) {
        Open(8, "inner");
        EndsWith(8, result);
        Close(8);
    }

    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("rnerr", 3), LacksActivityField("rnterm")));
}

TEST_F(EndActivityFiguresTest, AnEmptyResultCountsAsAnError) {
    Open(7, "outer");
    Open(8, "inner");
    EndsWith(8, "");

    Close(8);
    EXPECT_THAT(LastEvent(), HasActivityField("rk", ""));
    Close(7);

    EXPECT_THAT(LastEvent(), HasActivityField("rnerr", 1));
}

TEST_F(EndActivityFiguresTest, AFailureIsCountedOneLevelUpOnly) {
    Open(7, "outer");
    Open(8, "middle");
    Open(9, "inner");
    EndsWith(9, "exception");
    Close(9);

    Close(8);
    EXPECT_THAT(LastEvent(), AllOf(Ends("middle"), HasActivityField("rnerr", 1)));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), LacksActivityField("rnerr")));
}

TEST_F(EndActivityFiguresTest, AFailureUnderAnUnloggedTransparentScopeIsThatScopes) {
    Open(7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Open(9, "inner");
    EndsWith(9, "exception");
    Close(9);
    Close(8);

    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), LacksActivityField("rnerr")));
}

TEST_F(EndActivityFiguresTest, AFailedTransparentScopeIsCounted) {
    Open(7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    EndsWith(8, "exception");
    Close(8);

    Close(7);

    EXPECT_THAT(LastEvent(), HasActivityField("rnerr", 1));
}

TEST_F(EndActivityFiguresTest, ARootCountsItsOwnFailureAsItIsItsOwnSponsor) {
    Open(7, "query");
    EndsWith(7, "exception");

    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("rk", "exception"),
                      HasActivityField("rnerr", 1),
                      LacksActivityField("rnterm")));
}

TEST_F(EndActivityFiguresTest, ARootCountsItsOwnEarlyTermination) {
    Open(7, "query");
    EndsWith(7, "early-termination");

    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("rk", "early-termination"),
                      HasActivityField("rnterm", 1),
                      LacksActivityField("rnerr")));
}

TEST_F(EndActivityFiguresTest, AFailureOnAnotherThreadIsCountedToo) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "elsewhere", {{"tid", 50}});
    EndsWith(8, "exception");
    Close(8);

    Close(7);

    EXPECT_THAT(LastEvent(), HasActivityField("rnerr", 1));
}

/// A scope named "request" inside another scope, so that it is not its own sponsor and its own end
/// adds nothing to its counts.
class RequestResultTest : public EndActivityFiguresTest {
protected:
    static constexpr uint64 request = 8;

    void SetUp() override {
        EndActivityFiguresTest::SetUp();
        Open(7, "outer");
        Open(request, "request");
    }

    void ChildEndsWith(const char* result) {
        Open(9, "work");
        EndsWith(9, result);
        Close(9);
    }

    const TLog::Event& EndOfRequest() {
        Close(request);
        return LastEvent();
    }

    static LogValue Detected() {
        return LogValue::Object({{"msg", "detected in one or more sponsees"}});
    }
};

TEST_F(RequestResultTest, WithoutFailuresItEndsOk) {
    ChildEndsWith("ok");

    EXPECT_THAT(EndOfRequest(),
                AllOf(HasActivityField("rk", "ok"), HasActivityField("rv", LogValue::Object({}))));
}

TEST_F(RequestResultTest, AFailedChildMakesItAnError) {
    ChildEndsWith("exception");

    EXPECT_THAT(EndOfRequest(),
                AllOf(HasActivityField("rk", "error"),
                      HasActivityField("rnerr", 1),
                      LacksActivityField("rnterm"),
                      HasActivityField("rv", Detected())));
}

TEST_F(RequestResultTest, AChildThatTerminatedEarlyMakesItTerminateEarly) {
    ChildEndsWith("early-termination");

    EXPECT_THAT(EndOfRequest(),
                AllOf(HasActivityField("rk", "early-termination"),
                      HasActivityField("rnterm", 1),
                      LacksActivityField("rnerr"),
                      HasActivityField("rv", Detected())));
}

TEST_F(RequestResultTest, AnErrorOutweighsAnEarlyTerminationInEitherOrder) {
    ChildEndsWith("early-termination");
    ChildEndsWith("error");
    EXPECT_THAT(EndOfRequest(),
                AllOf(HasActivityField("rk", "error"),
                      HasActivityField("rnerr", 1),
                      HasActivityField("rnterm", 1),
                      HasActivityField("rv", Detected())));

    Open(request, "request");
    ChildEndsWith("error");
    ChildEndsWith("early-termination");
    EXPECT_THAT(EndOfRequest(),
                AllOf(HasActivityField("rk", "error"),
                      HasActivityField("rnerr", 1),
                      HasActivityField("rnterm", 1)));
}

TEST_F(RequestResultTest, ALaterGoodChildDoesNotMendIt) {
    ChildEndsWith("exception");
    ChildEndsWith("ok");

    EXPECT_THAT(EndOfRequest(), HasActivityField("rk", "error"));
}

TEST_F(RequestResultTest, ChildrensFailuresReplaceItsOwnResult) {
    EndsWith(request, "exception");
    ChildEndsWith("early-termination");

    EXPECT_THAT(EndOfRequest(), HasActivityField("rk", "early-termination"));
}

TEST_F(RequestResultTest, ItsOwnLaterResultStaysUntilTheNextChildEnds) {
    ChildEndsWith("exception");
    EndsWith(request, "ok");
    EXPECT_THAT(EndOfRequest(), HasActivityField("rk", "ok"));

    Open(request, "request");
    ChildEndsWith("exception");
    EndsWith(request, "ok");
    ChildEndsWith("ok");
    EXPECT_THAT(EndOfRequest(), HasActivityField("rk", "error"));
}

TEST_F(RequestResultTest, TheMessageOfAnEarlierResultGivesWayToTheDetection) {
    Send(EventBuilder::ScopePairs(request, "resultAttrs", {{"msg", "mine"}, {"type", "t"}}));
    ChildEndsWith("exception");

    EXPECT_THAT(
        EndOfRequest(),
        HasActivityField(
            "rv", LogValue::Object({{"msg", "detected in one or more sponsees"}, {"type", "t"}})));
}

TEST_F(RequestResultTest, TheDetectionIsSaidAgainAtEachLaterEndOfAChild) {
    const auto saysItself = [this] {
        Send(EventBuilder::ScopePairs(request, "resultAttrs", {{"msg", "mine"}}));
    };
    ChildEndsWith("early-termination");
    saysItself();
    EXPECT_THAT(EndOfRequest(), HasActivityField("rv", LogValue::Object({{"msg", "mine"}})));

    for (const char* const laterResult : {"error", "ok"}) {
        Open(request, "request");
        ChildEndsWith("early-termination");
        saysItself();
        ChildEndsWith(laterResult);

        EXPECT_THAT(EndOfRequest(), HasActivityField("rv", Detected())) << laterResult;
    }
}

TEST_F(RequestResultTest, OnlyTheExactNameTurnsChildrensFailuresIntoItsOwn) {
    Close(request);
    for (const char* const name : {"Request", "requests", "query"}) {
        Open(request, name);
        ChildEndsWith("exception");

        EXPECT_THAT(EndOfRequest(),
                    AllOf(HasActivityField("rk", "ok"), HasActivityField("rnerr", 1)))
            << name;
    }
}

TEST_F(EndActivityFiguresTest, AHostsRequestScopeTakesItsChildrensFailuresAndItsOwnEnd) {
    Send(EventBuilder::OpenScope(7, "request").In(rootContext).FromHost());
    Open(8, "work");
    EndsWith(8, "early-termination");
    Close(8);
    Open(8, "work");
    EndsWith(8, "error");
    Close(8);

    Send(EventBuilder::CloseScope(7, "request").In(rootContext).FromHost());

    // It is its own sponsor, so that its end as an error is counted once more.
    EXPECT_THAT(LastEvent(),
                AllOf(Ends("request"),
                      HasActivityField("rk", "error"),
                      HasActivityField("rnerr", 2),
                      HasActivityField("rnterm", 1)));
}

TEST_F(EndActivityFiguresTest, AHostsRequestScopeThatFailsItselfEndsAsAnError) {
    Send(EventBuilder::OpenScope(7, "request").In(rootContext).FromHost());
    Send(EventBuilder::ScopePairs(7, "resultAttrs", {{"rk", "exception"}, {"type", "t"}}));

    Send(EventBuilder::CloseScope(7, "request").In(rootContext).FromHost());

    EXPECT_THAT(
        LastEvent(),
        AllOf(HasActivityField("rk", "error"),
              HasActivityField("rnerr", 1),
              HasActivityField(
                  "rv",
                  LogValue::Object({{"msg", "detected in one or more sponsees"}, {"type", "t"}}))));
}

TEST_F(EndActivityFiguresTest, AHostsRequestScopeThatTerminatesEarlyEndsSo) {
    Send(EventBuilder::OpenScope(7, "request").In(rootContext).FromHost());
    EndsWith(7, "early-termination");

    Send(EventBuilder::CloseScope(7, "request").In(rootContext).FromHost());

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("rk", "early-termination"), HasActivityField("rnterm", 1)));
}

TEST_F(EndActivityFiguresTest, AChildPassesItsFailureToTheSponsorThatIsOpenAtItsEnd) {
    Open(7, "outer");
    Open(8, "middle");
    OpenContext(2, rootContext);
    Send(EventBuilder::OpenScope(9, "child").In(2));
    EndsWith(9, "exception");
    Close(8);
    EXPECT_THAT(LastEvent(), LacksActivityField("rnerr"));

    Send(EventBuilder::CloseScope(9).In(2));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), HasActivityField("rnerr", 1)));
}

// ---- Memory and processor figures.

/// What the end events say, by the names of the fields.
struct Figures {
    double ae = 0, ai = 0, de = 0, di = 0, apeak = 0;
    int64 ane = 0, ani = 0, dne = 0, dni = 0, ke = 0, ki = 0, ue = 0, ui = 0, ntid = 1;

    LogValue Text() const {
        return LogValue::Object(
            {{"alloc",
              LogValue::Object(
                  {{"ae", ae}, {"ai", ai}, {"ane", ane}, {"ani", ani}, {"apeak", apeak}})},
             {"free", LogValue::Object({{"de", de}, {"di", di}, {"dne", dne}, {"dni", dni}})},
             {"kcpu", LogValue::Object({{"ke", ke}, {"ki", ki}})},
             {"ucpu", LogValue::Object({{"ue", ue}, {"ui", ui}})},
             {"ntid", ntid}});
    }

    /// All six groups alike, scaled so that no two figures are equal.
    static Figures Alike(int64 exclusive, int64 inclusive) {
        Figures figures;
        figures.ae = static_cast<double>(exclusive);
        figures.ai = static_cast<double>(inclusive);
        figures.ane = exclusive * 2;
        figures.ani = inclusive * 2;
        figures.de = static_cast<double>(exclusive * 3);
        figures.di = static_cast<double>(inclusive * 3);
        figures.dne = exclusive * 4;
        figures.dni = inclusive * 4;
        figures.ke = exclusive * 5;
        figures.ki = inclusive * 5;
        figures.ue = exclusive * 6;
        figures.ui = inclusive * 6;
        return figures;
    }
};

class ResourceFiguresTest : public EndActivityFiguresTest {
protected:
    void SetUp() override {
        EndActivityFiguresTest::SetUp();
        ReportResources(corvala::memory::MemoryTrackingAll);
    }

    /// The lists that a scope sends when it closes, all six figures alike (see `Figures`).
    void Consumed(uint64 id, int64 amount) {
        Send(EventBuilder::ScopePairs(
            id,
            L"memoryAttrs",
            {{L"di", amount * 3}, {L"dni", amount * 4}, {L"ai", amount}, {L"ani", amount * 2}}));
        Send(EventBuilder::ScopePairs(id, L"cpuAttrs", {{L"ki", amount * 5}, {L"ui", amount * 6}}));
    }

    static auto HasFigures(const Figures& figures) {
        return HasActivityField("res", figures.Text());
    }
};

TEST_F(ResourceFiguresTest, AScopeThatConsumedNothingHasZeroes) {
    Open(7, "query");

    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(0, 0)));
}

TEST_F(ResourceFiguresTest, EachNameFeedsItsExclusiveAndItsInclusiveFigure) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"ai", 1000}, {"ani", 10}, {"apeak", 700}, {"di", 400}, {"dni", 4}}));
    Send(EventBuilder::ScopePairs(7, "cpuAttrs", {{"ki", 50}, {"ui", 60}}));
    Close(7);

    Figures expected;
    expected.ae = expected.ai = 1000;
    expected.ane = expected.ani = 10;
    expected.apeak = 700;
    expected.de = expected.di = 400;
    expected.dne = expected.dni = 4;
    expected.ke = expected.ki = 50;
    expected.ue = expected.ui = 60;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, EitherListMayHoldAnyFigure) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(7, "cpuAttrs", {{"ai", 1000}}));
    Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ui", 60}}));
    Close(7);

    Figures expected;
    expected.ae = expected.ai = 1000;
    expected.ue = expected.ui = 60;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, RepeatedFiguresAddUpAndThePeakIsReplaced) {
    Open(7, "query");

    Consumed(7, 10);
    Consumed(7, 5);
    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"ai", 1}, {"apeak", 700}, {"ai", 1}, {"apeak", 30}}));
    Close(7);

    Figures expected = Figures::Alike(15, 15);
    expected.ae = expected.ai = 17;
    expected.apeak = 30;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, ValuesThatAreNoIntegersCountAsZero) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"apeak", 9}, {"ai", 5.0}, {"ani", "5"}, {"di", true}, {"apeak", 7.0}}));
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(0, 0)));
}

TEST_F(ResourceFiguresTest, UnknownNamesAreSkipped) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(
        7, "memoryAttrs", {{"ae", 5}, {"AI", 5}, {"", 5}, {"ai", 7}, {"anything", 5}}));
    Close(7);

    Figures expected;
    expected.ae = expected.ai = 7;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, ANameThatIsNoTextIsALogicError) {
    const std::string asserted =
        "nameType == Metrics::MetricsValue::MV_Utf16String || nameType == "
        "Metrics::MetricsValue::MV_Utf8String";
    Open(7, "query");

    for (const char* const list : {"memoryAttrs", "cpuAttrs"}) {
        for (const Metrics::MetricsValue& name :
             {Metrics::MetricsValue(5), Metrics::MetricsValue(true), Metrics::MetricsValue(5.0)}) {
            EXPECT_THAT(
                ([&] {
                    Send(EventBuilder::ScopePairs(7, list, {{name, 5}}));
                }),
                Throws<LogicException>(testing::Property(&LogicException::GetText, asserted)));
        }
    }

    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(Ends("query"), HasFigures(Figures::Alike(0, 0))));
}

TEST_F(ResourceFiguresTest, TheFiguresBeforeANameThatIsNoTextCountAndThoseAfterItDoNot) {
    Open(7, "query");

    EXPECT_THAT(
        ([&] {
            Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ai", 7}, {5, 1}, {"ai", 100}}));
        }),
        Throws<LogicException>(tarn::test::IsLogicError(
            "src/cpp/main/MetricsMonitor",
            1187,
            "nameType == Metrics::MetricsValue::MV_Utf16String || nameType == "
            "Metrics::MetricsValue::MV_Utf8String",
            0x6D0B23C8)));

    Close(7);
    Figures expected;
    expected.ae = expected.ai = 7;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AChildOnTheSameThreadIsTakenOutOfTheExclusiveFigures) {
    Open(7, "outer");
    Open(8, "inner");
    Consumed(8, 30);
    Close(8);
    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(30, 30)));

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(70, 100)));
}

TEST_F(ResourceFiguresTest, ExclusiveFiguresAreNotClamped) {
    Open(7, "outer");
    Open(8, "inner");
    Consumed(8, 30);
    Close(8);

    Consumed(7, 10);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(-20, 10)));
}

TEST_F(ResourceFiguresTest, AGrandchildIsTakenOutOfItsParentOnly) {
    Open(7, "outer");
    Open(8, "middle");
    Open(9, "inner");
    Consumed(9, 5);
    Close(9);
    Consumed(8, 30);
    Close(8);
    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(25, 30)));

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(70, 100)));
}

TEST_F(ResourceFiguresTest, AChildOnAnotherThreadIsAddedToTheInclusiveFigures) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "elsewhere", {{"tid", 50}});
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    Figures expected = Figures::Alike(100, 130);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, WorkOnOtherThreadsIsPassedOnToAllAbove) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "middle", {{"tid", 40}});
    Open(9, "elsewhere", {{"tid", 50}});
    Consumed(9, 5);
    Close(9);
    Consumed(8, 30);
    Close(8);
    Figures expected = Figures::Alike(30, 35);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));

    Consumed(7, 100);
    Close(7);

    expected = Figures::Alike(70, 105);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AChildElsewherePassesOnWhatWasElsewhereForIt) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "middle", {{"tid", 50}});
    Open(9, "inner", {{"tid", 60}});
    Consumed(9, 5);
    Close(9);
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    Figures expected = Figures::Alike(100, 135);
    expected.ntid = 3;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, TheConsumptionOfATransparentChildStaysWithItsParent) {
    Open(7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(100, 100)));
}

TEST_F(ResourceFiguresTest, OfATransparentChildOnlyTheExclusivePartStays) {
    Open(7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Open(9, "inner");
    Consumed(9, 5);
    Close(9);
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(95, 100)));
}

TEST_F(ResourceFiguresTest, ALoggedTransparentChildIsFoldedLikeAnUnloggedOne) {
    OptTarn::SetShouldLogTransparent(true);
    Open(7, "outer");
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(100, 100)));
}

TEST_F(ResourceFiguresTest, TheConsumptionOfATransparentChildElsewhereIsAddedToTheParents) {
    Open(7, "outer", {{"tid", 40}});
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent().With({{"tid", 50}}));
    Consumed(8, 30);
    Close(8);

    Consumed(7, 100);
    Close(7);

    Figures expected = Figures::Alike(130, 130);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AnUntrackedParentSumsUpItsChildren) {
    Send(EventBuilder::OpenScope(7, "outer").In(rootContext).Untracked());
    for (const uint64 id : {8U, 9U}) {
        Open(id, "inner");
        Consumed(id, 30);
        Close(id);
    }

    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(0, 60)));
}

TEST_F(ResourceFiguresTest, ARequestSumsUpItsChildren) {
    Send(EventBuilder::OpenScope(7, "request").In(rootContext).FromHost());
    Open(8, "work");
    Consumed(8, 30);
    Close(8);

    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("request"), HasFigures(Figures::Alike(0, 30))));
}

TEST_F(ResourceFiguresTest, AnUntrackedParentSumsUpTransparentChildrenInTheSameWay) {
    Send(EventBuilder::OpenScope(7, "outer").In(rootContext).Untracked());
    Send(EventBuilder::OpenScope(8, "pass").In(rootContext).Transparent());
    Consumed(8, 30);
    Close(8);

    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(0, 30)));
}

TEST_F(ResourceFiguresTest, AnUntrackedParentGetsWorkElsewhereAsAnyOtherDoes) {
    Send(EventBuilder::OpenScope(7, "outer").In(rootContext).Untracked().With({{"tid", 40}}));
    Open(8, "elsewhere", {{"tid", 50}});
    Consumed(8, 30);
    Close(8);

    Close(7);

    Figures expected = Figures::Alike(0, 30);
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AScopeNamedRequestWithTheTracingBitMeasuresItself) {
    Open(7, "request");
    Open(8, "work");
    Consumed(8, 30);
    Close(8);
    Consumed(7, 100);

    Close(7);

    EXPECT_THAT(LastEvent(), HasFigures(Figures::Alike(70, 100)));
}

TEST_F(ResourceFiguresTest, ThePeakIsNeverPassedOn) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "inner", {{"tid", 40}});
    Send(EventBuilder::ScopePairs(8, "memoryAttrs", {{"apeak", 700}}));
    Close(8);
    Send(EventBuilder::OpenScope(9, "pass").In(rootContext).Transparent().With({{"tid", 50}}));
    Send(EventBuilder::ScopePairs(9, "memoryAttrs", {{"apeak", 800}}));
    Close(9);

    Close(7);

    Figures expected;
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, FiguresAreNotInheritedFromTheParent) {
    Open(7, "outer");
    Consumed(7, 100);

    Open(8, "inner");
    Close(8);

    EXPECT_THAT(LastEvent(), AllOf(Ends("inner"), HasFigures(Figures::Alike(0, 0))));
}

TEST_F(ResourceFiguresTest, ADroppedChildPassesNoFiguresOn) {
    Open(7, "outer");
    Open(8, "dropped");
    Open(9, "inner");
    Consumed(8, 30);
    Close(8);
    Close(9);
    Close(8);

    Consumed(7, 100);
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), HasFigures(Figures::Alike(100, 100))));
}

TEST_F(ResourceFiguresTest, LargeFiguresAreExact) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ani", 9'000'000'000'000'000'001}}));
    Close(7);

    Figures expected;
    expected.ane = expected.ani = 9'000'000'000'000'000'001;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, FiguresThatOverflowWrap) {
    constexpr int64 largest = std::numeric_limits<int64>::max();
    constexpr int64 least = std::numeric_limits<int64>::min();
    Open(7, "outer", {{"tid", 40}});
    Open(8, "inner", {{"tid", 40}});
    Send(EventBuilder::ScopePairs(8, "memoryAttrs", {{"ani", largest}, {"ani", 1}}));
    Close(8);
    Open(9, "elsewhere", {{"tid", 50}});
    Send(EventBuilder::ScopePairs(9, "memoryAttrs", {{"ani", 5}}));
    Close(9);
    Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ani", largest}}));

    Close(7);

    // Exclusive: 0 less the least number, and the largest once more.
    Figures expected;
    expected.ane = -1;
    expected.ani = least + 4;
    expected.ntid = 2;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

// ---- Threads.

TEST_F(ResourceFiguresTest, TheThreadsOfChildrenAreTheParentsToo) {
    Open(7, "outer", {{"tid", 40}});
    for (const int thread : {50, 60, 40, 50}) {
        Open(8, "inner", {{"tid", thread}});
        Close(8);
    }

    Close(7);

    Figures expected;
    expected.ntid = 3;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, ThreadsOfGrandchildrenArriveWithTheirParents) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "middle", {{"tid", 50}});
    Open(9, "inner", {{"tid", 60}});
    Close(9);
    Close(8);

    Close(7);

    Figures expected;
    expected.ntid = 3;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AScopeWithoutAThreadIdRanOnThreadZero) {
    Open(7, "query");

    Close(7);

    Figures expected;
    expected.ntid = 1;
    EXPECT_THAT(LastEvent(), HasFigures(expected));
}

TEST_F(ResourceFiguresTest, AllThreadsThatAScopeWasGivenCount) {
    Open(7, "query", {{"tid", 40}});
    Send(EventBuilder::ScopeValue(7, "tid", 50));
    Send(EventBuilder::ScopeValue(7, "tid", 60));

    Close(7);

    Figures expected;
    expected.ntid = 3;
    EXPECT_THAT(LastEvent(), AllOf(tarn::test::HasThreadId(60), HasFigures(expected)));
}

TEST_F(ResourceFiguresTest, AnInheritedThreadIsTheChildsOwnThread) {
    Open(7, "outer", {{"tid", 40}});
    Send(EventBuilder::ScopeValue(7, "tid", 50));

    Open(8, "inner");
    Close(8);

    Figures expected;
    expected.ntid = 1;
    EXPECT_THAT(LastEvent(), AllOf(tarn::test::HasThreadId(50), HasFigures(expected)));
}

}  // namespace
