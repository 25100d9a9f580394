// That the tests' own tools tell right from wrong.
#include "Matchers.h"
#include "MonitorTest.h"
#include "ScopeTree.h"

#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::DrawScopeTree;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::HasBodyField;
using tarn::test::HasExactlyBodyFields;
using tarn::test::HasUser;
using tarn::test::KnownIds;
using tarn::test::LacksBodyField;
using tarn::test::LogValue;
using testing::Not;

class TestSupportTest : public tarn::test::MonitorTest {};

TEST_F(TestSupportTest, MatchersTellPhasesAndNamesApart) {
    Open(7, "query");

    EXPECT_THAT(LastEvent(), Begins("query"));
    EXPECT_THAT(LastEvent(), Not(Ends("query")));
    EXPECT_THAT(LastEvent(), Not(Begins("load")));
}

TEST_F(TestSupportTest, MatchersTellTheKindsOfValuesApart) {
    Open(7, "query", {{"rows", 5}, {"flag", true}});

    EXPECT_THAT(LastEvent(), HasBodyField("rows", 5));
    EXPECT_THAT(LastEvent(), Not(HasBodyField("rows", 5.0)));
    EXPECT_THAT(LastEvent(), Not(HasBodyField("rows", "5")));
    EXPECT_THAT(LastEvent(), Not(HasBodyField("flag", "true")));
    EXPECT_THAT(LastEvent(), Not(HasBodyField("flag", 1)));
}

TEST_F(TestSupportTest, MatchersTellTablesAndMissingFieldsApart) {
    Open(7, "query", {{"rows", 5}});

    EXPECT_THAT(LastEvent(), Not(HasActivityField("rows", 5)));
    EXPECT_THAT(LastEvent(), Not(HasBodyField("pages", 5)));
    EXPECT_THAT(LastEvent(), Not(LacksBodyField("rows")));
    EXPECT_THAT(LastEvent(), Not(HasExactlyBodyFields({})));
    EXPECT_THAT(LastEvent(), Not(HasExactlyBodyFields({"rows", "pages"})));
    EXPECT_THAT(LastEvent(), Not(HasUser("ada")));
}

TEST_F(TestSupportTest, ValuesReadAsText) {
    EXPECT_EQ(LogValue::Object({{"b", 2.0}, {"a", LogValue::Array({"x\"y", true})}}).Text(),
              R"({"a": ["x\"y", true], "b": 2.0})");
    EXPECT_EQ(LogValue::Of(nullptr).Text(), "missing");
    EXPECT_EQ(LogValue::Of(TLog::Literal::Null().get()).Text(), "null");
    EXPECT_EQ(LogValue::Of(TLog::Literal::Double(0.5, 1).get()).Text(), "fixed 0.5");
}

TEST_F(TestSupportTest, TextsThatDifferInAnythingAreDifferentValues) {
    const std::vector<LogValue> values{TString(std::u16string_view(u"a\xD800", 2)),
                                       TString(std::u16string_view(u"a\xDC00", 2)),
                                       TString(std::u16string_view(u"a\xDC00\xD800", 3)),
                                       "a\uFFFD",
                                       "a\\uD800",
                                       "a\U00010000",
                                       "a\n",
                                       "a\\n",
                                       std::string("a\0", 2),
                                       "a\\0",
                                       "a\"",
                                       "a"};

    for (const LogValue& a : values) {
        for (const LogValue& b : values) {
            EXPECT_EQ(a == b, &a == &b) << a.Text() << " and " << b.Text();
        }
    }
    EXPECT_EQ(LogValue(TString(u"a\U0001D11E")), LogValue("a\U0001D11E"));
}

TEST_F(TestSupportTest, ATreeShowsWhatIsOpenAndWhatFailed) {
    Open(7, "load");
    Open(8, "parse");
    Send(EventBuilder::ScopePairs(8, "resultAttrs", {{"rk", "exception"}}));
    Close(8);
    Open(9, "store");

    EXPECT_EQ(DrawScopeTree(*events),
              "load (open)\n"
              "  parse: exception\n"
              "  store (open)\n");
}

TEST_F(TestSupportTest, ATreeShowsWhatHasNoSponsorAndNoBeginning) {
    Open(7, "load");
    Open(8, "parse");
    Open(9, "header");
    Close(9);
    const tarn::test::CapturedEvents withoutTheFirstTwo(events->begin() + 2, events->end());
    const tarn::test::CapturedEvents endsAlone(events->begin() + 3, events->end());

    EXPECT_EQ(DrawScopeTree(withoutTheFirstTwo), "[2] header\n");
    EXPECT_EQ(DrawScopeTree(endsAlone), "[2] header (no begin)\n");
}

TEST_F(TestSupportTest, KnownIdsCountInHexadecimal) {
    EXPECT_EQ(KnownIds::Text(1), "00000000-0000-4000-8000-000000000001");
    EXPECT_EQ(KnownIds::Text(255), "00000000-0000-4000-8000-0000000000FF");
}

}  // namespace
