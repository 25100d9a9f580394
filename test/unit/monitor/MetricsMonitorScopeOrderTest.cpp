#include "HostCounters.h"
#include "MetricsMonitorScopeTest.h"

#include "cvlcoreplatform/TLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::HasThreadId;
using tarn::test::HostCounters;
using tarn::test::KnownIds;
using tarn::test::LacksActivityField;
using tarn::test::MetricsMonitorScopeTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;

using Call = HostCounters::Call;

// ---- Closing out of order.

TEST_F(MetricsMonitorScopeTest, ClosingAnOuterScopeFirstIsWarnedAboutAndDropsIt) {
    Open(7, "outer");
    Open(8, "inner");
    HostCounters counters;

    Close(7);

    EXPECT_THAT(
        MessagesAt(TLog::Warn),
        ElementsAre("MetricsMonitor tried to close open scope 7, outer out of sync with context's "
                    "open scopes."));
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 2U);
    EXPECT_THAT(counters.calls, IsEmpty());
    EXPECT_THAT(*events, ElementsAre(Begins("outer"), Begins("inner")));
}

TEST_F(MetricsMonitorScopeTest, TheInnerScopeStillClosesAfterTheOuterWasDropped) {
    Open(7, "outer");
    Open(8, "inner");
    Close(7);

    Close(8);

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    EXPECT_THAT(LastEvent(), AllOf(Ends("inner"), HasActivityField("sponsor", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorScopeTest, ADroppedScopePassesNothingToItsSponsor) {
    Open(7, "outer");
    Open(8, "middle");
    Open(9, "inner");
    Send(EventBuilder::ScopePairs(8, "resultAttrs", {{"rk", "exception"}}));

    Close(8);
    Close(9);
    Close(8);
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("outer"), HasActivityField("rk", "ok"), LacksActivityField("rnerr")));
}

TEST_F(MetricsMonitorScopeTest, ADroppedIdOnTopIsTakenOffWithoutAnEvent) {
    Open(7, "outer");
    Open(8, "inner");
    Close(7);
    Close(8);
    HostCounters counters;
    Log().Clear();

    Close(7);

    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 0U);
    EXPECT_THAT(counters.calls, ElementsAre(Call{"scopesClosed", 1, 1}));
    EXPECT_THAT(Log().Messages(), IsEmpty());
    EXPECT_THAT(LastEvent(), Ends("inner"));
    Open(9, "next");
    EXPECT_THAT(LastEvent(),
                AllOf(Begins("next"), HasActivityField("depth", 0), LacksActivityField("root")));
}

TEST_F(MetricsMonitorScopeTest, ADroppedIdOnTopIsTakenForWhatItsCloseEventSays) {
    struct Row {
        const char* openedAs;
        const char* closedAs;
        int depthOfNext;
    };

    // Only a close that is a tracing one by itself takes the id off the tracing scopes too.
    for (const Row& row :
         {Row{"request", "request", 0}, Row{"request", "hosts", 1}, Row{"hosts", "hosts", 0}}) {
        OpenContext(2);
        Send(EventBuilder::OpenScope(7, row.openedAs).In(2).FromHost());
        OpenIn(2, 8, "inner");
        Send(EventBuilder::CloseScope(7, row.openedAs).In(2).FromHost());
        CloseIn(2, 8);

        Send(EventBuilder::CloseScope(7, row.closedAs).In(2).FromHost());
        EXPECT_EQ(monitor->GetNumberOpenScopesForContext(2), 0U);
        OpenIn(2, 9, "next");

        EXPECT_THAT(LastEvent(), AllOf(Begins("next"), HasActivityField("depth", row.depthOfNext)))
            << row.openedAs << ", " << row.closedAs;
        CloseIn(2, 9);
        Send(EventBuilder::CloseContext(2));
    }
}

TEST_F(MetricsMonitorScopeTest, DroppingTheSameScopeTwiceIsSilentTheSecondTime) {
    Open(7, "outer");
    Open(8, "inner");
    Close(7);
    Log().Clear();

    Close(7);

    EXPECT_THAT(Log().Messages(), IsEmpty());
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 2U);
}

TEST_F(MetricsMonitorScopeTest, AScopeAboveADroppedOneStartsFromTheInnermostThatIsLeft) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "middle", {{"tid", 50}});
    Open(9, "inner", {{"tid", 60}});
    Close(8);
    Close(9);

    Open(10, "next");

    EXPECT_THAT(LastEvent(),
                AllOf(Begins("next"),
                      HasActivityField("depth", 1),
                      HasActivityField("sponsor", KnownIds::Text(1)),
                      HasActivityField("root", KnownIds::Text(1)),
                      HasThreadId(40)));
}

TEST_F(MetricsMonitorScopeTest, AScopeAboveDroppedOnesAloneStartsFromTheContextsStart) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "inner");
    Close(7);
    Close(8);

    Open(9, "next");

    // The dropped id still counts as an open tracing scope: no new request, and nobody to name.
    EXPECT_THAT(LastEvent(),
                AllOf(Begins("next"),
                      HasActivityField("depth", 1),
                      HasActivityField("sponsor", "00000000-0000-0000-0000-000000000000"),
                      HasActivityField("root", "00000000-0000-0000-0000-000000000000"),
                      HasThreadId(0)));
}

TEST_F(MetricsMonitorScopeTest, ADroppedIdSponsorsTheScopesAboveItAgainOnceItIsReopened) {
    Open(7, "outer");
    Open(8, "middle");
    Open(9, "inner");
    Close(8);
    Close(9);
    Open(10, "next");
    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", KnownIds::Text(1)));

    OpenContext(2);
    OpenIn(2, 8, "elsewhere");
    Close(10);

    EXPECT_THAT(LastEvent(), AllOf(Ends("next"), HasActivityField("sponsor", KnownIds::Text(5))));
}

TEST_F(MetricsMonitorScopeTest, ADroppedIdKeepsScopesOfTheHostOut) {
    Open(7, "outer");
    Open(8, "inner");
    Close(7);
    Close(8);

    OpenHosts(9, "hosts");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(MetricsMonitorScopeTest, AChildContextOfADroppedScopeStartsFromTheInnermostThatIsLeft) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "middle", {{"tid", 50}});
    Open(9, "inner", {{"tid", 60}});
    Close(8);
    Close(9);

    OpenContext(2, rootContext);
    OpenIn(2, 10, "child");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 1),
                      HasActivityField("sponsor", KnownIds::Text(1)),
                      HasThreadId(40)));
}

TEST_F(MetricsMonitorScopeTest, ADroppedScopeTakesNoAttributesAnyMore) {
    Open(7, "outer");
    Open(8, "inner");
    Close(7);

    EXPECT_NO_THROW(Send(EventBuilder::ScopeValue(7, "rows", 12)));
    EXPECT_NO_THROW(Send(EventBuilder::ScopePairs(7, "memoryAttrs", {{"ai", 12}})));
    EXPECT_NO_THROW(Send(EventBuilder::Supplement(7, {{"step", 1}})));

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
}

TEST_F(MetricsMonitorScopeTest, ClosingInAContextThatIsNotTheScopesOwnDropsIt) {
    OpenContext(2);
    Open(7, "query");

    CloseIn(2, 7);

    EXPECT_EQ(MessagesAt(TLog::Warn).size(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    EXPECT_THAT(*events, ElementsAre(Begins("query")));
}

TEST_F(MetricsMonitorScopeTest, ClosingInAContextThatIsUnknownOrNotOpenIsIgnored) {
    Open(7, "query");
    Send(EventBuilder::CreateContext(2));

    CloseIn(99, 7);
    CloseIn(2, 7);

    EXPECT_THAT(MessagesAt(TLog::Warn), IsEmpty());
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
}

TEST_F(MetricsMonitorScopeTest, ClosingAnUnknownScopeIsIgnored) {
    HostCounters counters;
    Open(7, "query");

    Close(99);

    EXPECT_THAT(MessagesAt(TLog::Warn), IsEmpty());
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(counters.scopesClosed, 0);
}

TEST_F(MetricsMonitorScopeTest, ClosingAScopeTwiceIsIgnoredTheSecondTime) {
    HostCounters counters;
    Open(7, "query");
    Close(7);

    Close(7);

    EXPECT_EQ(counters.scopesClosed, 1);
    EXPECT_THAT(*events, ElementsAre(Begins("query"), Ends("query")));
}

// ---- Opening what is open already.

TEST_F(MetricsMonitorScopeTest, AnIdThatOpensTwiceIsCountedAndPushedTwiceButKeptOnce) {
    HostCounters counters;
    Open(7, "query");

    Open(7, "query");

    EXPECT_EQ(counters.scopesOpened, 2);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 2U);
    EXPECT_THAT(*events,
                ElementsAre(Begins("query"),
                            AllOf(Begins("query"),
                                  HasActivityField("id", KnownIds::Text(2)),
                                  HasActivityField("depth", 1),
                                  HasActivityField("root", KnownIds::Text(1)),
                                  LacksActivityField("sponsor"))));
}

TEST_F(MetricsMonitorScopeTest, AnIdThatOpenedTwiceEndsOnceAndIsThenTakenOff) {
    HostCounters counters;
    Open(7, "query");
    Open(7, "query");

    Close(7);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    Close(7);

    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 0U);
    EXPECT_EQ(counters.scopesClosed, 2);
    EXPECT_THAT(*events, ElementsAre(Begins("query"), Begins("query"), Ends("query")));
}

TEST_F(MetricsMonitorScopeTest, AReopenedIdStartsFromTheRecordThatItReplaces) {
    Open(7, "query", {{"tid", 40}});

    Open(7, "again");

    EXPECT_THAT(LastEvent(), AllOf(Begins("again"), HasThreadId(40)));
}

TEST_F(MetricsMonitorScopeTest, AnIdMayReopenInAnotherContext) {
    OpenContext(2);
    Open(7, "query");

    OpenIn(2, 7, "elsewhere");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(2), 1U);
    Close(7);
    EXPECT_THAT(LastEvent(), Ends("elsewhere"));
}

}  // namespace
