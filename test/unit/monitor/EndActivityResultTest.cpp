#include "EndActivityFiguresTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::EndActivityFiguresTest;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::LacksActivityField;
using tarn::test::LogValue;
using testing::AllOf;

TEST_F(EndActivityFiguresTest, AScopeThatReportsNothingEndsOk) {
    Open(7, "query");

    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("rk", "ok"),
                      HasActivityField("rv", LogValue::Object({})),
                      LacksActivityField("rnerr"),
                      LacksActivityField("rnterm")));
}

TEST_F(EndActivityFiguresTest, AScopeKnowsNothingOfTheOutcomeOfTheOneBefore) {
    Open(7, "query");
    EndsWith(7, "failure");
    Send(EventBuilder::ScopePairs(7, L"resultAttrs", {{"msg", "gone"}}));
    Open(8, "inner");
    EndsWith(8, "error");
    Close(8);
    Open(8, "inner");
    EndsWith(8, "early-termination");
    Close(8);
    Close(7);

    for (const uint64 id : {9U, 10U}) {
        Open(id, "next");
        Close(id);

        EXPECT_THAT(LastEvent(),
                    AllOf(Ends("next"),
                          HasActivityField("rk", "ok"),
                          HasActivityField("rv", LogValue::Object({})),
                          LacksActivityField("rnerr"),
                          LacksActivityField("rnterm")));
    }
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

}  // namespace
