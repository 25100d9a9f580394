#include "HostCounters.h"
#include "MetricsMonitorAttributeTest.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include <initializer_list>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::HasAttribute;
using tarn::test::HasExactlyAttributes;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasSession;
using tarn::test::HasThreadId;
using tarn::test::HasUser;
using tarn::test::HostCounters;
using tarn::test::LacksAttribute;
using tarn::test::LogValue;
using tarn::test::MetricsMonitorAttributeTest;
using testing::AllOf;
using testing::IsEmpty;

// ---- Single attributes of a context.

TEST_F(MetricsMonitorAttributeTest, EveryRequestAttributeOfAContextReachesTheNextScope) {
    OptTarn::SetIsServer(true);
    const Metrics::NameValueList attributes = {{"pid", 4711},
                                               {"rid", "r-1"},
                                               {L"req-desc", L"load"},
                                               {"sid", "s-1"},
                                               {"site", "north"},
                                               {"user", "ada"},
                                               {"wb", "book"},
                                               {"vw", "view"}};
    for (const auto& [name, value] : attributes) {
        Send(EventBuilder::ContextValue(rootContext, name, value));
    }

    Open(7, "query");

    EXPECT_THAT(LastEvent(),
                AllOf(tarn::test::HasProcessId(4711),
                      tarn::test::HasRequest("r-1"),
                      HasActivityField("req-desc", "load"),
                      HasSession("s-1"),
                      tarn::test::HasSite("north"),
                      HasUser("ada"),
                      HasAttribute("wb", "book"),
                      HasAttribute("vw", "view")));
    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({}));
}

TEST_F(MetricsMonitorAttributeTest, ThreadIdsOfAContextAreTheScopesThreads) {
    ReportResources(corvala::memory::MemoryTrackingOff);
    Send(EventBuilder::ContextValue(rootContext, "tid", 40));
    Send(EventBuilder::ContextValue(rootContext, "tid", 50));
    Send(EventBuilder::ContextValue(rootContext, "tid", 40));

    Open(7, "query", {{"tid", 60}});
    EXPECT_THAT(LastEvent(), HasThreadId(40));
    Close(7);

    EXPECT_EQ(ThreadsOfLastEvent(), LogValue(3));
}

TEST_F(MetricsMonitorAttributeTest, AThreadThatComesBackIsTheScopesThreadAgain) {
    ReportResources(corvala::memory::MemoryTrackingOff);
    for (const int thread : {40, 50, 60, 50, 40}) {
        Send(EventBuilder::ContextValue(rootContext, "tid", thread));
    }

    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasThreadId(40));
    Close(7);

    EXPECT_EQ(ThreadsOfLastEvent(), LogValue(3));
}

TEST_F(MetricsMonitorAttributeTest, AThreadIdThatComesLateConcernsLaterScopes) {
    Open(7, "outer");

    Send(EventBuilder::ContextValue(rootContext, "tid", 40));
    Open(8, "inner");
    EXPECT_THAT(LastEvent(), HasThreadId(40));
    Close(8);
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("outer"), HasThreadId(0)));
}

TEST_F(MetricsMonitorAttributeTest, ThreadIdsOfAParentContextAreNotTheChilds) {
    Send(EventBuilder::ContextValue(rootContext, "tid", 40));

    OpenContext(2, rootContext);
    Send(EventBuilder::OpenScope(7, "child").In(2));

    EXPECT_THAT(LastEvent(), HasThreadId(0));
}

TEST_F(MetricsMonitorAttributeTest, AConnectionIdAndUnknownNamesShowNowhere) {
    Send(EventBuilder::ContextValue(rootContext, "cid", 9));
    Send(EventBuilder::ContextValue(rootContext, "anything", 9));

    Open(7, "query");

    EXPECT_THAT(
        LastEvent(),
        AllOf(HasExactlyBodyFields({}), HasExactlyAttributes({"vw", "wb"}), HasThreadId(0)));
}

TEST_F(MetricsMonitorAttributeTest, AttributesOfAContextThatIsNotOpenYetAreKept) {
    Send(EventBuilder::CreateContext(2));
    Send(EventBuilder::ContextValue(2, "user", "ada"));
    Send(EventBuilder::ContextPairs(2, "ctx", {{"tenant", "blue"}}));

    Send(EventBuilder::OpenContext(2));
    Send(EventBuilder::OpenScope(7, "query").In(2));

    EXPECT_THAT(LastEvent(), AllOf(HasUser("ada"), HasAttribute("tenant", "blue")));
}

// ---- Lists of a context.

TEST_F(MetricsMonitorAttributeTest, RequestAttributesNeedARequest) {
    HostCounters counters;

    AddToContext("reqCtxAttrs", {{"user", "ada"}});
    EXPECT_THAT(counters.calls, IsEmpty()) << "they make none";
    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasUser("-"));
    EXPECT_EQ(counters.requestContextsCreated, 1);

    AddToContext("reqCtxAttrs", {{"user", "ada"}});
    Close(7);

    EXPECT_THAT(LastEvent(), HasUser("ada"));
}

TEST_F(MetricsMonitorAttributeTest, RequestAttributesMakeNoLayer) {
    AddToContext("ctx", {{"tenant", "blue"}});
    Open(7, "query");

    AddToContext("reqCtxAttrs", {{"user", "ada"}});
    Send(EventBuilder::PostClose(rootContext));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasUser("ada"), LacksAttribute("tenant")));
}

TEST_F(MetricsMonitorAttributeTest, AContextListIsANewLayer) {
    AddToContext("ctx", {{"tenant", "blue"}, {"shard", 3}});
    AddToContext("ctx", {{"shard", 4}});

    Open(7, "query");
    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("tenant", "blue"), HasAttribute("shard", 4)));
    Send(EventBuilder::PostClose(rootContext));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("tenant", "blue"), HasAttribute("shard", 3)));
}

TEST_F(MetricsMonitorAttributeTest, WithinALayerTheLaterPairCounts) {
    AddToContext("ctx", {{"shard", 3}, {"shard", 4}, {"'shard'", 5}});

    Open(7, "query");

    EXPECT_THAT(LastEvent(), HasAttribute("shard", 5));
}

TEST_F(MetricsMonitorAttributeTest, AnEmptyContextListIsALayerToo) {
    AddToContext("ctx", {{"tenant", "blue"}});
    AddToContext("ctx", {});

    Send(EventBuilder::PostClose(rootContext));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
}

TEST_F(MetricsMonitorAttributeTest, ContextListsOfOtherNamesAreDropped) {
    Open(7, "query");

    for (const char* const listName : {"multiNVPs",
                                       "cpuAttrs",
                                       "memoryAttrs",
                                       "request",
                                       "resultAttrs",
                                       "",
                                       "CTX",
                                       "anything"}) {
        AddToContext(listName, {{"user", "ada"}, {"tenant", "blue"}});
    }
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasUser("-"),
                      HasExactlyAttributes({"vw", "wb"}),
                      HasExactlyBodyFields({}),
                      HasActivityField("rk", "ok")));
}

TEST_F(MetricsMonitorAttributeTest, ListNamesMayBeWideOrInApostrophes) {
    Open(7, "query");

    Send(EventBuilder::ContextPairs(rootContext, L"ctx", {{"tenant", "blue"}}));
    Send(EventBuilder::ContextPairs(rootContext, "'reqCtxAttrs'", {{"user", "ada"}}));
    Send(EventBuilder::ScopePairs(7, "'resultAttrs'", {{"'rk'", "exception"}}));
    Close(7);

    EXPECT_THAT(
        LastEvent(),
        AllOf(HasAttribute("tenant", "blue"), HasUser("ada"), HasActivityField("rk", "exception")));
}

TEST_F(MetricsMonitorAttributeTest, ListsForAnUnknownContextAreDropped) {
    Send(EventBuilder::ContextPairs(2, "ctx", {{"tenant", "blue"}}));
    Send(EventBuilder::ContextPairs(2, "mctx", {{"tenant", "blue"}}));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
    OpenContext(2);
    Send(EventBuilder::OpenScope(7, "query").In(2));
    EXPECT_THAT(LastEvent(), LacksAttribute("tenant"));
}

// ---- Mappable attributes of a context.

TEST_F(MetricsMonitorAttributeTest, AMappableListWithoutMappingsIsOneLayer) {
    AddToContext("ctx", {{"base", 1}});

    AddToContext("mctx", {{"tenant", "blue"}, {"shard", 3}});
    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasExactlyAttributes({"base", "shard", "tenant", "vw", "wb"}));
    Send(EventBuilder::PostClose(rootContext));
    Close(7);

    EXPECT_THAT(LastEvent(), HasExactlyAttributes({"base", "vw", "wb"}));
}

TEST_F(MetricsMonitorAttributeTest, AMappableListOfMappedNamesAloneTakesItsOwnLayerAway) {
    Open(7, "query");
    AddToContext("mctx", {{"tenant", "blue"}});

    AddToContext("mctx", {{"user", "ada"}, {"sid", "s-1"}});
    Open(8, "inner");
    EXPECT_THAT(LastEvent(), HasExactlyAttributes({"tenant", "vw", "wb"}));
    Close(8);
    Send(EventBuilder::PostClose(rootContext));
    Open(8, "next");
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
    Close(8);
    Send(EventBuilder::PostClose(rootContext));
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasUser("ada"), HasSession("s-1"), HasExactlyAttributes({"vw", "wb"})));
}

TEST_F(MetricsMonitorAttributeTest, AMappedListInAChildContextLeavesTheParentsLayer) {
    AddToContext("mctx", {{"tenant", "blue"}});
    OpenContext(2, rootContext);

    Send(EventBuilder::ContextPairs(2, "mctx", {{"user", "ada"}}));
    Send(EventBuilder::PostClose(2));

    Send(EventBuilder::OpenScope(7, "child").In(2));
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
    Open(8, "parent");
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
}

TEST_F(MetricsMonitorAttributeTest, AMixedMappableListIsDivided) {
    Open(7, "query");

    AddToContext("mctx", {{"user", "ada"}, {"tenant", "blue"}});
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasUser("ada"), HasExactlyAttributes({"tenant", "vw", "wb"})));
}

TEST_F(MetricsMonitorAttributeTest, AMappedNameIsReplacedByItsTarget) {
    tarn::TarnSettings::GetInstance().AddEventAttributeMapping(u"owner", u"user");
    tarn::TarnSettings::GetInstance().AddEventAttributeMapping(u"job", u"req-desc");
    Open(7, "query");

    AddToContext("mctx", {{"owner", "ada"}, {"'job'", "load"}});
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasUser("ada"),
                      HasActivityField("req-desc", "load"),
                      HasExactlyAttributes({"vw", "wb"})));
}

TEST_F(MetricsMonitorAttributeTest, ANameWhoseMappingWasRemovedIsAnAttributeOfTheContext) {
    tarn::TarnSettings::GetInstance().RemoveEventAttributeMapping(u"user");
    Open(7, "query");

    AddToContext("mctx", {{"user", "ada"}});
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasUser("-"), HasAttribute("user", "ada")));
}

TEST_F(MetricsMonitorAttributeTest, MappedPairsKeepTheirOrder) {
    tarn::TarnSettings::GetInstance().AddEventAttributeMapping(u"owner", u"user");
    Open(7, "query");

    AddToContext("mctx", {{"owner", "ada"}, {"user", "grace"}});
    Close(7);

    EXPECT_THAT(LastEvent(), HasUser("grace"));
}

TEST_F(MetricsMonitorAttributeTest, MappedAttributesNeedARequest) {
    AddToContext("mctx", {{"user", "ada"}, {"tenant", "blue"}});

    Open(7, "query");

    EXPECT_THAT(LastEvent(), AllOf(HasUser("-"), HasAttribute("tenant", "blue")));
}

TEST_F(MetricsMonitorAttributeTest, AnEmptyMappableListIsALayerToo) {
    AddToContext("ctx", {{"tenant", "blue"}});

    AddToContext("mctx", {});
    Send(EventBuilder::PostClose(rootContext));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasAttribute("tenant", "blue"));
}

}  // namespace
