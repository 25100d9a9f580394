#include "ActivityLogEventTest.h"

#include "tarn/OptTarn.h"

#include "cvlsys/TSystem.h"

#include <chrono>
#include <limits>
#include <optional>
#include <ratio>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::ActivityLogEventTest;
using tarn::test::Begins;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::Field;
using tarn::test::ForegroundPairs;
using tarn::test::HappensAt;
using tarn::test::HasActivityField;
using tarn::test::HasAttribute;
using tarn::test::HasBodyField;
using tarn::test::HasEnvironmentField;
using tarn::test::HasExactlyActivityFields;
using tarn::test::HasExactlyAttributes;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasExactlyEnvironmentFields;
using tarn::test::HasProcessId;
using tarn::test::HasRequest;
using tarn::test::HasSession;
using tarn::test::HasSite;
using tarn::test::HasThreadId;
using tarn::test::HasUser;
using tarn::test::KnownIds;
using tarn::test::LacksActivityField;
using tarn::test::LogValue;
using tarn::test::Table;
using testing::AllOf;

// ---- Which fields an event has.

TEST_F(ActivityLogEventTest, TheBeginningOfARootHasTheseFieldsAndNoOthers) {
    OptTarn::SetIsTarnPlatforms(true);
    OptTarn::SetServerEnvironment(u"staging");

    Open(7, "query", {{"rows", 12}});

    EXPECT_THAT(LastEvent(),
                AllOf(Begins("query"),
                      HasExactlyActivityFields({"depth", "id", "name", "req-desc", "type"}),
                      HasExactlyEnvironmentFields({}),
                      HasExactlyAttributes({"vw", "wb"}),
                      HasExactlyBodyFields({"rows"})));
}

TEST_F(ActivityLogEventTest, TheEndOfARootHasTheseFieldsAndNoOthers) {
    OptTarn::SetServerEnvironment(u"staging");
    Open(7, "query", {{"rows", 12}});
    Send(EventBuilder::ScopeValue(7, "pages", 3));
    Send(EventBuilder::Supplement(7, {{"step", 1}}));

    Close(7);

    EXPECT_THAT(
        LastEvent(),
        AllOf(Ends("query"),
              HasExactlyActivityFields(
                  {"depth", "elapsed", "exclusive", "id", "name", "req-desc", "rk", "rv", "type"}),
              HasExactlyEnvironmentFields({"env", "host"}),
              HasExactlyAttributes({"vw", "wb"}),
              HasExactlyBodyFields({"logs", "pages"})));
}

TEST_F(ActivityLogEventTest, TheBeginningOfANestedScopeNamesSponsorAndRoot) {
    Open(7, "outer");

    Open(8, "inner");

    EXPECT_THAT(LastEvent(),
                AllOf(HasExactlyActivityFields({"depth", "id", "name", "root", "sponsor", "type"}),
                      HasExactlyEnvironmentFields({})));
}

TEST_F(ActivityLogEventTest, TheEndOfANestedScopeHasNeitherDescriptionNorEnvironment) {
    OptTarn::SetServerEnvironment(u"staging");
    Open(7, "outer");
    AddToRequest({{"req-desc", "load"}});
    Open(8, "inner");

    Close(8);

    EXPECT_THAT(LastEvent(),
                AllOf(HasExactlyActivityFields({"depth",
                                                "elapsed",
                                                "exclusive",
                                                "id",
                                                "name",
                                                "rk",
                                                "root",
                                                "rv",
                                                "sponsor",
                                                "type"}),
                      HasExactlyEnvironmentFields({}),
                      HasExactlyAttributes({"vw", "wb"}),
                      HasExactlyBodyFields({})));
}

TEST_F(ActivityLogEventTest, FailedChildrenAddTwoFields) {
    Open(7, "outer");
    for (const char* const result : {"exception", "early-termination"}) {
        Open(8, "inner");
        Send(EventBuilder::ScopePairs(8, "resultAttrs", {{"rk", result}}));
        Close(8);
    }

    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasActivityField("rnerr", 1), HasActivityField("rnterm", 1)));
}

TEST_F(ActivityLogEventTest, TheDescriptionIsGivenAtDepthZeroWhateverTheScope) {
    EnableForegroundContexts();
    Open(7, "outer", ForegroundPairs{.traceDepth = 0});

    Open(8, "same-depth", ForegroundPairs{.traceDepth = 0});
    EXPECT_THAT(LastEvent(), HasActivityField("req-desc", "-"));
    Open(9, "deeper", ForegroundPairs{.traceDepth = 3});
    EXPECT_THAT(LastEvent(), LacksActivityField("req-desc"));
    Close(9);
    EXPECT_THAT(LastEvent(), HasExactlyEnvironmentFields({}));
    Close(8);

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("req-desc", "-"), HasExactlyEnvironmentFields({"host"})));
}

TEST_F(ActivityLogEventTest, TheServiceDepthIsABodyFieldAmongForegroundContextsOnly) {
    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({}));
    Close(7);
    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({}));
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.serviceDepth = 4});
    EXPECT_THAT(LastEvent(), HasBodyField("sDepth", 4));
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(Ends("query"), HasBodyField("sDepth", 4)));
}

TEST_F(ActivityLogEventTest, TheServiceDepthReplacesAnAttributeOfItsName) {
    EnableForegroundContexts();
    Open(7, "query", ForegroundPairs{.serviceDepth = 4});

    Send(EventBuilder::ScopeValue(7, "sDepth", "mine"));
    Close(7);

    EXPECT_THAT(LastEvent(), HasBodyField("sDepth", 4));
}

TEST_F(ActivityLogEventTest, TheLogsReplaceAnAttributeOfTheirName) {
    Open(7, "query");
    Send(EventBuilder::ScopeValue(7, "logs", "mine"));
    Send(EventBuilder::Supplement(7, {{"step", 1}}));

    Close(7);

    EXPECT_NE(Field(LastEvent(), Table::Body, "logs"), LogValue("mine"));
}

TEST_F(ActivityLogEventTest, WithoutSupplementsAnAttributeNamedLogsIsKept) {
    Open(7, "query");
    Send(EventBuilder::ScopeValue(7, "logs", "mine"));

    Close(7);

    EXPECT_THAT(LastEvent(), HasBodyField("logs", "mine"));
}

// ---- Identity.

TEST_F(ActivityLogEventTest, IdsAreInUpperCaseWithHyphens) {
    *idsMade = 0xABCDEE;

    Open(7, "query");

    EXPECT_THAT(LastEvent(), HasActivityField("id", "00000000-0000-4000-8000-000000ABCDEF"));
}

TEST_F(ActivityLogEventTest, TheIdentityOfANestedScopeIsItsIdItsSponsorAndItsRoot) {
    Open(7, "outer");
    Open(8, "middle");

    Open(9, "inner");

    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", KnownIds::Text(3)),
                      HasActivityField("sponsor", KnownIds::Text(2)),
                      HasActivityField("root", KnownIds::Text(1)),
                      HasActivityField("name", "inner"),
                      HasActivityField("depth", 2),
                      HasActivityField("type", "begin")));
    Close(9);
    EXPECT_THAT(LastEvent(),
                AllOf(HasActivityField("id", KnownIds::Text(3)),
                      HasActivityField("sponsor", KnownIds::Text(2)),
                      HasActivityField("root", KnownIds::Text(1)),
                      HasActivityField("name", "inner"),
                      HasActivityField("depth", 2),
                      HasActivityField("type", "end")));
}

TEST_F(ActivityLogEventTest, ForegroundIdentityByDepth) {
    EnableForegroundContexts();

    struct Row {
        int depth;
        const char* id;
        const char* root;
        const char* sponsor;
    };

    Open(7, "sponsor", ForegroundPairs{.traceDepth = 1, .root = "R0", .own = "S"});
    for (const Row& row : {Row{0, "R", nullptr, nullptr},
                           Row{1, "A", "R", "R"},
                           Row{2, "A", "R", "S"},
                           Row{3, "A", "R", "S"},
                           Row{1000000, "A", "R", "S"}}) {
        Open(8, "query", ForegroundPairs{.traceDepth = row.depth, .root = "R", .own = "A"});
        Close(8);

        for (const TLog::Event& event : {*(events->end() - 2), events->back()}) {
            EXPECT_THAT(event, HasActivityField("id", row.id)) << row.depth;
            EXPECT_THAT(event, HasActivityField("depth", row.depth));
            EXPECT_EQ(Field(event, Table::Activity, "root"),
                      row.root == nullptr ? std::nullopt : std::optional<LogValue>(row.root));
            EXPECT_EQ(Field(event, Table::Activity, "sponsor"),
                      row.sponsor == nullptr ? std::nullopt : std::optional<LogValue>(row.sponsor));
        }
    }
}

TEST_F(ActivityLogEventTest, ANegativeForegroundDepthShowsTheIdsOfDepthZeroAndNoDescription) {
    EnableForegroundContexts();

    Open(7, "query", ForegroundPairs{.traceDepth = -1, .root = "R", .own = "A"});

    EXPECT_THAT(LastEvent(),
                AllOf(HasExactlyActivityFields({"depth", "id", "name", "type"}),
                      HasActivityField("id", "R"),
                      HasActivityField("depth", -1)));
}

TEST_F(ActivityLogEventTest, AScopesNameIsReadWithTheQuotingRule) {
    const std::vector<std::pair<Metrics::MetricsValue, std::string>> names = {
        {"query", "query"},
        {L"gr\u00FC\u00DFe", "gr\u00FC\u00DFe"},
        {"'it''s'", "its"},
        {"say \"no\"", "\"say \"\"no\"\"\""},
        {"two\nlines", "\"two\nlines\""},
        {"", ""},
        {-12, "-12"},
        {true, "true"}};
    for (const auto& [name, text] : names) {
        Send(EventBuilder::OpenScope(7, name).In(rootContext));
        EXPECT_THAT(LastEvent(), AllOf(Begins(text), HasActivityField("name", text)));
        Close(7);
        EXPECT_THAT(LastEvent(), AllOf(Ends(text), HasActivityField("name", text)));
    }
}

TEST_F(ActivityLogEventTest, ANameEndsAtItsFirstNul) {
    Send(EventBuilder::OpenScope(7, std::string("que\0ry", 6)).In(rootContext));

    EXPECT_THAT(LastEvent(), Begins("que"));
}

TEST_F(ActivityLogEventTest, AnAttributeMayNotOverwriteTheIdentity) {
    Open(7, "query", {{"id", "mine"}, {"name", "mine"}, {"type", "mine"}, {"depth", 9}});

    EXPECT_THAT(LastEvent(),
                AllOf(Begins("query"),
                      HasActivityField("id", KnownIds::Text(1)),
                      HasActivityField("name", "query"),
                      HasActivityField("depth", 0),
                      HasBodyField("id", "mine"),
                      HasBodyField("depth", 9)));
}

// ---- Host and environment.

TEST_F(ActivityLogEventTest, TheEnvironmentIsWrittenUnlessItIsEmpty) {
    Open(7, "query");
    Close(7);
    EXPECT_THAT(LastEvent(), HasExactlyEnvironmentFields({"host"}));
    OptTarn::SetServerEnvironment(u"staging");

    Open(7, "query");
    Close(7);

    EXPECT_THAT(LastEvent(), HasEnvironmentField("env", "staging"));
}

TEST_F(ActivityLogEventTest, TheHostIsReadOnceAndKept) {
    Open(7, "query");
    Close(7);
    const auto host = Field(LastEvent(), Table::Environment, "host");
    ASSERT_NE(host, std::nullopt);

    OptTarn::SetHostName(u"another");
    Open(7, "query");
    Close(7);

    EXPECT_EQ(Field(LastEvent(), Table::Environment, "host"), host);
    EXPECT_NE(host, LogValue("another"));
}

// ---- Attributes.

TEST_F(ActivityLogEventTest, ValuesKeepTheirKinds) {
    const Metrics::NameValueList pairs = {{"integer", -5},
                                          {"least", std::numeric_limits<int64>::min()},
                                          {"yes", true},
                                          {"no", false},
                                          {"real", 1.5},
                                          {"whole", 2.0},
                                          {"narrow", "n"},
                                          {"wide", L"w"},
                                          {"empty", ""}};
    AddLayer(pairs);

    Open(7, "query", pairs);

    for (const Table table : {Table::Body, Table::Attributes}) {
        EXPECT_EQ(Field(LastEvent(), table, "integer"), LogValue(-5));
        EXPECT_EQ(Field(LastEvent(), table, "least"), LogValue(std::numeric_limits<int64>::min()));
        EXPECT_EQ(Field(LastEvent(), table, "yes"), LogValue(true));
        EXPECT_EQ(Field(LastEvent(), table, "no"), LogValue(false));
        EXPECT_EQ(Field(LastEvent(), table, "real"), LogValue(1.5));
        EXPECT_EQ(Field(LastEvent(), table, "whole"), LogValue(2.0));
        EXPECT_EQ(Field(LastEvent(), table, "narrow"), LogValue("n"));
        EXPECT_EQ(Field(LastEvent(), table, "wide"), LogValue("w"));
        EXPECT_EQ(Field(LastEvent(), table, "empty"), LogValue(""));
    }
}

TEST_F(ActivityLogEventTest, TextsOfTheBodyAreNotQuoted) {
    Open(7,
         "query",
         {{"apostrophes", "'it''s'"},
          {"quotes", "say \"no\""},
          {"lines", L"two\nlines"},
          {"nul", std::string("a\0b", 3)}});

    EXPECT_THAT(LastEvent(),
                AllOf(HasBodyField("apostrophes", "'it''s'"),
                      HasBodyField("quotes", "say \"no\""),
                      HasBodyField("lines", "two\nlines"),
                      HasBodyField("nul", "a")));
}

TEST_F(ActivityLogEventTest, AValueOfAnUnknownKindIsTheIntegerZeroInTheBody) {
    Metrics::MetricsValue unknown("text");
    unknown.type = 5;

    Open(7, "query", {{"unknown", unknown}});
    EXPECT_THAT(LastEvent(), HasBodyField("unknown", 0));
    Send(EventBuilder::Supplement(7, {{"unknown", unknown}}));
    Close(7);

    const auto logs = Field(LastEvent(), Table::Body, "logs");
    ASSERT_NE(logs, std::nullopt);
    EXPECT_THAT(logs->Text(), testing::HasSubstr("\"unknown\": 0"));
}

TEST_F(ActivityLogEventTest, ANameOfAnUnknownKindIsEmpty) {
    Metrics::MetricsValue unknown("text");
    unknown.type = 5;

    Open(7, "query", {{unknown, 12}});

    EXPECT_THAT(LastEvent(), HasExactlyBodyFields({""}));
}

TEST_F(ActivityLogEventTest, LaterLayersReplaceEarlierOnes) {
    AddLayer({{"tenant", "blue"}, {"shard", 3}});
    AddLayer({{"shard", "four"}});

    Open(7, "query");

    EXPECT_THAT(LastEvent(),
                AllOf(HasExactlyAttributes({"shard", "tenant", "vw", "wb"}),
                      HasAttribute("shard", "four"),
                      HasAttribute("tenant", "blue")));
}

TEST_F(ActivityLogEventTest, WorkbookAndViewComeFromTheRequestAndNeverFromALayer) {
    AddLayer({{"wb", "layer"}, {"vw", "layer"}});

    Open(7, "query");
    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("wb", "-"), HasAttribute("vw", "-")));
    AddToRequest({{"wb", "book"}, {"vw", "view"}});
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasAttribute("wb", "book"), HasAttribute("vw", "view")));
}

TEST_F(ActivityLogEventTest, AttributesOfTheRequestAreNoFieldsOfTheEvent) {
    Open(7, "query");
    AddToRequest({{"user", "ada"}, {"anything", 1}, {"sid", "s-1"}});

    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasExactlyAttributes({"vw", "wb"}), HasExactlyBodyFields({})));
}

TEST_F(ActivityLogEventTest, TextsThatAreRequiredEndAtTheirFirstNulAndAreNotQuoted) {
    Open(7, "query");
    AddToRequest({{"user", std::string("a\0da", 4)}, {"sid", "'s'"}, {"wb", "a \"b\""}});

    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasUser("a"), HasSession("'s'"), HasAttribute("wb", "a \"b\"")));
}

// ---- The event's information.

static_assert(
    std::is_same_v<TLog::EventTimePoint,
                   std::chrono::time_point<std::chrono::system_clock,
                                           std::chrono::duration<int64, std::ratio<1, 10000000>>>>);

TEST_F(ActivityLogEventTest, TheTimeIsInTicksOfAHundredNanoseconds) {
    Send(EventBuilder::OpenScope(7, "query").In(rootContext).Wall(1'700'000'000, 250'000));
    EXPECT_THAT(LastEvent(), HappensAt(17'000'000'002'500'000));

    Send(EventBuilder::CloseScope(7).In(rootContext).Wall(1'700'000'001, 1).At(99));

    EXPECT_THAT(LastEvent(), HappensAt(17'000'000'010'000'010));
}

TEST_F(ActivityLogEventTest, WithoutAnAttributeTheProcessIsThisOne) {
    Open(7, "query");
    EXPECT_THAT(LastEvent(), HasProcessId(TSystem::ProcessID()));

    AddToRequest({{"pid", 4711}});
    Close(7);

    EXPECT_THAT(LastEvent(), HasProcessId(4711));
}

TEST_F(ActivityLogEventTest, AProcessIdKeepsItsLowHalf) {
    Open(7, "query");
    AddToRequest({{"pid", 0x1'0000'0005}});

    Close(7);

    EXPECT_THAT(LastEvent(), HasProcessId(5));
}

TEST_F(ActivityLogEventTest, AProcessIdThatIsNoIntegerReadsAsZero) {
    Open(7, "query");
    AddToRequest({{"pid", "4711"}});

    EXPECT_NO_THROW(Close(7));

    EXPECT_THAT(LastEvent(), HasProcessId(0));
}

TEST_F(ActivityLogEventTest, TheThreadIsTheScopesThread) {
    Open(7, "query", {{"tid", -1}});

    EXPECT_THAT(LastEvent(), HasThreadId(std::numeric_limits<uint64>::max()));
}

TEST_F(ActivityLogEventTest, SessionUserAndSiteHaveAPlaceholder) {
    OptTarn::SetIsServer(true);
    Open(7, "query");
    EXPECT_THAT(LastEvent(), AllOf(HasSession("-"), HasUser("-"), HasSite("-")));

    AddToRequest({{"sid", "s-1"}, {"user", L"ada"}, {"site", "north"}});
    Close(7);

    EXPECT_THAT(LastEvent(), AllOf(HasSession("s-1"), HasUser("ada"), HasSite("north")));
}

TEST_F(ActivityLogEventTest, OutsideAServerTheSiteIsTheDefaultSite) {
    OptTarn::SetDefaultSiteNameGet(u"home");
    Open(7, "query");
    AddToRequest({{"site", "north"}});

    Close(7);
    EXPECT_THAT(LastEvent(), HasSite("home"));
    OptTarn::SetDefaultSiteNameGet(u"");
    Open(8, "query");

    EXPECT_THAT(LastEvent(), HasSite(""));
}

TEST_F(ActivityLogEventTest, TheRequestComesFromTheRequestsAttribute) {
    Open(7, "query");
    AddToRequest({{"rid", "r-1"}});

    Close(7);

    EXPECT_THAT(LastEvent(), HasRequest("r-1"));
}

TEST_F(ActivityLogEventTest, WithoutAnyRequestIdEachEventGetsAFreshOne) {
    for (int i = 0; i < 10; ++i) {
        Open(7, "query");
        Close(7);
    }

    std::set<std::string> requests;
    for (const TLog::Event& event : *events) {
        requests.insert(event.GetActivityInfo()->GetRequestId().ToUtf8());
    }
    EXPECT_EQ(requests.size(), 20U);
    EXPECT_EQ(requests.count("-"), 0U);
    EXPECT_EQ(requests.count(""), 0U);
    EXPECT_EQ(*idsMade, 10) << "request ids are not taken from the generator of activity ids";
}

TEST_F(ActivityLogEventTest, ThePlaceholderAsARequestsAttributeIsNoRequestIdEither) {
    Open(7, "query");
    AddToRequest({{"rid", "-"}});

    Close(7);

    EXPECT_THAT(LastEvent(), testing::Not(HasRequest("-")));
}

TEST_F(ActivityLogEventTest, AnEmptyRequestIdIsARequestId) {
    Open(7, "query");
    AddToRequest({{"rid", ""}});

    Close(7);

    EXPECT_THAT(LastEvent(), HasRequest(""));
}

TEST_F(ActivityLogEventTest, AScopeWhoseContextIsGoneIsLoggedWithPlaceholders) {
    // The scope's record says context 2, while the root context has its id on top as well.
    OptTarn::SetIsServer(true);
    OpenContext(2);
    Open(7, "query");
    AddToRequest({{"user", "ada"}});
    Send(EventBuilder::ContextPairs(2, "ctx", {{"tenant", "blue"}}));
    Send(EventBuilder::OpenScope(7, "elsewhere").In(2));
    Send(EventBuilder::CloseContext(2));

    Close(7);

    EXPECT_THAT(LastEvent(),
                AllOf(Ends("elsewhere"),
                      HasProcessId(TSystem::ProcessID()),
                      HasUser("-"),
                      HasSession("-"),
                      HasSite("-"),
                      HasActivityField("req-desc", "-"),
                      HasExactlyAttributes({"vw", "wb"})));
}

TEST_F(ActivityLogEventTest, AForegroundScopeWhoseContextIsGoneIsLoggedToo) {
    EnableForegroundContexts();
    OpenContext(2, rootContext);
    Open(7, "query");
    Send(EventBuilder::OpenScope(7, "elsewhere").In(2));
    Send(EventBuilder::CloseContext(2));

    EXPECT_NO_THROW(Close(7));

    EXPECT_THAT(LastEvent(), Ends("elsewhere"));
    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
}

TEST_F(ActivityLogEventTest, EventsGivenToTheSinkStayAsTheyAre) {
    Open(7, "query", {{"rows", 12}});
    const TLog::Event beginning = LastEvent();

    Send(EventBuilder::ScopeValue(7, "rows", 13));
    AddLayer({{"tenant", "blue"}});
    Close(7);

    EXPECT_THAT(beginning, AllOf(HasBodyField("rows", 12), HasExactlyAttributes({"vw", "wb"})));
}

}  // namespace
