#include "HostCounters.h"
#include "MetricsMonitorContextTest.h"

#include "tarn/OptTarn.h"

#include <atomic>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::HasUser;
using tarn::test::HostCounters;
using tarn::test::KnownIds;
using tarn::test::LacksActivityField;
using tarn::test::MetricsMonitorContextTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;

using Call = HostCounters::Call;

// ---- Request scopes and request contexts.

TEST_F(MetricsMonitorContextTest, AHostsScopeNamedRequestIsARequestScope) {
    Open(7, "outer");

    Send(EventBuilder::OpenScope(8, "request").In(rootContext).FromHost());

    EXPECT_THAT(LastEvent(),
                AllOf(Begins("request"),
                      HasActivityField("id", KnownIds::Text(2)),
                      HasActivityField("depth", 0),
                      LacksActivityField("root"),
                      LacksActivityField("sponsor")));
}

TEST_F(MetricsMonitorContextTest, AScopeNamedRequestWithTheTracingBitIsNoRequestScope) {
    Open(7, "outer");

    Open(8, "request");

    EXPECT_THAT(LastEvent(),
                AllOf(Begins("request"),
                      HasActivityField("depth", 1),
                      HasActivityField("root", KnownIds::Text(1)),
                      HasActivityField("sponsor", KnownIds::Text(1))));
}

TEST_F(MetricsMonitorContextTest, WithForegroundContextsNoScopeIsARequestScope) {
    EnableForegroundContexts();

    Send(EventBuilder::OpenScope(8, "request").In(rootContext).FromHost());

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_THAT(*events, IsEmpty());
    EXPECT_EQ(*idsMade, 0);
}

TEST_F(MetricsMonitorContextTest, ARequestScopesNameMayBeNarrowOrWideOrInApostrophes) {
    for (const Metrics::MetricsValue& name : {Metrics::MetricsValue("request"),
                                              Metrics::MetricsValue(L"request"),
                                              Metrics::MetricsValue("'request'")}) {
        events->clear();

        Send(EventBuilder::OpenScope(8, name).In(rootContext).FromHost());
        Send(EventBuilder::CloseScope(8, name).In(rootContext).FromHost());

        EXPECT_THAT(*events, ElementsAre(Begins("request"), Ends("request")));
    }
}

TEST_F(MetricsMonitorContextTest, OnlyTheExactNameMakesARequestScope) {
    Open(7, "outer");
    events->clear();

    for (const char* const name : {"Request", "REQUEST", "requests", " request", "request ", ""}) {
        Send(EventBuilder::OpenScope(8, name).In(rootContext).FromHost());
    }
    Send(EventBuilder::OpenScope(8, 2).In(rootContext).FromHost());

    EXPECT_THAT(*events, IsEmpty());
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
}

TEST_F(MetricsMonitorContextTest, OtherListNamesMakeNoRequestScope) {
    Open(7, "outer");

    for (const char* const name :
         {"cpuAttrs", "memoryAttrs", "resultAttrs", "reqCtxAttrs", "mctx", "ctx"}) {
        Send(EventBuilder::OpenScope(8, name).In(rootContext).FromHost());
    }

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
}

TEST_F(MetricsMonitorContextTest, AFirstTracingScopeCreatesARequestContextAndThoseBelowShareIt) {
    HostCounters counters;

    Open(7, "outer");
    Open(8, "inner");

    EXPECT_THAT(counters.calls,
                ElementsAre(Call{"scopesOpened", 1, 1},
                            Call{"requestContextsCreated", 1, 1},
                            Call{"scopesOpened", 1, 2}));
}

TEST_F(MetricsMonitorContextTest, AHostsScopeCreatesNoRequestContext) {
    HostCounters counters;

    Send(EventBuilder::OpenScope(7, "hosts").In(rootContext).FromHost());

    EXPECT_THAT(counters.calls, ElementsAre(Call{"scopesOpened", 1, 1}));
}

TEST_F(MetricsMonitorContextTest, ReplacingARequestContextCreatesTheNewBeforeItClosesTheOld) {
    Open(7, "outer");
    HostCounters counters;

    Send(EventBuilder::OpenScope(8, "request").In(rootContext).FromHost());

    EXPECT_THAT(counters.calls,
                ElementsAre(Call{"scopesOpened", 1, 1},
                            Call{"requestContextsCreated", 1, 1},
                            Call{"requestContextsClosed", 1, 1}));
}

TEST_F(MetricsMonitorContextTest, ARequestContextStaysAsLongAsSomeContextSharesIt) {
    Open(7, "outer");
    OpenContext(2, rootContext);
    HostCounters counters;

    Send(EventBuilder::OpenScope(8, "request").In(rootContext).FromHost());
    EXPECT_EQ(counters.requestContextsClosed, 0);
    Send(EventBuilder::CloseContext(2));

    EXPECT_THAT(counters.calls,
                ElementsAre(Call{"scopesOpened", 1, 1},
                            Call{"requestContextsCreated", 1, 1},
                            Call{"requestContextsClosed", 1, 1},
                            Call{"contextsClosed", 1, 1}));
}

TEST_F(MetricsMonitorContextTest, ARequestContextDoesNotEndWithItsScope) {
    Open(7, "outer");
    AddToRequest(rootContext, {{"user", "ada"}});
    HostCounters counters;

    Close(7);

    EXPECT_THAT(counters.calls, ElementsAre(Call{"scopesClosed", 1, 1}));
    AddToRequest(rootContext, {{"sid", "s-1"}});
    OpenContext(2, rootContext);
    EXPECT_EQ(counters.requestContextsClosed, 0);
}

TEST_F(MetricsMonitorContextTest, ClosingAContextCountsItsRequestContextFirst) {
    Open(7, "outer");
    HostCounters counters;

    Send(EventBuilder::CloseContext(rootContext));

    EXPECT_THAT(counters.calls,
                ElementsAre(Call{"requestContextsClosed", 1, 1}, Call{"contextsClosed", 1, 1}));
}

TEST_F(MetricsMonitorContextTest, TheNextFirstScopeOfAContextStartsANewRequest) {
    Open(7, "first");
    AddToRequest(rootContext, {{"user", "ada"}});
    Close(7);

    Open(8, "second");

    EXPECT_THAT(LastEvent(), AllOf(Begins("second"), HasUser("-")));
}

TEST_F(MetricsMonitorContextTest, AnEmptyCounterCallbackIsNotCalled) {
    std::atomic<int64> created{0};
    OptTarn::SetCorvalaCounterContextsCreated(&created);
    OptTarn::SetCmonIncrementCounter({});

    EXPECT_NO_THROW(Send(EventBuilder::CreateContext(2, rootContext)));
    EXPECT_NO_THROW(Open(7, "query"));
    EXPECT_NO_THROW(Close(7));
    EXPECT_NO_THROW(Send(EventBuilder::CloseContext(rootContext)));

    EXPECT_EQ(created, 1);
    OptTarn::SetCorvalaCounterContextsCreated(nullptr);
}

/// A counter callback that fails whenever the counter of this name is counted.
void InstallThrowingCallback(const std::string& throwingName) {
    OptTarn::SetCmonIncrementCounter([throwingName](const std::string& name, uint64) {
        if (name == throwingName) {
            throw std::runtime_error("no counter");
        }
    });
}

/// For each of the six counters.
class CounterCallbackTest : public MetricsMonitorContextTest,
                            public testing::WithParamInterface<const char*> {};

TEST_P(CounterCallbackTest, WhatItThrowsCostsNothingAndIsSaidOnce) {
    const HostCounters counters;
    Send(EventBuilder::CreateContext(2, rootContext));
    Send(EventBuilder::OpenContext(2));
    InstallThrowingCallback(GetParam());

    for (int round = 0; round < 2; ++round) {
        Send(EventBuilder::CreateContext(3, rootContext));
        Send(EventBuilder::OpenContext(3));
        OpenIn(3, 7, "query");
        CloseIn(3, 7);
        Send(EventBuilder::CloseContext(3));
    }
    Send(EventBuilder::CloseContext(2));

    EXPECT_THAT(EventNames(), ElementsAre("begin-query", "end-query", "begin-query", "end-query"));
    EXPECT_EQ(counters.contextsCreated, 3);
    EXPECT_EQ(counters.contextsClosed, 3);
    EXPECT_EQ(counters.requestContextsCreated, 2);
    EXPECT_EQ(counters.requestContextsClosed, 2);
    EXPECT_EQ(counters.scopesOpened, 2);
    EXPECT_EQ(counters.scopesClosed, 2);
    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_THAT(
        Log().Messages(),
        testing::Contains(
            testing::Pair(TLog::Warn, testing::StartsWith("The counter callback has thrown")))
            .Times(1));
}

INSTANTIATE_TEST_SUITE_P(AllCounters,
                         CounterCallbackTest,
                         testing::Values("contextsCreated",
                                         "contextsClosed",
                                         "requestContextsCreated",
                                         "requestContextsClosed",
                                         "scopesOpened",
                                         "scopesClosed"),
                         [](const auto& counter) { return std::string(counter.param); });

TEST_F(MetricsMonitorContextTest, TheNextCounterCallbackThatThrowsIsReportedToo) {
    InstallThrowingCallback("");
    Send(EventBuilder::CreateContext(2));

    InstallThrowingCallback("");
    Send(EventBuilder::CreateContext(3));

    EXPECT_THAT(
        Log().Messages(),
        testing::Contains(
            testing::Pair(TLog::Warn, testing::StartsWith("The counter callback has thrown")))
            .Times(2));
}

// ---- Attributes of the request.

TEST_F(MetricsMonitorContextTest, ALaterValueOfTheRequestReplacesTheEarlier) {
    Open(7, "outer");
    AddToRequest(rootContext, {{"user", "ada"}, {"sid", "s-1"}});

    AddToRequest(rootContext, {{"user", "grace"}, {"user", "joan"}});

    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(HasUser("joan"), tarn::test::HasSession("s-1")));
}

TEST_F(MetricsMonitorContextTest, NamesOfRequestAttributesAreExact) {
    Open(7, "outer");

    AddToRequest(rootContext, {{"User", "ada"}, {"user ", "ada"}, {"SID", "s-1"}});

    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(HasUser("-"), tarn::test::HasSession("-")));
}

TEST_F(MetricsMonitorContextTest, NamesOfRequestAttributesMayStandInApostrophesOrBeWide) {
    Open(7, "outer");

    AddToRequest(rootContext, {{"'user'", "ada"}, {L"sid", "s-1"}});

    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(HasUser("ada"), tarn::test::HasSession("s-1")));
}

/// What a request is described by after two descriptions came in, one after the other.
class RequestDescriptionTest : public MetricsMonitorContextTest {
protected:
    tarn::test::LogValue DescriptionAfter(const Metrics::MetricsValue& first,
                                          const Metrics::MetricsValue& second) {
        Open(7, "outer");
        AddToRequest(rootContext, {{"req-desc", first}});
        AddToRequest(rootContext, {{"req-desc", second}});
        Close(7);
        return tarn::test::Field(LastEvent(), tarn::test::Table::Activity, "req-desc")
            .value_or("missing");
    }
};

using Value = Metrics::MetricsValue;

TEST_F(RequestDescriptionTest, AnEmptyDescriptionGivesWayToAny) {
    EXPECT_EQ(DescriptionAfter("", "load"), "load");
    EXPECT_EQ(DescriptionAfter(L"", L"load"), "load");
}

TEST_F(RequestDescriptionTest, ADescriptionOfCommandsGivesWayToAny) {
    EXPECT_EQ(DescriptionAfter("/sessions/{sessionId}/commands/run", "load"), "load");
    EXPECT_EQ(DescriptionAfter(L"/sessions/{sessionId}/commands", L"load"), "load");
    EXPECT_EQ(DescriptionAfter("/sessions/{sessionId}/commands", "/bootstrapSession"),
              "/bootstrapSession");
    EXPECT_EQ(
        DescriptionAfter("/sessions/{sessionId}/commands/a", "/sessions/{sessionId}/commands/b"),
        "/sessions/{sessionId}/commands/b");
}

TEST_F(RequestDescriptionTest, ABootstrapDescriptionGivesWayToANarrowOneOfItsKind) {
    EXPECT_EQ(DescriptionAfter("/bootstrapSession/1", "/bootstrapSession/2"),
              "/bootstrapSession/2");
    EXPECT_EQ(DescriptionAfter(L"/bootstrapSession/1", "/bootstrapSession"), "/bootstrapSession");
}

TEST_F(RequestDescriptionTest, ABootstrapDescriptionDoesNotGiveWayToAWideOneOfItsKind) {
    EXPECT_EQ(DescriptionAfter("/bootstrapSession/1", L"/bootstrapSession/2"),
              "/bootstrapSession/1");
    EXPECT_EQ(DescriptionAfter(L"/bootstrapSession/1", L"/bootstrapSession/2"),
              "/bootstrapSession/1");
}

TEST_F(RequestDescriptionTest, ABootstrapDescriptionDoesNotGiveWayToAnythingElse) {
    EXPECT_EQ(DescriptionAfter("/bootstrapSession/1", "load"), "/bootstrapSession/1");
    EXPECT_EQ(DescriptionAfter("/bootstrapSession/1", "/sessions/{sessionId}/commands"),
              "/bootstrapSession/1");
    EXPECT_EQ(DescriptionAfter("/bootstrapSession/1", "/BootstrapSession"), "/bootstrapSession/1");
    EXPECT_EQ(DescriptionAfter("/bootstrapSession/1", 5), "/bootstrapSession/1");
    EXPECT_EQ(DescriptionAfter("/bootstrapSession/1", ""), "/bootstrapSession/1");
}

TEST_F(RequestDescriptionTest, AnyOtherDescriptionStays) {
    EXPECT_EQ(DescriptionAfter("load", "store"), "load");
    EXPECT_EQ(DescriptionAfter("load", "/sessions/{sessionId}/commands"), "load");
    EXPECT_EQ(DescriptionAfter("load", "/bootstrapSession"), "load");
    EXPECT_EQ(DescriptionAfter("-", "load"), "-");
    EXPECT_EQ(DescriptionAfter(" ", "load"), " ");
}

TEST_F(RequestDescriptionTest, ADescriptionThatIsNoTextIsJudgedByTheTextItReadsAs) {
    Value unknown("load");
    unknown.type = 5;

    EXPECT_EQ(DescriptionAfter(unknown, "store"), "store");

    // 5 reads as "5", which stays, and cannot be logged as a description.
    EXPECT_THROW(DescriptionAfter(5, "store"), LogicException);
}

TEST_F(RequestDescriptionTest, ThePrefixesAreExact) {
    EXPECT_EQ(DescriptionAfter("/Sessions/{sessionId}/commands", "load"),
              "/Sessions/{sessionId}/commands");
    EXPECT_EQ(DescriptionAfter("/sessions/{sessionId}/command", "load"),
              "/sessions/{sessionId}/command");
    EXPECT_EQ(DescriptionAfter("x/sessions/{sessionId}/commands", "load"),
              "x/sessions/{sessionId}/commands");
    EXPECT_EQ(DescriptionAfter("/bootstrapsession", "/bootstrapSession"), "/bootstrapsession");
}

TEST_F(RequestDescriptionTest, ASkippedDescriptionDoesNotKeepTheOthersOfItsListOut) {
    Open(7, "outer");
    AddToRequest(rootContext, {{"req-desc", "load"}});

    AddToRequest(rootContext, {{"sid", "s-1"}, {"req-desc", "store"}, {"user", "ada"}});

    Close(7);
    EXPECT_THAT(
        LastEvent(),
        AllOf(HasActivityField("req-desc", "load"), HasUser("ada"), tarn::test::HasSession("s-1")));
}

TEST_F(RequestDescriptionTest, TheRuleHoldsWithinOneListToo) {
    Open(7, "outer");

    AddToRequest(rootContext, {{"req-desc", "load"}, {"req-desc", "store"}});

    Close(7);
    EXPECT_THAT(LastEvent(), HasActivityField("req-desc", "load"));
}

TEST_F(RequestDescriptionTest, EachRequestHasItsOwnDescription) {
    Open(7, "outer");
    AddToRequest(rootContext, {{"req-desc", "load"}});
    Send(EventBuilder::OpenScope(8, "request").In(rootContext).FromHost());

    AddToRequest(rootContext, {{"req-desc", "store"}});

    Close(8);
    EXPECT_THAT(LastEvent(), AllOf(Ends("request"), HasActivityField("req-desc", "store")));
}

// ---- Attributes that wait for a request.

TEST_F(MetricsMonitorContextTest, AnAttributeOfAContextWaitsForTheFirstTracingScope) {
    Send(EventBuilder::ContextValue(rootContext, "user", "ada"));
    Send(EventBuilder::ContextValue(rootContext, "sid", "s-1"));

    Send(EventBuilder::OpenScope(6, "hosts").In(rootContext).FromHost());
    Open(7, "query");

    EXPECT_THAT(LastEvent(), AllOf(HasUser("ada"), tarn::test::HasSession("s-1")));
}

TEST_F(MetricsMonitorContextTest, AnAttributeThatComesLateWaitsForTheNextScope) {
    Open(7, "outer");

    Send(EventBuilder::ContextValue(rootContext, "user", "ada"));

    Open(8, "inner");
    EXPECT_THAT(LastEvent(), AllOf(Begins("inner"), HasUser("ada")));
    Close(8);
    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), HasUser("ada")));
}

TEST_F(MetricsMonitorContextTest, AnAttributeThatNoScopeFollowsIsNotSeen) {
    Open(7, "outer");

    Send(EventBuilder::ContextValue(rootContext, "user", "ada"));

    Close(7);
    EXPECT_THAT(LastEvent(), HasUser("-"));
}

TEST_F(MetricsMonitorContextTest, WaitingAttributesGoToOneRequestOnly) {
    Send(EventBuilder::ContextValue(rootContext, "user", "ada"));
    Open(7, "first");
    Close(7);

    Open(8, "second");

    EXPECT_THAT(LastEvent(), AllOf(Begins("second"), HasUser("-")));
}

TEST_F(MetricsMonitorContextTest, WaitingAttributesKeepTheirOrder) {
    Send(EventBuilder::ContextValue(rootContext, "user", "ada"));
    Send(EventBuilder::ContextValue(rootContext, "user", "grace"));
    Send(EventBuilder::ContextValue(rootContext, "req-desc", "load"));
    Send(EventBuilder::ContextValue(rootContext, "req-desc", "store"));

    Open(7, "query");

    EXPECT_THAT(LastEvent(), AllOf(HasUser("grace"), HasActivityField("req-desc", "load")));
}

TEST_F(MetricsMonitorContextTest, WaitingAttributesOfAParentDoNotWaitInItsChildren) {
    Send(EventBuilder::ContextValue(rootContext, "user", "ada"));
    OpenContext(2, rootContext);

    OpenIn(2, 7, "child");

    EXPECT_THAT(LastEvent(), HasUser("-"));
}

TEST_F(MetricsMonitorContextTest, WaitingAttributesOfAChildReachTheSharedRequest) {
    Open(7, "outer");
    OpenContext(2, rootContext);
    Send(EventBuilder::ContextValue(2, "user", "ada"));

    OpenIn(2, 8, "child");
    EXPECT_THAT(LastEvent(), HasUser("ada"));
    CloseIn(2, 8);
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), HasUser("ada")));
}

TEST_F(MetricsMonitorContextTest, AttributesForUnknownContextsAreDropped) {
    Send(EventBuilder::ContextValue(2, "user", "ada"));

    OpenContext(2);
    OpenIn(2, 7, "query");

    EXPECT_THAT(LastEvent(), HasUser("-"));
}

}  // namespace
