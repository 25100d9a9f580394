#include "HostCounters.h"
#include "MonitorRecords.h"
#include "MonitorTest.h"
#include "ScopeTree.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::DrawScopeTree;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::ForegroundPairs;
using tarn::test::HasActivityField;
using tarn::test::HasAttribute;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasRequest;
using tarn::test::HasThreadId;
using tarn::test::HostCounters;
using tarn::test::KnownIds;
using tarn::test::LacksActivityField;
using tarn::test::LacksAttribute;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

using Call = HostCounters::Call;

class MetricsMonitorScopeTest : public tarn::test::MonitorTest {
protected:
    void OpenIn(uint64 contextId,
                uint64 id,
                const std::string& name,
                const Metrics::NameValueList& pairs = {}) {
        Send(EventBuilder::OpenScope(id, name).In(contextId).With(pairs));
    }

    void CloseIn(uint64 contextId, uint64 id) { Send(EventBuilder::CloseScope(id).In(contextId)); }

    void OpenTransparent(uint64 id, const std::string& name) {
        Send(EventBuilder::OpenScope(id, name).In(rootContext).Transparent());
    }

    void OpenHosts(uint64 id, const std::string& name) {
        Send(EventBuilder::OpenScope(id, name).In(rootContext).FromHost());
    }

    void CloseHosts(uint64 id, const std::string& name) {
        Send(EventBuilder::CloseScope(id, name).In(rootContext).FromHost());
    }

    std::vector<std::string> MessagesAt(TLog::Severity severity) {
        std::vector<std::string> texts;
        for (const auto& [messageSeverity, text] : Log().Messages()) {
            if (messageSeverity == severity) {
                texts.push_back(text);
            }
        }
        return texts;
    }
};

// ---- How ids are kept.

// Expected values computed apart from the library.
TEST(IdHashTest, ItIsFnv1aOverTheBytesOfAnIdFromTheLowest) {
    EXPECT_EQ(tarn::IdHash()(0), 0xA8C7F832281A39C5U);
    EXPECT_EQ(tarn::IdHash()(1), 0x89CD31291D2AEFA4U);
    EXPECT_EQ(tarn::IdHash()(0x0807060504030201U), 0x7EB5108B368A78EDU);
}

// ---- What is tracked.

TEST_F(MetricsMonitorScopeTest, AScopeInAnUnknownContextIsNotTracked) {
    HostCounters counters;

    OpenIn(99, 7, "query");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_THAT(counters.calls, IsEmpty());
    EXPECT_EQ(*idsMade, 0);
}

TEST_F(MetricsMonitorScopeTest, TheFirstScopeOfTheHostIsTrackedWithoutABeginEvent) {
    HostCounters counters;

    OpenHosts(7, "hosts");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    EXPECT_THAT(counters.calls, ElementsAre(Call{"scopesOpened", 1, 1}));
    EXPECT_THAT(*events, IsEmpty());
    EXPECT_EQ(*idsMade, 0);
}

TEST_F(MetricsMonitorScopeTest, AScopeOfTheHostOnTopOfAnotherIsIgnored) {
    OpenHosts(7, "hosts");
    HostCounters counters;

    OpenHosts(8, "hosts-inner");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_THAT(counters.calls, IsEmpty());
}

TEST_F(MetricsMonitorScopeTest, AScopeOfTheHostInATracingScopeIsIgnored) {
    Open(7, "query");

    OpenHosts(8, "hosts");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    CloseHosts(8, "hosts");
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
}

TEST_F(MetricsMonitorScopeTest, ATracingScopeInAScopeOfTheHostIsTrackedAndStartsTheRequest) {
    OpenHosts(7, "hosts");

    Open(8, "query");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 2U);
    EXPECT_THAT(*events,
                ElementsAre(AllOf(Begins("query"),
                                  HasActivityField("depth", 0),
                                  HasActivityField("id", KnownIds::Text(1)),
                                  LacksActivityField("root"),
                                  LacksActivityField("sponsor"))));
}

TEST_F(MetricsMonitorScopeTest, ClosingAScopeOfTheHostIsCountedAndHasNoEndEvent) {
    OpenHosts(7, "hosts");
    HostCounters counters;

    CloseHosts(7, "hosts");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 0U);
    EXPECT_THAT(counters.calls, ElementsAre(Call{"scopesClosed", 1, 1}));
    EXPECT_THAT(*events, IsEmpty());
}

TEST_F(MetricsMonitorScopeTest, TheOpenAndTheClosedCounterMoveWithEachTrackedScope) {
    HostCounters counters;

    Open(7, "outer");
    Open(8, "inner");
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 2U);
    Close(8);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    Close(7);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);

    EXPECT_THAT(counters.calls,
                ElementsAre(Call{"scopesOpened", 1, 1},
                            Call{"requestContextsCreated", 1, 1},
                            Call{"scopesOpened", 1, 2},
                            Call{"scopesClosed", 1, 1},
                            Call{"scopesClosed", 1, 2}));
}

TEST_F(MetricsMonitorScopeTest, EachTracingScopeTakesOneId) {
    Open(7, "outer");
    OpenTransparent(8, "pass");
    Send(EventBuilder::OpenScope(9, "untracked").In(rootContext).Untracked());
    Send(EventBuilder::OpenScope(10, "request").In(rootContext).FromHost());

    EXPECT_EQ(*idsMade, 4);
    Close(10);
    Close(9);
    Close(8);
    Close(7);
    EXPECT_EQ(*idsMade, 4);
}

// ---- Beginnings and ends.

TEST_F(MetricsMonitorScopeTest, ATracingScopeHasOneBeginAndOneEndEvent) {
    Open(7, "query");
    EXPECT_THAT(*events, ElementsAre(Begins("query")));

    Close(7);

    EXPECT_THAT(*events, ElementsAre(Begins("query"), Ends("query")));
}

TEST_F(MetricsMonitorScopeTest, TheAttributesOfTheBeginningAreNotRepeatedAtTheEnd) {
    Open(7, "query", {{"table", "orders"}});

    Send(EventBuilder::ScopeValue(7, "rows", 12));
    Close(7);

    EXPECT_THAT(*events,
                ElementsAre(AllOf(HasExactlyBodyFields({"table"}), HasBodyField("table", "orders")),
                            AllOf(HasExactlyBodyFields({"rows"}), HasBodyField("rows", 12))));
}

TEST_F(MetricsMonitorScopeTest, NestedScopesFormATree) {
    Open(7, "load");
    Open(8, "parse");
    Open(9, "header");
    Close(9);
    Close(8);
    Open(10, "store");
    Close(10);
    Close(7);

    EXPECT_EQ(DrawScopeTree(*events),
              "load\n"
              "  parse\n"
              "    header\n"
              "  store\n");
}

TEST_F(MetricsMonitorScopeTest, DepthsCountFromTheRoot) {
    Open(7, "outer");
    Open(8, "middle");
    Open(9, "inner");

    EXPECT_THAT(*events,
                ElementsAre(HasActivityField("depth", 0),
                            HasActivityField("depth", 1),
                            HasActivityField("depth", 2)));
}

TEST_F(MetricsMonitorScopeTest, ARequestScopeInsideAnotherRequestCountsFromItselfAndReturns) {
    Open(7, "outer");
    Open(8, "middle");
    Send(EventBuilder::OpenScope(9, "request").In(rootContext).FromHost());
    Open(10, "work");

    EXPECT_THAT(LastEvent(),
                AllOf(Begins("work"),
                      HasActivityField("depth", 1),
                      HasActivityField("sponsor", KnownIds::Text(3)),
                      HasActivityField("root", KnownIds::Text(3))));
    Close(10);
    CloseHosts(9, "request");
    Open(11, "after");
    EXPECT_THAT(LastEvent(),
                AllOf(Begins("after"),
                      HasActivityField("depth", 2),
                      HasActivityField("sponsor", KnownIds::Text(2)),
                      HasActivityField("root", KnownIds::Text(1))));
}

// The service depth shows among foreground contexts only, so they are enabled before the ends.
TEST_F(MetricsMonitorScopeTest, ServiceDepthsAreCountedLikeTraceDepths) {
    Open(7, "outer");
    Open(8, "middle");
    OpenTransparent(9, "pass");
    Open(10, "inner");
    OpenHosts(11, "request");
    Open(12, "work");
    EnableForegroundContexts();

    for (const uint64 id : {12U, 11U, 10U, 9U, 8U, 7U}) {
        Close(id);
    }

    EXPECT_THAT(std::vector<TLog::Event>(events->end() - 5, events->end()),
                ElementsAre(AllOf(Ends("work"), HasBodyField("sDepth", 1)),
                            AllOf(Ends("request"), HasBodyField("sDepth", 0)),
                            AllOf(Ends("inner"), HasBodyField("sDepth", 2)),
                            AllOf(Ends("middle"), HasBodyField("sDepth", 1)),
                            AllOf(Ends("outer"), HasBodyField("sDepth", 0))));
}

TEST_F(MetricsMonitorScopeTest, TheEventsOfAnUntrackedScopeAreThoseOfANormalOne) {
    Open(7, "outer");

    Send(EventBuilder::OpenScope(8, "import").In(rootContext).Untracked());
    Close(8);

    EXPECT_THAT(*events,
                ElementsAre(Begins("outer"),
                            AllOf(Begins("import"), HasActivityField("depth", 1)),
                            AllOf(Ends("import"), HasActivityField("depth", 1))));
}

TEST_F(MetricsMonitorScopeTest, ScopesInDifferentContextsAreDifferentTrees) {
    OpenContext(2);
    Open(7, "first");
    OpenIn(2, 8, "second");
    Open(9, "first-inner");
    OpenIn(2, 10, "second-inner");
    CloseIn(2, 10);
    CloseIn(2, 8);
    Close(9);
    Close(7);

    EXPECT_EQ(DrawScopeTree(*events),
              "first\n"
              "  first-inner\n"
              "second\n"
              "  second-inner\n");
}

// ---- Whether a scope is tracing is settled when it opens.

TEST_F(MetricsMonitorScopeTest, AScopeThatOpenedWithTheTracingBitEndsAsOneWithoutIt) {
    Open(7, "query");

    CloseHosts(7, "query");

    EXPECT_THAT(*events, ElementsAre(Begins("query"), Ends("query")));
    Open(8, "next");
    EXPECT_THAT(LastEvent(), HasActivityField("depth", 0));
}

TEST_F(MetricsMonitorScopeTest, AScopeThatOpenedWithoutTheTracingBitEndsAsOneWithIt) {
    OpenHosts(7, "hosts");

    Close(7);

    EXPECT_THAT(*events, IsEmpty());
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(MetricsMonitorScopeTest, ARequestScopeEndsEvenIfForegroundContextsAreEnabledMeanwhile) {
    OpenHosts(7, "request");
    EnableForegroundContexts();

    CloseHosts(7, "request");

    EXPECT_THAT(*events, ElementsAre(Begins("request"), Ends("request")));
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(MetricsMonitorScopeTest, TheNameOfTheCloseEventDoesNotMatter) {
    Open(7, "query");

    Send(EventBuilder::CloseScope(7, "something else").In(rootContext));

    EXPECT_THAT(LastEvent(), Ends("query"));
}

// ---- Transparent scopes.

TEST_F(MetricsMonitorScopeTest, ATransparentScopeIsCountedButHasNoEvents) {
    HostCounters counters;

    OpenTransparent(7, "pass");
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    Close(7);

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(counters.scopesOpened, 1);
    EXPECT_EQ(counters.scopesClosed, 1);
    EXPECT_THAT(*events, IsEmpty());
}

TEST_F(MetricsMonitorScopeTest, ChildrenOfATransparentScopeHangUnderItsSponsor) {
    Open(7, "outer");
    OpenTransparent(8, "pass");
    OpenTransparent(9, "pass-on");
    Open(10, "inner");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 1),
                      HasActivityField("sponsor", KnownIds::Text(1)),
                      HasActivityField("root", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorScopeTest, LoggedTransparentScopesAreScopesLikeAllOthers) {
    OptTarn::SetShouldLogTransparent(true);
    Open(7, "outer");
    OpenTransparent(8, "pass");
    Open(9, "inner");
    Close(9);
    Close(8);
    Close(7);

    EXPECT_EQ(DrawScopeTree(*events),
              "outer\n"
              "  pass\n"
              "    inner\n");
    EXPECT_THAT((*events)[1], HasActivityField("depth", 1));
    EXPECT_THAT((*events)[2], HasActivityField("depth", 2));
}

TEST_F(MetricsMonitorScopeTest, ATransparentScopeMayStartARequest) {
    HostCounters counters;

    OpenTransparent(7, "pass");
    Open(8, "inner");

    EXPECT_EQ(counters.requestContextsCreated, 1);
    EXPECT_THAT(*events,
                ElementsAre(AllOf(Begins("inner"),
                                  HasActivityField("depth", 1),
                                  HasActivityField("root", KnownIds::Text(1)),
                                  HasActivityField("sponsor", KnownIds::Text(1)))));
}

TEST_F(MetricsMonitorScopeTest, TheOptionIsReadAnewAtTheEnd) {
    Send(EventBuilder::OpenScope(7, "pass")
             .In(rootContext)
             .Transparent()
             .With({{"table", "orders"}}));

    OptTarn::SetShouldLogTransparent(true);
    Close(7);

    // Nothing was logged at the beginning, so the attributes are still there.
    EXPECT_THAT(*events, ElementsAre(AllOf(Ends("pass"), HasBodyField("table", "orders"))));
}

TEST_F(MetricsMonitorScopeTest, ATransparentScopeThatBeganMayEndUnlogged) {
    OptTarn::SetShouldLogTransparent(true);
    OpenTransparent(7, "pass");

    OptTarn::SetShouldLogTransparent(false);
    Close(7);

    EXPECT_THAT(*events, ElementsAre(Begins("pass")));
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
}

// ---- Sponsors.

TEST_F(MetricsMonitorScopeTest, ARootIsItsOwnSponsorAndSaysNothingOfIt) {
    Open(7, "query");
    Close(7);

    for (const TLog::Event& event : *events) {
        EXPECT_THAT(event, AllOf(LacksActivityField("sponsor"), LacksActivityField("root")));
    }
}

TEST_F(MetricsMonitorScopeTest, TheSponsorIsTheInnermostOpenTracingScopeOfTheContext) {
    Open(7, "outer");
    Open(8, "first");
    Close(8);
    Open(9, "second");
    Open(10, "inner");

    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", KnownIds::Text(3)));
}

TEST_F(MetricsMonitorScopeTest, WhenTheSponsorHasClosedTheNextOneOutwardsSteps) {
    Open(7, "outer");
    Open(8, "middle");
    OpenContext(2, rootContext);
    Close(8);

    OpenIn(2, 9, "child");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("sponsor", KnownIds::Text(1)),
                      HasActivityField("root", KnownIds::Text(1)),
                      HasActivityField("depth", 2)));
}

TEST_F(MetricsMonitorScopeTest, WhenAllSponsorsHaveClosedTheRequestStandsIn) {
    Open(7, "outer");
    Open(8, "middle");
    OpenContext(2, rootContext);
    Close(8);
    Close(7);

    OpenIn(2, 9, "child");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("sponsor", KnownIds::Text(1)),
                      HasActivityField("root", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorScopeTest, AnEndNamesTheSponsorThatIsOpenThen) {
    Open(7, "outer");
    Open(8, "middle");
    OpenContext(2, rootContext);
    OpenIn(2, 9, "child");
    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", KnownIds::Text(2)));
    Close(8);

    CloseIn(2, 9);

    EXPECT_THAT(LastEvent(), AllOf(Ends("child"), HasActivityField("sponsor", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorScopeTest, AServerSaysAtTraceSeverityThatAScopeHasNoOpenSponsors) {
    OptTarn::SetIsServer(true);
    TLog::SetThreshold(TLog::Trace);
    Open(7, "outer");
    OpenContext(2, rootContext);
    Close(7);
    Log().Clear();

    OpenIn(2, 8, "child");
    EXPECT_THAT(
        Log().Messages(),
        ElementsAre(Pair(TLog::Trace, "Scope " + KnownIds::Text(2) + " has no open sponsors.")));
    CloseIn(2, 8);

    // The figures of the end and the end event look for a sponsor of their own.
    EXPECT_EQ(Log().Messages().size(), 3U);
}

TEST_F(MetricsMonitorScopeTest, AProcessThatIsNoServerIsSilentAboutMissingSponsors) {
    TLog::SetThreshold(TLog::Trace);
    Open(7, "outer");
    OpenContext(2, rootContext);
    Close(7);
    Log().Clear();

    OpenIn(2, 8, "child");
    CloseIn(2, 8);

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

TEST_F(MetricsMonitorScopeTest, ATransparentSponsorAloneIsNoneAtAllUnlessItIsLogged) {
    OptTarn::SetIsServer(true);
    TLog::SetThreshold(TLog::Trace);
    OpenTransparent(7, "pass");
    Log().Clear();

    Open(8, "inner");
    EXPECT_EQ(Log().Messages().size(), 1U);
    Close(8);
    Log().Clear();
    OptTarn::SetShouldLogTransparent(true);
    Open(9, "inner");

    EXPECT_THAT(Log().Messages(), IsEmpty());
}

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

// ---- What a scope takes over from its parent.

TEST_F(MetricsMonitorScopeTest, TheThreadIsInheritedUntilAScopeHasItsOwn) {
    Open(7, "outer", {{"tid", 40}});
    EXPECT_THAT(LastEvent(), HasThreadId(40));

    Open(8, "inherits");
    EXPECT_THAT(LastEvent(), HasThreadId(40));

    Open(9, "own", {{"tid", 50}});
    EXPECT_THAT(LastEvent(), HasThreadId(50));
    Open(10, "inherits-own");
    EXPECT_THAT(LastEvent(), HasThreadId(50));
}

TEST_F(MetricsMonitorScopeTest, TheThreadOfTheContextCountsMoreThanTheOpeningPair) {
    Send(EventBuilder::ContextValue(rootContext, "tid", 60));
    Send(EventBuilder::ContextValue(rootContext, "tid", 70));

    Open(7, "query", {{"tid", 40}});

    EXPECT_THAT(LastEvent(), HasThreadId(70));
}

TEST_F(MetricsMonitorScopeTest, TheResultOfAParentIsNotInherited) {
    Open(7, "outer");
    Send(EventBuilder::ScopePairs(7, "resultAttrs", {{"rk", "exception"}, {"msg", "broken"}}));

    Open(8, "inner");
    Close(8);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("inner"),
                      HasActivityField("rk", "ok"),
                      HasActivityField("rv", tarn::test::LogValue::Object({}))));
}

TEST_F(MetricsMonitorScopeTest, AttributesAndSupplementsOfAParentAreNotInherited) {
    Open(7, "outer");
    Send(EventBuilder::ScopeValue(7, "rows", 12));
    Send(EventBuilder::Supplement(7, {{"step", 1}}));

    Open(8, "inner");
    Close(8);

    EXPECT_THAT(*events,
                ElementsAre(Begins("outer"), HasExactlyBodyFields({}), HasExactlyBodyFields({})));
}

// ---- Foreground contexts.

TEST_F(MetricsMonitorScopeTest, ForegroundPairsGiveTheIdentityAndAreNoAttributes) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.traceDepth = 1, .serviceDepth = 4, .root = "R", .own = "A"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "A"),
                      HasActivityField("root", "R"),
                      HasActivityField("sponsor", "R"),
                      HasActivityField("depth", 1),
                      HasExactlyBodyFields({"sDepth"}),
                      HasBodyField("sDepth", 4)));
}

TEST_F(MetricsMonitorScopeTest, AtDepthZeroTheRootIsTheIdentity) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.traceDepth = 0, .root = "R", .own = "A"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "R"),
                      LacksActivityField("root"),
                      LacksActivityField("sponsor")));
}

TEST_F(MetricsMonitorScopeTest, FromDepthTwoOnTheSponsorIsTheOneThatIsOpen) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .root = "R", .own = "R"});
    Open(8, "middle", ForegroundPairs{.traceDepth = 1, .root = "R", .own = "M"});

    Open(9, "inner", ForegroundPairs{.traceDepth = 2, .root = "R", .own = "I", .sponsor = "M2"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "I"),
                      HasActivityField("root", "R"),
                      HasActivityField("sponsor", "M")));
    Open(10, "innermost", ForegroundPairs{.traceDepth = 7, .root = "R", .own = "J"});
    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 7), HasActivityField("sponsor", "I")));
}

TEST_F(MetricsMonitorScopeTest, AForegroundSponsorIsNotTransparentUnlessLogged) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 1, .root = "R", .own = "O"});
    Send(EventBuilder::OpenScope(8, "pass")
             .In(rootContext)
             .Transparent()
             .With(ForegroundPairs{.traceDepth = 1, .root = "R", .own = "P"}));

    Open(9, "inner", ForegroundPairs{.traceDepth = 2, .root = "R", .own = "I"});
    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", "O"));
    OptTarn::SetShouldLogTransparent(true);
    Close(9);

    EXPECT_THAT(LastEvent(), HasActivityField("sponsor", "P"));
}

TEST_F(MetricsMonitorScopeTest, WithoutAnOpenForegroundSponsorTheRootStandsIn) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 1, .root = "R", .own = "O"});
    OpenContext(2, rootContext);
    Close(7);

    OpenIn(2, 8, "child", ForegroundPairs{.traceDepth = 2, .root = "R2", .own = "C"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "C"),
                      HasActivityField("root", "R2"),
                      HasActivityField("sponsor", "R2")));
}

TEST_F(MetricsMonitorScopeTest, OfDoubledForegroundPairsTheLaterCount) {
    EnableForegroundContexts();
    Metrics::NameValueList pairs = ForegroundPairs{.traceDepth = 1, .root = "R", .own = "A"};
    const Metrics::NameValueList later = ForegroundPairs{.traceDepth = 2, .root = "S", .own = "B"};
    pairs.insert(pairs.end(), later.begin(), later.end());

    Open(7, "query", pairs);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 2),
                      HasActivityField("id", "B"),
                      HasActivityField("root", "S")));
}

TEST_F(MetricsMonitorScopeTest, ForegroundIdsThatAreNoTextReadAsTextAllTheSame) {
    EnableForegroundContexts();

    Open(7, "query", {{"traceDepth", 1}, {"__root__", 5}, {"activityId", true}, {"rid", 1.5}});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "true"),
                      HasActivityField("root", "5"),
                      HasActivityField("sponsor", "5"),
                      HasRequest("1.5")));
}

TEST_F(MetricsMonitorScopeTest, ForegroundDepthsThatAreNoIntegersReadAsZero) {
    EnableForegroundContexts();

    Open(7, "query", {{"traceDepth", "3"}, {"sDepth", 4.0}});

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 0), HasBodyField("sDepth", 0)));
}

TEST_F(MetricsMonitorScopeTest, OneMoreThanTheLargestDepthWraps) {
    constexpr int largest = std::numeric_limits<int>::max();
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = largest, .serviceDepth = largest});
    OptTarn::SetIsForegroundThreadContextEnabled(false);

    Open(8, "inner");
    EXPECT_THAT(LastEvent(), HasActivityField("depth", std::numeric_limits<int>::min()));
    EnableForegroundContexts();
    Close(8);

    EXPECT_THAT(LastEvent(), HasBodyField("sDepth", std::numeric_limits<int>::min()));
}

TEST_F(MetricsMonitorScopeTest, ForegroundPairsMayBeNarrowAndStandBetweenAttributes) {
    EnableForegroundContexts();

    Open(7,
         "query",
         {{"table", "orders"},
          {"traceDepth", 1},
          {"rows", 12},
          {"__root__", "R"},
          {"activityId", "A"},
          {"depth", 5}});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", "A"),
                      HasActivityField("root", "R"),
                      HasActivityField("depth", 1),
                      HasExactlyBodyFields({"depth", "rows", "sDepth", "table"}),
                      HasBodyField("depth", 5)));
}

TEST_F(MetricsMonitorScopeTest, OtherOpeningPairsKeepTheirMeaningWithForegroundContexts) {
    EnableForegroundContexts();

    Open(7, "qp-run", {{"tid", 40}, {"cmd-name", "run"}, {"query", "select"}, {"rows", 12}});

    EXPECT_THAT(LastEvent(),
                AllOf(HasThreadId(40), HasExactlyBodyFields({"name", "rows", "sDepth"})));
}

TEST_F(MetricsMonitorScopeTest, WithoutForegroundPairsDepthsAreInheritedAndNotCounted) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 3, .serviceDepth = 5, .own = "O"});

    Open(8, "inner");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 3),
                      HasBodyField("sDepth", 5),
                      HasActivityField("id", "-"),
                      HasActivityField("root", "-"),
                      HasActivityField("sponsor", "O")));
}

TEST_F(MetricsMonitorScopeTest, WithoutForegroundPairsARootHasThePlaceholderForAnId) {
    EnableForegroundContexts();

    Open(7, "query");

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 0), HasActivityField("id", "-")));
}

TEST_F(MetricsMonitorScopeTest, AForegroundDepthIsNotResetWhereARequestStarts) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.traceDepth = 4, .serviceDepth = 6});

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 4), HasBodyField("sDepth", 6)));
}

TEST_F(MetricsMonitorScopeTest, WithoutForegroundContextsTheSixPairsAreOrdinaryAttributes) {
    Open(7, "query", ForegroundPairs{.traceDepth = 4, .serviceDepth = 6, .request = "REQ"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 0),
                      HasActivityField("id", KnownIds::Text(1)),
                      HasExactlyBodyFields(
                          {"__root__", "activityId", "rid", "sDepth", "sponsorId", "traceDepth"}),
                      HasBodyField("rid", "REQ"),
                      HasBodyField("traceDepth", 4)));
}

// ---- The request's id among foreground contexts.

TEST_F(MetricsMonitorScopeTest, ARootsRequestIdComesFromItsPair) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.request = "REQ"});

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

TEST_F(MetricsMonitorScopeTest, TheRequestOfTheOpenSponsorCountsMoreThanTheOwn) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});

    Open(8, "inner", ForegroundPairs{.traceDepth = 1, .request = "OTHER"});

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

TEST_F(MetricsMonitorScopeTest, TheRequestOfTheSponsorIsKeptWhenTheSponsorHasClosed) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});
    OpenContext(2, rootContext);
    OpenIn(2, 8, "child", ForegroundPairs{.traceDepth = 1, .request = "OTHER"});
    Close(7);

    CloseIn(2, 8);

    EXPECT_THAT(LastEvent(), AllOf(Ends("child"), HasRequest("REQ")));
}

TEST_F(MetricsMonitorScopeTest, WithoutAnOpenSponsorTheOwnRequestCounts) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});
    OpenContext(2, rootContext);
    Close(7);

    OpenIn(2, 8, "child", ForegroundPairs{.traceDepth = 1, .request = "OTHER"});
    EXPECT_THAT(LastEvent(), HasRequest("OTHER"));
}

TEST_F(MetricsMonitorScopeTest, ThePlaceholderDoesNotReplaceAnInheritedRequest) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});
    OpenContext(2, rootContext);
    Close(7);

    OpenIn(2, 8, "child", ForegroundPairs{.traceDepth = 1, .request = "-"});

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

TEST_F(MetricsMonitorScopeTest, ARequestIsInheritedWhenForegroundContextsAreDisabledMeanwhile) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0, .request = "REQ"});
    OptTarn::SetIsForegroundThreadContextEnabled(false);

    Open(8, "inner");

    EXPECT_THAT(LastEvent(), HasRequest("REQ"));
}

// ---- After the close.

TEST_F(MetricsMonitorScopeTest, OnlyTheIntegerActionZeroTakesALayerOff) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));

    for (const Metrics::MetricsValue& action : {Metrics::MetricsValue(1),
                                                Metrics::MetricsValue(-1),
                                                Metrics::MetricsValue(0x100000001),
                                                Metrics::MetricsValue(false),
                                                Metrics::MetricsValue(0.0),
                                                Metrics::MetricsValue(""),
                                                Metrics::MetricsValue(L"0")}) {
        Send(EventBuilder::PostClose(rootContext, action));
    }
    Metrics::MetricsValue unknownKind(0);
    unknownKind.type = 9;
    Send(EventBuilder::PostClose(rootContext, unknownKind));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
}

TEST_F(MetricsMonitorScopeTest, OnlyTheLowHalfOfTheActionCounts) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));

    Send(EventBuilder::PostClose(rootContext, 0x100000000));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), LacksAttribute("tenant"));
}

TEST_F(MetricsMonitorScopeTest, LayersAreTakenOffFromTheLatest) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"shard", 3}}));

    Send(EventBuilder::PostClose(rootContext));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("tenant", "blue"), LacksAttribute("shard")));
}

TEST_F(MetricsMonitorScopeTest, TakingOffMoreLayersThanThereAreIsHarmless) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));

    Send(EventBuilder::PostClose(rootContext));
    Send(EventBuilder::PostClose(rootContext));
    Send(EventBuilder::PostClose(99));

    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"shard", 3}}));
    Open(7, "query");
    EXPECT_THAT(LastEvent(), AllOf(LacksAttribute("tenant"), HasAttribute("shard", 3)));
}

TEST_F(MetricsMonitorScopeTest, ALayerIsTakenOffAContextThatIsNotOpen) {
    Send(EventBuilder::CreateContext(2));
    Send(EventBuilder::ContextPairs(2, "ctx", {{"tenant", "blue"}}));

    Send(EventBuilder::PostClose(2));

    Send(EventBuilder::OpenContext(2));
    OpenIn(2, 7, "query");
    EXPECT_THAT(LastEvent(), LacksAttribute("tenant"));
}

TEST_F(MetricsMonitorScopeTest, AtTheEndOfAScopeItsLayerIsStillThere) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    Open(7, "query");

    Close(7);
    Send(EventBuilder::PostClose(rootContext));
    Open(8, "next");

    EXPECT_THAT(*events,
                ElementsAre(HasAttribute("tenant", "blue"),
                            AllOf(Ends("query"), HasAttribute("tenant", "blue")),
                            LacksAttribute("tenant")));
}

// ---- Errors while an event is built.

TEST_F(MetricsMonitorScopeTest, AnErrorAtABeginningEmptiesTheAttributesAndKeepsTheScopeOpen) {
    Send(EventBuilder::ContextValue(rootContext, "user", 5));

    EXPECT_THROW(Open(7, "query", {{"rows", 12}}), LogicException);

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    Send(EventBuilder::ContextPairs(rootContext, "reqCtxAttrs", {{"user", "ada"}}));
    Close(7);
    EXPECT_THAT(*events, ElementsAre(AllOf(Ends("query"), HasExactlyBodyFields({}))));
}

TEST_F(MetricsMonitorScopeTest, AnErrorAtAnEndErasesTheScopeAndTakesItOffBothStacks) {
    Open(7, "query");
    Send(EventBuilder::ContextPairs(rootContext, "reqCtxAttrs", {{"user", 5}}));
    HostCounters counters;

    EXPECT_THROW(Close(7), LogicException);

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 0U);
    EXPECT_EQ(counters.scopesClosed, 1);
    Open(8, "next");
    EXPECT_THAT(LastEvent(),
                AllOf(Begins("next"), HasActivityField("depth", 0), LacksActivityField("root")));
}

TEST_F(MetricsMonitorScopeTest, AnErrorAtAnEndHasStillPassedTheFiguresOn) {
    Open(7, "outer");
    Open(8, "inner");
    Send(EventBuilder::ScopePairs(8, "resultAttrs", {{"rk", "exception"}}));
    Send(EventBuilder::ContextPairs(rootContext, "reqCtxAttrs", {{"user", 5}}));
    EXPECT_THROW(Close(8), LogicException);

    Send(EventBuilder::ContextPairs(rootContext, "reqCtxAttrs", {{"user", "ada"}}));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), HasActivityField("rnerr", 1)));
}

}  // namespace
