#include "MetricsMonitorContextTest.h"

#include "HostCounters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::HasAttribute;
using tarn::test::HasUser;
using tarn::test::HostCounters;
using tarn::test::KnownIds;
using tarn::test::LacksActivityField;
using tarn::test::LacksAttribute;
using tarn::test::MetricsMonitorContextTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;

using Call = HostCounters::Call;

// ---- Creating, opening, closing.

TEST_F(MetricsMonitorContextTest, ACreatedContextIsKnownAndCounted) {
    HostCounters counters;

    Send(EventBuilder::CreateContext(2));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 2U);
    EXPECT_THAT(counters.calls, ElementsAre(Call{"contextsCreated", 1, 1}));
}

TEST_F(MetricsMonitorContextTest, AContextIsNotOpenUntilItIsOpened) {
    Send(EventBuilder::CreateContext(2));

    OpenIn(2, 7, "early");

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_THAT(*events, IsEmpty());
}

TEST_F(MetricsMonitorContextTest, OpeningAnUnknownContextDoesNotCreateIt) {
    HostCounters counters;

    Send(EventBuilder::OpenContext(99));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
    EXPECT_THAT(counters.calls, IsEmpty());
}

TEST_F(MetricsMonitorContextTest, OpeningAContextTwiceChangesNothing) {
    Open(7, "query");

    Send(EventBuilder::OpenContext(rootContext));

    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    Close(7);
    EXPECT_THAT(*events, ElementsAre(Begins("query"), Ends("query")));
}

TEST_F(MetricsMonitorContextTest, AClosedContextIsForgottenAndCounted) {
    HostCounters counters;

    Send(EventBuilder::CloseContext(rootContext));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 0U);
    EXPECT_THAT(counters.calls, ElementsAre(Call{"contextsClosed", 1, 1}));
}

TEST_F(MetricsMonitorContextTest, ClosingTwiceMovesTheCounterOnce) {
    HostCounters counters;

    Send(EventBuilder::CloseContext(rootContext));
    Send(EventBuilder::CloseContext(rootContext));

    EXPECT_EQ(counters.contextsClosed, 1);
    EXPECT_EQ(counters.calls.size(), 1U);
}

TEST_F(MetricsMonitorContextTest, ClosingAnUnknownContextMovesNoCounter) {
    HostCounters counters;

    Send(EventBuilder::CloseContext(99));

    EXPECT_THAT(counters.calls, IsEmpty());
    EXPECT_EQ(counters.contextsClosed, 0);
}

TEST_F(MetricsMonitorContextTest, AContextMayBeClosedWithoutEverBeingOpened) {
    HostCounters counters;
    Send(EventBuilder::CreateContext(2));

    Send(EventBuilder::CloseContext(2));

    EXPECT_THAT(counters.CalledNames(), ElementsAre("contextsCreated", "contextsClosed"));
    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
}

TEST_F(MetricsMonitorContextTest, ScopesOfAClosedContextStayOpenAndEndWithoutAnEvent) {
    HostCounters counters;
    Open(7, "query");

    Send(EventBuilder::CloseContext(rootContext));
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 0U);
    Close(7);

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(counters.scopesClosed, 0);
    EXPECT_THAT(*events, ElementsAre(Begins("query")));
}

TEST_F(MetricsMonitorContextTest, AContextThatIsCreatedAgainAfterItsCloseStartsAfresh) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    Open(7, "query");
    Send(EventBuilder::CloseContext(rootContext));

    OpenContext(rootContext);
    Open(8, "again");

    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    EXPECT_THAT(LastEvent(),
                AllOf(Begins("again"),
                      HasActivityField("depth", 0),
                      LacksActivityField("sponsor"),
                      LacksAttribute("tenant")));
}

// ---- Roots and children.

TEST_F(MetricsMonitorContextTest, AScopeInARootContextStartsFromNothing) {
    OpenContext(2);

    OpenIn(2, 7, "query");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 0),
                      HasActivityField("req-desc", "-"),
                      LacksActivityField("sponsor"),
                      LacksActivityField("root"),
                      tarn::test::HasThreadId(0),
                      HasUser("-")));
}

TEST_F(MetricsMonitorContextTest, ARootContextHasNoRequestAttributesYet) {
    OpenContext(2);

    AddToRequest(2, {{"user", "ada"}});

    OpenIn(2, 7, "query");
    EXPECT_THAT(LastEvent(), HasUser("-"));
}

TEST_F(MetricsMonitorContextTest, AChildStartsFromTheLaterOfItsParentsTwoOpenScopes) {
    Open(7, "outer", {{"tid", 40}});
    Open(8, "inner", {{"tid", 50}});

    OpenContext(2, rootContext);
    OpenIn(2, 9, "child");

    EXPECT_THAT(LastEvent(),
                AllOf(Begins("child"),
                      HasActivityField("depth", 2),
                      HasActivityField("sponsor", KnownIds::Text(2)),
                      HasActivityField("root", KnownIds::Text(1)),
                      tarn::test::HasThreadId(50)));
}

TEST_F(MetricsMonitorContextTest, AChildIsASnapshotOfItsParent) {
    Open(7, "outer");
    OpenContext(2, rootContext);

    Open(8, "later");
    OpenIn(2, 9, "child");

    EXPECT_THAT(
        LastEvent(),
        AllOf(HasActivityField("depth", 1), HasActivityField("sponsor", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorContextTest, WithoutAnOpenScopeAChildStartsFromItsParentsOwnStart) {
    Open(7, "outer", {{"tid", 40}});
    OpenContext(2, rootContext);

    OpenContext(3, 2);
    OpenIn(3, 9, "grandchild");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 1),
                      HasActivityField("sponsor", KnownIds::Text(1)),
                      HasActivityField("root", KnownIds::Text(1)),
                      tarn::test::HasThreadId(40)));
}

TEST_F(MetricsMonitorContextTest, AChildOfAHostsScopeStartsFromThatScope) {
    Send(EventBuilder::OpenScope(7, "hosts").In(rootContext).FromHost());

    OpenContext(2, rootContext);
    OpenIn(2, 8, "child");

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("depth", 0), LacksActivityField("sponsor")));
}

TEST_F(MetricsMonitorContextTest, TheFirstScopeOfAChildBelongsToTheParentsRequest) {
    HostCounters counters;
    Open(7, "outer");
    OpenContext(2, rootContext);

    OpenIn(2, 8, "child");

    EXPECT_EQ(counters.requestContextsCreated, 1);
}

TEST_F(MetricsMonitorContextTest, AChildOfAContextWithoutTracingScopesStartsItsOwnRequest) {
    HostCounters counters;
    OpenContext(2, rootContext);

    OpenIn(2, 8, "child");
    Open(7, "outer");

    EXPECT_EQ(counters.requestContextsCreated, 2);
    EXPECT_THAT(*events,
                ElementsAre(AllOf(HasActivityField("depth", 0), LacksActivityField("root")),
                            AllOf(HasActivityField("depth", 0), LacksActivityField("root"))));
}

TEST_F(MetricsMonitorContextTest, ParentAndChildShareTheAttributesOfTheRequest) {
    Open(7, "outer");
    OpenContext(2, rootContext);

    AddToRequest(2, {{"user", "ada"}});
    AddToRequest(rootContext, {{"sid", "s-1"}});

    OpenIn(2, 8, "child");
    EXPECT_THAT(LastEvent(), AllOf(HasUser("ada"), tarn::test::HasSession("s-1")));
    Open(9, "inner");
    EXPECT_THAT(LastEvent(), AllOf(HasUser("ada"), tarn::test::HasSession("s-1")));
}

TEST_F(MetricsMonitorContextTest, AChildKeepsTheRequestThatItsParentHadWhenItWasCreated) {
    Open(7, "outer");
    OpenContext(2, rootContext);
    Close(7);

    Open(8, "next");
    AddToRequest(rootContext, {{"user", "grace"}});
    AddToRequest(2, {{"user", "ada"}});

    OpenIn(2, 9, "child");
    EXPECT_THAT(LastEvent(), HasUser("ada"));
    Close(8);
    EXPECT_THAT(LastEvent(), HasUser("grace"));
}

// ---- Unlikely orders.

TEST_F(MetricsMonitorContextTest, AnUnknownParentBecomesKnownButIsNeitherCountedNorOpen) {
    HostCounters counters;

    Send(EventBuilder::CreateContext(3, 2));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 3U);
    EXPECT_THAT(counters.calls, ElementsAre(Call{"contextsCreated", 1, 1}));
    OpenIn(2, 7, "early");
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(MetricsMonitorContextTest, AParentMayBeCreatedAfterItsChild) {
    HostCounters counters;
    Send(EventBuilder::CreateContext(3, 2));
    Send(EventBuilder::OpenContext(3));

    OpenContext(2, rootContext);

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 3U);
    EXPECT_EQ(counters.contextsCreated, 2);
    OpenIn(3, 7, "child");
    OpenIn(2, 8, "parent");
    EXPECT_THAT(*events,
                ElementsAre(AllOf(Begins("child"), HasActivityField("depth", 0)),
                            AllOf(Begins("parent"), HasActivityField("depth", 0))));
}

TEST_F(MetricsMonitorContextTest, AContextMayBeItsOwnParent) {
    HostCounters counters;

    Send(EventBuilder::CreateContext(2, 2));
    Send(EventBuilder::OpenContext(2));
    OpenIn(2, 7, "query");
    CloseIn(2, 7);

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 2U);
    EXPECT_EQ(counters.contextsCreated, 1);
    EXPECT_THAT(*events,
                ElementsAre(AllOf(Begins("query"), HasActivityField("depth", 0)), Ends("query")));
}

TEST_F(MetricsMonitorContextTest, AnOpenContextThatBecomesItsOwnParentGoesOnFromItsInnermostScope) {
    Open(7, "outer");

    Send(EventBuilder::CreateContext(rootContext, rootContext));

    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    Close(7);
    Open(8, "next");
    EXPECT_THAT(LastEvent(),
                AllOf(Begins("next"),
                      HasActivityField("depth", 1),
                      HasActivityField("root", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorContextTest, CreatingAKnownContextAgainIsCountedAndKeepsItOpen) {
    HostCounters counters;
    OpenContext(2);
    OpenIn(2, 7, "query");

    Send(EventBuilder::CreateContext(2));

    EXPECT_EQ(counters.contextsCreated, 2);
    EXPECT_EQ(monitor->GetNumberOpenContexts(), 2U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(2), 1U);
    CloseIn(2, 7);
    EXPECT_THAT(*events, ElementsAre(Begins("query"), Ends("query")));
}

TEST_F(MetricsMonitorContextTest, CreatingAKnownContextUnderAParentGivesItTheParentsState) {
    OpenContext(2);
    Open(7, "outer");
    AddToRequest(rootContext, {{"user", "ada"}});

    Send(EventBuilder::CreateContext(2, rootContext));
    OpenIn(2, 8, "child");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 1),
                      HasActivityField("sponsor", KnownIds::Text(1)),
                      HasUser("ada")));
}

TEST_F(MetricsMonitorContextTest, CreatingAKnownContextUnderAParentReleasesItsFormerRequest) {
    OpenContext(2);
    OpenIn(2, 7, "former");
    Open(8, "outer");
    HostCounters counters;

    Send(EventBuilder::CreateContext(2, rootContext));

    EXPECT_THAT(counters.calls,
                ElementsAre(Call{"contextsCreated", 1, 1}, Call{"requestContextsClosed", 1, 1}));
}

TEST_F(MetricsMonitorContextTest, CreatingAKnownContextAsARootKeepsItsState) {
    Open(7, "outer", {{"tid", 40}});
    OpenContext(2, rootContext);

    Send(EventBuilder::CreateContext(2, 0));
    OpenIn(2, 8, "child");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("depth", 1),
                      HasActivityField("sponsor", KnownIds::Text(1)),
                      HasActivityField("root", KnownIds::Text(1)),
                      tarn::test::HasThreadId(40)));
}

// ---- Layers of context attributes.

TEST_F(MetricsMonitorContextTest, AChildSharesTheLayersOfItsParent) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));

    OpenContext(2, rootContext);
    OpenIn(2, 7, "child");

    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
}

TEST_F(MetricsMonitorContextTest, ALayerAddedToTheParentLaterIsNotTheChilds) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    OpenContext(2, rootContext);

    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"shard", 3}}));

    OpenIn(2, 7, "child");
    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("tenant", "blue"), LacksAttribute("shard")));
    Open(8, "outer");
    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("tenant", "blue"), HasAttribute("shard", 3)));
}

TEST_F(MetricsMonitorContextTest, ALayerAddedToTheChildIsNotTheParents) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    OpenContext(2, rootContext);

    Send(EventBuilder::ContextPairs(2, "ctx", {{"shard", 3}}));

    Open(8, "outer");
    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("tenant", "blue"), LacksAttribute("shard")));
    OpenIn(2, 7, "child");
    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("tenant", "blue"), HasAttribute("shard", 3)));
}

TEST_F(MetricsMonitorContextTest, TakingALayerOffASharedListIsSeenByAllWhoShareIt) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    OpenContext(2, rootContext);

    Send(EventBuilder::PostClose(2));

    Open(8, "outer");
    EXPECT_THAT(LastEvent(), LacksAttribute("tenant"));
}

TEST_F(MetricsMonitorContextTest, AfterAppendingAContextTakesLayersOffItsOwnListOnly) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    OpenContext(2, rootContext);
    Send(EventBuilder::ContextPairs(2, "ctx", {{"shard", 3}}));

    Send(EventBuilder::PostClose(2));
    Send(EventBuilder::PostClose(2));

    OpenIn(2, 7, "child");
    EXPECT_THAT(LastEvent(), LacksAttribute("tenant"));
    Open(8, "outer");
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
}

TEST_F(MetricsMonitorContextTest, AKnownContextWithLayersOfItsOwnKeepsThemUnderANewParent) {
    OpenContext(2);
    Send(EventBuilder::ContextPairs(2, "ctx", {{"shard", 3}}));
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));

    Send(EventBuilder::CreateContext(2, rootContext));

    OpenIn(2, 7, "child");
    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("shard", 3), LacksAttribute("tenant")));
}

TEST_F(MetricsMonitorContextTest, TheParentsLayersOutliveTheParent) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
    OpenContext(2, rootContext);

    Send(EventBuilder::CloseContext(rootContext));

    OpenIn(2, 7, "child");
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
}

}  // namespace
