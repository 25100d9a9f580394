#include "HostCounters.h"
#include "MonitorNames.h"
#include "MonitorTest.h"

#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include <initializer_list>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::HasAttribute;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyAttributes;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasSession;
using tarn::test::HasThreadId;
using tarn::test::HasUser;
using tarn::test::HostCounters;
using tarn::test::LacksAttribute;
using tarn::test::LogValue;
using testing::AllOf;
using testing::ElementsAre;

class MetricsMonitorAttributeTest : public tarn::test::MonitorTest {
protected:
    void AddToScope(uint64 id, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ScopePairs(id, "multiNVPs", pairs));
    }

    void AddResult(uint64 id, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ScopePairs(id, L"resultAttrs", pairs));
    }

    void AddToContext(const char* listName, const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ContextPairs(rootContext, listName, pairs));
    }

    /// The number of threads of the last event's scope.
    LogValue ThreadsOfLastEvent() const {
        const auto resources =
            tarn::test::Field(LastEvent(), tarn::test::Table::Activity, "res").value_or("missing");
        const std::size_t at = resources.Text().find("\"ntid\": ");
        return at == std::string::npos ? LogValue("missing")
                                       : LogValue(std::stoi(resources.Text().substr(at + 8)));
    }
};

// ---- The names that mean something, by their codes.

TEST(MonitorNamesTest, TheNamesHaveTheirCodes) {
    const tarn::MonitorNames names;
    const auto codesOf = [](const auto& table, std::initializer_list<const char*> texts) {
        std::vector<int> codes;
        for (const char* const text : texts) {
            codes.push_back(static_cast<int>(table.Find(TString(text))));
        }
        return codes;
    };

    EXPECT_THAT(codesOf(names.lists,
                        {"cpuAttrs",
                         "memoryAttrs",
                         "request",
                         "resultAttrs",
                         "reqCtxAttrs",
                         "mctx",
                         "ctx",
                         "multiNVPs"}),
                ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    EXPECT_THAT(codesOf(names.activityAttributes, {"tid", "cmd-name", "rk", "name"}),
                ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(codesOf(names.figures, {"ai", "ani", "apeak", "di", "dni", "ui", "ki", "ae"}),
                ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    EXPECT_THAT(
        codesOf(names.contextAttributes,
                {"cid", "pid", "rid", "req-desc", "sid", "tid", "site", "user", "wb", "vw", "ws"}),
        ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
}

// ---- Attributes of a scope.

TEST_F(MetricsMonitorAttributeTest, AttributesMayComeSinglyAndInLists) {
    Open(7, "query");

    Send(EventBuilder::ScopeValue(7, "rows", 12));
    AddToScope(7, {{L"pages", 3}, {"table", L"orders"}});
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasExactlyBodyFields({"pages", "rows", "table"}),
                      HasBodyField("rows", 12),
                      HasBodyField("pages", 3),
                      HasBodyField("table", "orders")));
}

TEST_F(MetricsMonitorAttributeTest, ALaterValueReplacesAnEarlierOne) {
    Open(7, "query", {{"rows", 1}, {"rows", 2}});
    EXPECT_THAT(LastEvent(), HasBodyField("rows", 2));

    Send(EventBuilder::ScopeValue(7, "rows", 3));
    AddToScope(7, {{"rows", 4}, {"rows", "five"}});
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasExactlyBodyFields({"rows"}), HasBodyField("rows", "five")));
}

TEST_F(MetricsMonitorAttributeTest, EveryListNameWithoutAMeaningOfItsOwnHoldsAttributes) {
    for (const char* const listName :
         {"multiNVPs", "request", "reqCtxAttrs", "mctx", "ctx", "", "CpuAttrs", "anything"}) {
        Open(7, "query");

        Send(EventBuilder::ScopePairs(7, listName, {{"rows", 12}}));
        Close(7);

        EXPECT_THAT(LastEvent(), HasExactlyBodyFields({"rows"})) << listName;
    }
}

TEST_F(MetricsMonitorAttributeTest, TheListsOfFiguresAndResultsHoldNoAttributes) {
    Open(7, "query");

    Send(EventBuilder::ScopePairs(7, "cpuAttrs", {{"ki", 1}, {"rows", 12}}));
    Send(EventBuilder::ScopePairs(7, L"memoryAttrs", {{"ai", 1}, {"rows", 12}}));
    Send(EventBuilder::ScopePairs(7, "resultAttrs", {{"rk", "ok"}, {"rows", 12}}));
    Close(7);

    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({}));
}

TEST_F(MetricsMonitorAttributeTest, AttributesOfAScopeOfTheHostAreTakenWithoutHarm) {
    Send(EventBuilder::OpenScope(7, "hosts").In(rootContext).FromHost().With({{"rows", 12}}));

    Send(EventBuilder::ScopeValue(7, "rows", 12).FromHost());
    AddToScope(7, {{"tid", 40}});
    AddResult(7, {{"rk", "exception"}});
    Send(EventBuilder::Supplement(7, {{"step", 1}}));

    Open(8, "query");
    EXPECT_THAT(LastEvent(), AllOf(HasExactlyBodyFields({}), HasThreadId(40)));
    Close(8);
    EXPECT_THAT(LastEvent(), AllOf(HasExactlyBodyFields({}), HasActivityField("rk", "ok")));
}

TEST_F(MetricsMonitorAttributeTest, TheThreadOfAScopeOfTheHostIsInheritedByTheScopesInIt) {
    Send(EventBuilder::OpenScope(7, "hosts").In(rootContext).FromHost());

    Send(EventBuilder::ScopeValue(7, "tid", 40).FromHost());
    Open(8, "query");

    EXPECT_THAT(LastEvent(), HasThreadId(40));
}

TEST_F(MetricsMonitorAttributeTest, AttributesGoToTheScopeThatTheyNameNotToTheInnermost) {
    Open(7, "outer");
    Open(8, "inner");

    Send(EventBuilder::ScopeValue(7, "rows", 12));
    Close(8);
    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({}));
    Close(7);

    EXPECT_THAT(LastEvent(), HasBodyField("rows", 12));
}

TEST_F(MetricsMonitorAttributeTest, AttributesOfAnUnknownScopeAreDropped) {
    Send(EventBuilder::ScopeValue(7, "rows", 12));
    AddToScope(7, {{"pages", 3}});
    AddResult(7, {{"rk", "exception"}});
    Send(EventBuilder::Supplement(7, {{"step", 1}}));

    Open(7, "query");
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasExactlyBodyFields({}), HasActivityField("rk", "ok")));
}

TEST_F(MetricsMonitorAttributeTest, NamesAreReadWithTheQuotingRule) {
    Open(7, "query");

    Send(EventBuilder::ScopeValue(7, "'ws'", L"sheet"));
    AddToScope(7, {{"a\"b", 1}, {5, 2}, {true, 3}, {1.5, 4}});
    Close(7);

    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({"ws", "\"a\"\"b\"", "5", "true", "1.5"}));
}

// ---- Names with a meaning of their own.

TEST_F(MetricsMonitorAttributeTest, ACommandNameIsTheName) {
    Open(7, "query", {{"cmd-name", "select"}});
    EXPECT_THAT(LastEvent(),
                AllOf(HasExactlyBodyFields({"name"}),
                      HasBodyField("name", "select"),
                      HasActivityField("name", "query")));

    Send(EventBuilder::ScopeValue(7, "cmd-name", "insert"));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasExactlyBodyFields({"name"}), HasBodyField("name", "insert")));
}

TEST_F(MetricsMonitorAttributeTest, ACommandNameReplacesANameAndTheOtherWayRound) {
    Open(7, "query");
    AddToScope(7, {{"name", "first"}, {"cmd-name", "second"}});
    Close(7);
    EXPECT_THAT(LastEvent(), HasBodyField("name", "second"));

    Open(8, "query");
    AddToScope(8, {{"cmd-name", "first"}, {"name", "second"}});
    Close(8);
    EXPECT_THAT(LastEvent(), HasBodyField("name", "second"));
}

TEST_F(MetricsMonitorAttributeTest, AThreadIdIsNoAttribute) {
    Open(7, "query", {{"tid", 40}});
    EXPECT_THAT(LastEvent(), AllOf(HasThreadId(40), HasExactlyBodyFields({})));

    Send(EventBuilder::ScopeValue(7, L"tid", 50));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasThreadId(50), HasExactlyBodyFields({})));
}

TEST_F(MetricsMonitorAttributeTest, TheThreadsOfAScopeAreCountedOnce) {
    ReportResources(corvala::memory::MemoryTrackingOff);
    Open(7, "query", {{"tid", 40}});

    Send(EventBuilder::ScopeValue(7, "tid", 50));
    AddToScope(7, {{"tid", 40}, {"tid", 50}});
    Close(7);

    EXPECT_EQ(ThreadsOfLastEvent(), LogValue(2));
}

TEST_F(MetricsMonitorAttributeTest, AThreadIdThatIsNoIntegerReadsAsZero) {
    ReportResources(corvala::memory::MemoryTrackingOff);
    Open(7, "query", {{"tid", 40}});

    Send(EventBuilder::ScopeValue(7, "tid", "50"));
    Close(7);

    EXPECT_THAT(LastEvent(), HasThreadId(0));
    EXPECT_EQ(ThreadsOfLastEvent(), LogValue(2));
}

TEST_F(MetricsMonitorAttributeTest, TheQueryOfAQueryPipelineScopeIsDropped) {
    for (const char* const name : {"qp", "qp-run", "qpx"}) {
        Open(7, name, {{"query", "select"}, {"abstract-query", "q"}, {"rows", 12}});
        EXPECT_THAT(LastEvent(), HasExactlyBodyFields({"rows"})) << name;

        Send(EventBuilder::ScopeValue(7, "query", "select"));
        AddToScope(7, {{"abstract-query", "q"}, {"query-trunc", "sel"}, {"Query", "s"}});
        Close(7);

        EXPECT_THAT(LastEvent(), HasExactlyBodyFields({"Query", "query-trunc"})) << name;
    }
}

TEST_F(MetricsMonitorAttributeTest, TheQueryOfAnyOtherScopeIsKept) {
    for (const char* const name : {"query", "q", "QP-run", "xqp", ""}) {
        Open(7, name, {{"query", "select"}, {"abstract-query", "q"}});

        EXPECT_THAT(LastEvent(), HasExactlyBodyFields({"abstract-query", "query"})) << name;
        Close(7);
    }
}

TEST_F(MetricsMonitorAttributeTest, AResultKeyOutsideOfAResultIsAnOrdinaryAttribute) {
    Open(7, "query");

    Send(EventBuilder::ScopeValue(7, "rk", "exception"));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasBodyField("rk", "exception"), HasActivityField("rk", "ok")));
}

// ---- Results.

TEST_F(MetricsMonitorAttributeTest, AResultHasAKeyAndPairs) {
    Open(7, "query");

    AddResult(7, {{L"rk", L"exception"}, {L"type", L"std::bad_alloc"}, {L"msg", "no memory"}});
    Close(7);

    EXPECT_THAT(
        LastEvent(),
        AllOf(HasActivityField("rk", "exception"),
              HasActivityField(
                  "rv", LogValue::Object({{"type", "std::bad_alloc"}, {"msg", "no memory"}}))));
}

TEST_F(MetricsMonitorAttributeTest, TheLastResultKeyCountsAndAllPairsStay) {
    Open(7, "query");

    AddResult(7, {{"rk", "early-termination"}, {"type", "canceled"}});
    AddResult(7, {{"msg", "why"}, {"rk", "exception"}, {"type", "later"}});
    Close(7);

    EXPECT_THAT(
        LastEvent(),
        AllOf(HasActivityField("rk", "exception"),
              HasActivityField("rv", LogValue::Object({{"type", "later"}, {"msg", "why"}}))));
}

TEST_F(MetricsMonitorAttributeTest, ResultsAreTextsWhateverTheirKind) {
    Open(7, "query");

    AddResult(7,
              {{"rk", 5},
               {"integer", -7},
               {"flag", true},
               {"real", 1234567.0},
               {"quoted", "say \"no\""},
               {"apostrophes", "'it''s'"},
               {9, "name"}});
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("rk", "5"),
                      HasActivityField("rv",
                                       LogValue::Object({{"integer", "-7"},
                                                         {"flag", "true"},
                                                         {"real", "1.23457e+06"},
                                                         {"quoted", "\"say \"\"no\"\"\""},
                                                         {"apostrophes", "its"},
                                                         {"9", "name"}}))));
}

TEST_F(MetricsMonitorAttributeTest, AResultWithoutAKeyKeepsTheKey) {
    Open(7, "query");

    AddResult(7, {{"msg", "fine"}});
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("rk", "ok"),
                      HasActivityField("rv", LogValue::Object({{"msg", "fine"}}))));
}

TEST_F(MetricsMonitorAttributeTest, TheNamesTidAndCmdNameMeanNothingInAResult) {
    Open(7, "query", {{"tid", 40}});

    AddResult(7, {{"tid", 50}, {"cmd-name", "select"}});
    Close(7);

    EXPECT_THAT(
        LastEvent(),
        AllOf(HasThreadId(40),
              HasActivityField("rv", LogValue::Object({{"tid", "50"}, {"cmd-name", "select"}}))));
}

// ---- Log supplements; their form is the log event's.

TEST_F(MetricsMonitorAttributeTest, ASupplementNeedsNoListNameOfItsOwn) {
    Open(7, "query");
    Metrics::MetricsEvent event = EventBuilder::Supplement(7, {{"step", 1}});
    event.name = Metrics::MetricsValue("resultAttrs");

    Send(event);
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasExactlyBodyFields({"logs"}), HasActivityField("rk", "ok")));
}

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
    AddToContext("reqCtxAttrs", {{"user", "ada"}});
    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasUser("-"));

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

TEST_F(MetricsMonitorAttributeTest, AMappableListOfMappedNamesAloneMakesNoLayer) {
    Open(7, "query");
    AddToContext("ctx", {{"base", 1}});

    AddToContext("mctx", {{"user", "ada"}, {"sid", "s-1"}});
    Send(EventBuilder::PostClose(rootContext));
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(HasUser("ada"), HasSession("s-1"), HasExactlyAttributes({"vw", "wb"})));
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

TEST_F(MetricsMonitorAttributeTest, AnEmptyMappableListMakesNoLayer) {
    AddToContext("ctx", {{"tenant", "blue"}});

    AddToContext("mctx", {});
    Send(EventBuilder::PostClose(rootContext));

    Open(7, "query");
    EXPECT_THAT(LastEvent(), LacksAttribute("tenant"));
}

// ---- What a child's request gives to its parent's.

class ParentRequestTest : public MetricsMonitorAttributeTest {
protected:
    static constexpr uint64 childContext = 2;

    /// Parent and child with a request each: the child's context is there before the parent's
    /// first scope.
    void OpenBoth() {
        OpenContext(childContext, rootContext);
        Send(EventBuilder::OpenScope(8, "child").In(childContext));
        Open(7, "parent");
    }

    void CloseChild() { Send(EventBuilder::CloseScope(8).In(childContext)); }

    void AddToChildsRequest(const Metrics::NameValueList& pairs) {
        Send(EventBuilder::ContextPairs(childContext, "reqCtxAttrs", pairs));
    }
};

TEST_F(ParentRequestTest, WorkbookAndViewOfAChildGoToTheParentAtItsEnd) {
    EnableForegroundContexts();
    OpenBoth();
    AddToChildsRequest({{"vw", "view"}, {"wb", "book"}, {"user", "ada"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(
        LastEvent(),
        AllOf(
            Ends("parent"), HasAttribute("vw", "view"), HasAttribute("wb", "book"), HasUser("-")));
}

TEST_F(ParentRequestTest, WithoutForegroundContextsNothingGoesToTheParent) {
    OpenBoth();
    AddToChildsRequest({{"vw", "view"}, {"wb", "book"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("parent"), HasAttribute("vw", "-"), HasAttribute("wb", "-")));
}

TEST_F(ParentRequestTest, OnlyWhatTheChildHasReplacesWhatTheParentHas) {
    EnableForegroundContexts();
    OpenBoth();
    AddToContext("reqCtxAttrs", {{"vw", "parents"}, {"wb", "parents"}});
    AddToChildsRequest({{"vw", "childs"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("parent"), HasAttribute("vw", "childs"), HasAttribute("wb", "parents")));
}

TEST_F(ParentRequestTest, AnUnloggedTransparentChildGivesItsWorkbookToo) {
    EnableForegroundContexts();
    OpenContext(childContext, rootContext);
    Send(EventBuilder::OpenScope(8, "child").In(childContext).Transparent());
    Open(7, "parent");
    AddToChildsRequest({{"wb", "book"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("parent"), HasAttribute("wb", "book")));
}

TEST_F(ParentRequestTest, AParentWithoutARequestGetsOneEvenIfThereIsNothingToGive) {
    EnableForegroundContexts();
    OpenContext(childContext, rootContext);
    Send(EventBuilder::OpenScope(8, "child").In(childContext));
    HostCounters counters;

    CloseChild();

    EXPECT_EQ(counters.requestContextsCreated, 1);
    EXPECT_EQ(counters.requestContextsClosed, 0);
    Send(EventBuilder::CloseContext(rootContext));
    EXPECT_EQ(counters.requestContextsClosed, 1);
}

TEST_F(ParentRequestTest, AParentThatIsGoneGetsNothingAndStaysUnknown) {
    EnableForegroundContexts();
    OpenBoth();
    AddToChildsRequest({{"wb", "book"}});
    Send(EventBuilder::CloseContext(rootContext));

    CloseChild();

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
    EXPECT_THAT(LastEvent(), AllOf(Ends("child"), HasAttribute("wb", "book")));
}

TEST_F(ParentRequestTest, AChildThatIsCreatedAgainAsARootGivesNothingAnyMore) {
    EnableForegroundContexts();
    OpenBoth();
    AddToChildsRequest({{"wb", "book"}});

    Send(EventBuilder::CreateContext(childContext, 0));
    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("parent"), HasAttribute("wb", "-")));
}

TEST_F(ParentRequestTest, AChildThatIsCreatedAgainUnderAnotherParentGivesToThatOne) {
    constexpr uint64 otherContext = 3;
    EnableForegroundContexts();
    OpenBoth();
    OpenContext(otherContext);
    Send(EventBuilder::OpenScope(9, "other").In(otherContext));

    Send(EventBuilder::CreateContext(childContext, otherContext));
    AddToChildsRequest({{"wb", "book"}});
    CloseChild();

    Close(7);
    EXPECT_THAT(LastEvent(), AllOf(Ends("parent"), HasAttribute("wb", "-")));
    Send(EventBuilder::CloseScope(9).In(otherContext));
    EXPECT_THAT(LastEvent(), AllOf(Ends("other"), HasAttribute("wb", "book")));
}

TEST_F(ParentRequestTest, AContextWithTheIdZeroIsNobodysParent) {
    EnableForegroundContexts();
    OpenContext(0);
    HostCounters counters;
    Open(7, "query");

    Close(7);

    EXPECT_EQ(counters.requestContextsCreated, 1);
}

TEST_F(ParentRequestTest, AScopeOfARootContextGivesNothingToAnyone) {
    EnableForegroundContexts();
    HostCounters counters;
    Open(7, "query");
    AddToContext("reqCtxAttrs", {{"wb", "book"}});

    Close(7);

    EXPECT_EQ(counters.requestContextsCreated, 1);
    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
}

TEST_F(ParentRequestTest, ADroppedChildGivesNothing) {
    EnableForegroundContexts();
    OpenBoth();
    Send(EventBuilder::OpenScope(9, "inner").In(childContext));
    AddToChildsRequest({{"wb", "book"}});

    CloseChild();
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("parent"), HasAttribute("wb", "-")));
}

}  // namespace
