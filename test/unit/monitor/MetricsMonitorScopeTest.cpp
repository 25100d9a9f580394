#include "MetricsMonitorScopeTest.h"

#include "HostCounters.h"
#include "MonitorRecords.h"
#include "ScopeTree.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLogger.h"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::DrawScopeTree;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::HasAttribute;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasThreadId;
using tarn::test::HostCounters;
using tarn::test::KnownIds;
using tarn::test::LacksActivityField;
using tarn::test::LacksAttribute;
using tarn::test::MetricsMonitorScopeTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;

using Call = HostCounters::Call;

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
