#include "MetricsMonitorAttributeTest.h"

#include "MonitorNames.h"

#include <initializer_list>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasThreadId;
using tarn::test::LogValue;
using tarn::test::MetricsMonitorAttributeTest;
using testing::AllOf;
using testing::ElementsAre;

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

}  // namespace
