#include "MonitorTest.h"

#include <limits>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasAttribute;
using tarn::test::HasBodyField;
using tarn::test::HasUser;
using tarn::test::LacksBodyField;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64 tracingBit = 0x0020000000000000;

class MetricsMonitorDispatchTest : public tarn::test::MonitorTest {};

TEST_F(MetricsMonitorDispatchTest, AnEventWithLowBitsAndWithoutTheTracingBitReachesNoHandler) {
    for (uint64 lowBits = 1; lowBits <= 0xF; ++lowBits) {
        Send(EventBuilder::OpenScope(7, "query").In(rootContext).Flags(lowBits));

        EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U) << "flags " << lowBits;
    }
}

TEST_F(MetricsMonitorDispatchTest, TheTracingBitAdmitsAnEventWhateverItsLowBits) {
    for (uint64 lowBits = 0; lowBits <= 0xF; ++lowBits) {
        Send(EventBuilder::OpenScope(7 + lowBits, "query")
                 .In(rootContext)
                 .Flags(tracingBit | lowBits));
    }

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 16U);
}

TEST_F(MetricsMonitorDispatchTest, AnEventWithoutAnyFlagIsAdmitted) {
    Send(EventBuilder::OpenScope(7, "query").In(rootContext).Flags(0));

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
}

TEST_F(MetricsMonitorDispatchTest, OnlyTheLowFourBitsKeepAnEventOut) {
    Send(EventBuilder::OpenScope(7, "query").In(rootContext).Flags(~tracingBit & ~uint64{0xF}));

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
}

TEST_F(MetricsMonitorDispatchTest, LowBitsKeepContextEventsOutToo) {
    Send(EventBuilder::CreateContext(2, rootContext).Flags(0x5));
    Send(EventBuilder::CloseContext(rootContext).Flags(0x5));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
}

TEST_F(MetricsMonitorDispatchTest, LowBitsKeepEveryKindOut) {
    Open(7, "query");

    Send(EventBuilder::ScopeValue(7, "rows", 1).Flags(0x1));
    Send(EventBuilder::ScopePairs(7, "multiNVPs", {{"pages", 1}}).Flags(0x2));
    Send(EventBuilder::Supplement(7, {{"step", 1}}).Flags(0x4));
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"layer", 1}}).Flags(0x8));
    Send(EventBuilder::CloseScope(7).In(rootContext).Flags(0x1));
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("query"),
                      tarn::test::HasExactlyBodyFields({}),
                      tarn::test::HasExactlyAttributes({"vw", "wb"})));
}

TEST_F(MetricsMonitorDispatchTest, UnknownKindsChangeNothing) {
    Open(7, "query");

    for (const uint32 kind : {0U, 1U, 13U, 14U, 255U, 0x80000005U, 0xFFFFFFFFU}) {
        EXPECT_NO_THROW(Send(EventBuilder::OpenScope(8, "other").In(rootContext).OfType(kind)));
        EXPECT_NO_THROW(Send(EventBuilder::OpenScope(7, "query").In(rootContext).OfType(kind)));
    }

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    EXPECT_THAT(EventNames(), ElementsAre("begin-query"));
}

// The numbers of the kinds are the bus's contract, so they are numbers here.
TEST_F(MetricsMonitorDispatchTest, TwoCreatesAContext) {
    Send(EventBuilder::CreateContext(2).OfType(2));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 2U);
}

TEST_F(MetricsMonitorDispatchTest, ThreeOpensAContextForScopes) {
    Send(EventBuilder::CreateContext(2));
    Send(EventBuilder::OpenScope(7, "early").In(2));

    Send(EventBuilder::OpenContext(2).OfType(3));

    Send(EventBuilder::OpenScope(8, "query").In(2));
    EXPECT_THAT(*events, ElementsAre(Begins("query")));
}

TEST_F(MetricsMonitorDispatchTest, FourClosesAContext) {
    Send(EventBuilder::CloseContext(rootContext).OfType(4));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 0U);
}

TEST_F(MetricsMonitorDispatchTest, FiveOpensAndSixClosesAScope) {
    Send(EventBuilder::OpenScope(7, "query").In(rootContext).OfType(5));
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);

    Send(EventBuilder::CloseScope(7).In(rootContext).OfType(6));

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_THAT(*events, ElementsAre(Begins("query"), Ends("query")));
}

TEST_F(MetricsMonitorDispatchTest, SevenGivesAScopeAnAttribute) {
    Open(7, "query");

    Send(EventBuilder::ScopeValue(7, "rows", 12).OfType(7));

    Close(7);
    EXPECT_THAT(LastEvent(), HasBodyField("rows", 12));
}

TEST_F(MetricsMonitorDispatchTest, EightGivesAContextAnAttribute) {
    Send(EventBuilder::ContextValue(rootContext, "user", "ada").OfType(8));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasUser("ada"));
}

TEST_F(MetricsMonitorDispatchTest, NineGivesAScopeAList) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(7, "multiNVPs", {{"rows", 12}, {"pages", 3}}).OfType(9));

    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(HasBodyField("rows", 12), HasBodyField("pages", 3)));
}

TEST_F(MetricsMonitorDispatchTest, TenGivesAContextAList) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}).OfType(10));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
}

TEST_F(MetricsMonitorDispatchTest, ElevenGivesAScopeALogSupplement) {
    Open(7, "query");

    Send(EventBuilder::Supplement(7, {{"step", 1}}).OfType(11));

    Close(7);
    EXPECT_NE(tarn::test::Field(LastEvent(), tarn::test::Table::Body, "logs"), std::nullopt);
}

TEST_F(MetricsMonitorDispatchTest, TwelveTakesALayerOffAContext) {
    Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));

    Send(EventBuilder::PostClose(rootContext).OfType(12));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), tarn::test::LacksAttribute("tenant"));
}

TEST_F(MetricsMonitorDispatchTest, EventsForUnknownContextsAndScopesAreIgnored) {
    constexpr uint64 unknown = 99;

    for (uint32 kind = 3; kind <= 12; ++kind) {
        EventBuilder event = EventBuilder::ScopePairs(unknown, "ctx", {{"name", 1}});
        event.In(unknown).OfType(kind);
        EXPECT_NO_THROW(Send(event)) << "kind " << kind;
    }

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(unknown), 0U);
    EXPECT_THAT(*events, IsEmpty());
}

TEST_F(MetricsMonitorDispatchTest, TheLargestIdsAreIdsLikeAnyOther) {
    constexpr uint64 largest = std::numeric_limits<uint64>::max();

    OpenContext(largest);
    Send(EventBuilder::OpenScope(largest, "query").In(largest));
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(largest), 1U);
    Send(EventBuilder::CloseScope(largest).In(largest));

    EXPECT_THAT(*events, ElementsAre(Begins("query"), Ends("query")));
}

class ThrowingSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& /*event*/) override { throw std::runtime_error("disk full"); }
};

TEST_F(MetricsMonitorDispatchTest, WhatTheSinkThrowsAtABeginningGoesOnAndTheScopeIsOpen) {
    monitor->EnableTest(new ThrowingSink, new tarn::test::KnownIds);

    EXPECT_THROW(Open(7, "query", {{"rows", 12}}), std::runtime_error);

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    monitor->EnableTest(new tarn::test::CapturingSink(events), new tarn::test::KnownIds);
    Close(7);
    EXPECT_THAT(*events, ElementsAre(AllOf(Ends("query"), LacksBodyField("rows"))));
}

TEST_F(MetricsMonitorDispatchTest, WhatTheSinkThrowsAtAnEndGoesOnAndTheScopeIsGone) {
    Open(7, "outer");
    Open(8, "inner");
    monitor->EnableTest(new ThrowingSink, new tarn::test::KnownIds);

    EXPECT_THROW(Close(8), std::runtime_error);

    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 1U);
    monitor->EnableTest(new tarn::test::CapturingSink(events), new tarn::test::KnownIds);
    Open(9, "next");
    EXPECT_THAT(LastEvent(), AllOf(Begins("next"), tarn::test::HasActivityField("depth", 1)));
}

}  // namespace
