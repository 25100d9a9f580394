#include "expression/Expression.h"

#include "output/ExpressionText.h"

#include <string>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// 12.345 ms, failed, of ada, with attributes of both lines.
Activity Sample() {
    Activity activity;
    activity.id = "A1";
    activity.name = "load";
    activity.root = "R1";
    activity.user = "ada";
    activity.site = "-";
    activity.process.number = 100;
    activity.beginThread = 7;
    activity.depth = 2;
    activity.hasBegin = activity.hasEnd = true;
    activity.begin = 1'772'359'200'000'000;  // 2026-03-01T10:00:00Z
    activity.end = activity.begin + 12'345;
    activity.elapsed = 0.012;
    activity.exclusive = 0.002;
    activity.result = "exception";
    activity.figures.hasCpu = activity.figures.hasAllocated = true;
    activity.figures.ki = 300;
    activity.figures.ui = 700;
    activity.figures.ai = 2'000'000;
    activity.resultDetails = R"({"msg":"disk \"a\" is full","type":"DiskFull"})";
    activity.attributes = R"({"tenant":"north","vw":"-"})";
    activity.beginBody = R"({"shard":3,"path":"/a","phase":"begin","big":9007199254740993})";
    activity.endBody =
        R"({"rows":"17","cached":false,"hit":true,"none":null,"phase":"end","a name":1.5})";
    return activity;
}

bool Matches(const std::string& text, const Activity& activity = Sample()) {
    return Expression(text).Matches(activity);
}

// The place of the error and its message; "no error" if there is none.
std::string ErrorOf(const std::string& text) {
    try {
        Expression{text};
    } catch (const ExpressionError& error) {
        return std::to_string(error.Position()) + ": " + error.what();
    }
    return "no error";
}

TEST(ExpressionTest, ComparesTextsOfTheActivity) {
    EXPECT_TRUE(Matches("user == \"ada\""));
    EXPECT_TRUE(Matches("user = 'ada'"));
    EXPECT_FALSE(Matches("user == \"bob\""));
    EXPECT_TRUE(Matches("user != \"bob\""));
    EXPECT_TRUE(Matches("user < \"b\" and id == \"A1\" and root == \"R1\""));
    EXPECT_TRUE(Matches("result == 'exception'"));
}

TEST(ExpressionTest, ComparesDurationsToTheMicrosecond) {
    EXPECT_TRUE(Matches("elapsed == 12345us"));
    EXPECT_TRUE(Matches("elapsed == 12.345ms"));
    EXPECT_TRUE(Matches("elapsed > 12344us and elapsed < 12346us"));
    EXPECT_FALSE(Matches("elapsed > 12345us or elapsed < 12345us"));
    EXPECT_TRUE(Matches("elapsed >= 12345us and elapsed <= 12345us"));
    EXPECT_TRUE(Matches("elapsed < 1s and elapsed < 1m and elapsed < 1min and elapsed < 1h"));
    EXPECT_TRUE(Matches("5ms < elapsed"));
    EXPECT_TRUE(Matches("cpu == 1ms and cpu < elapsed"));
}

TEST(ExpressionTest, ComparesSizesWithSizesAndWithNumbersOfBytes) {
    EXPECT_TRUE(Matches("memory == 2MB"));
    EXPECT_TRUE(Matches("memory > 1999kB and memory < 2000001"));
    EXPECT_TRUE(Matches("body.rows < 1kB"));
}

TEST(ExpressionTest, ComparesTimesWithTheirShortForms) {
    EXPECT_TRUE(Matches("begin >= \"2026-03-01\" and begin < '2026-03-02'"));
    EXPECT_TRUE(Matches("begin == \"2026-03-01T10:00\" and end > begin"));
}

TEST(ExpressionTest, AttributesOfBothLinesCountAndTheEndWins) {
    EXPECT_TRUE(Matches("body.shard == 3 and body.path == '/a'"));
    EXPECT_TRUE(Matches("body.phase == 'end'"));
    EXPECT_TRUE(Matches("attributes.tenant == 'north'"));
    EXPECT_TRUE(Matches("rv.type == 'DiskFull' and rv.msg == 'disk \"a\" is full'"));
    EXPECT_TRUE(Matches("body.\"a name\" == 1.5"));
}

TEST(ExpressionTest, NumbersInTextsCompareAsNumbers) {
    EXPECT_TRUE(Matches("body.rows == 17 and body.rows > 9"));
    EXPECT_TRUE(Matches("body.rows == '17'"));
    EXPECT_FALSE(Matches("body.path == 0 or body.path < 1"));
    EXPECT_FALSE(Matches("attributes.tenant < 5"));
}

TEST(ExpressionTest, LargeWholeNumbersKeepTheirLastDigit) {
    EXPECT_TRUE(Matches("body.big == 9007199254740993"));
    EXPECT_FALSE(Matches("body.big == 9007199254740992"));
    EXPECT_TRUE(Matches("body.big =~ '9007199254740993'"));
}

TEST(ExpressionTest, MembershipComparesWithEachOfAList) {
    EXPECT_TRUE(Matches("body.shard in (1, 3)"));
    EXPECT_FALSE(Matches("body.shard in (1, 2)"));
    EXPECT_TRUE(Matches("body.shard not in (1, 2)"));
    EXPECT_TRUE(Matches("user in ('bob', \"ada\")"));
    EXPECT_TRUE(Matches("elapsed in (12345us)"));
}

TEST(ExpressionTest, PatternsAreThoseOfTheShell) {
    EXPECT_TRUE(Matches("rv.msg =~ '*full*'"));
    EXPECT_FALSE(Matches("rv.msg =~ 'full'"));
    EXPECT_TRUE(Matches("name !~ 'un*'"));
    EXPECT_TRUE(Matches("body.shard =~ '[0-5]'"));
}

TEST(ExpressionTest, AndBindsMoreTightlyThanOrAndNotMoreThanBoth) {
    EXPECT_TRUE(Matches("depth == 2 or depth == 3 and depth == 4"));
    EXPECT_FALSE(Matches("(depth == 2 or depth == 3) and depth == 4"));
    EXPECT_TRUE(Matches("not depth == 3 and depth == 2"));
    EXPECT_FALSE(Matches("not (depth == 3 or depth == 2)"));
    EXPECT_TRUE(Matches("not not failed"));
}

TEST(ExpressionTest, FieldsThatAreTrueOrFalseAreConditionsByThemselves) {
    EXPECT_TRUE(Matches("failed and ended and not early"));
    EXPECT_TRUE(Matches("body.hit and not body.cached"));
    EXPECT_TRUE(Matches("body.cached == false and failed == true"));
    EXPECT_FALSE(Matches("body.shard"));
}

TEST(ExpressionTest, WhatIsMissingEqualsNothingAndIsNotLessOrMore) {
    EXPECT_FALSE(Matches("body.lost == 1 or body.lost < 1 or body.lost >= 1 or body.lost =~ '*'"));
    EXPECT_TRUE(Matches("body.lost != 1 and body.lost !~ '*' and body.lost not in (1)"));
    EXPECT_FALSE(Matches("body.none == 0"));
    EXPECT_TRUE(Matches("has body.shard and not has body.lost and not has body.none"));
    EXPECT_TRUE(Matches("not has site and not has attributes.vw and site == '-'"));
}

TEST(ExpressionTest, WhatNeverEndedHasNoDurationAndWhatWasNotMeasuredNoFigures) {
    Activity activity = Sample();
    activity.hasEnd = false;
    activity.figures = {};

    EXPECT_FALSE(Matches("elapsed >= 0us or exclusive >= 0us or end > begin", activity));
    EXPECT_FALSE(Matches("cpu >= 0us or memory >= 0", activity));
    EXPECT_TRUE(Matches("not ended and not failed", activity));
}

TEST(ExpressionTest, SaysWhetherItNeedsTables) {
    EXPECT_FALSE(Expression("user == 'ada' and elapsed > 1ms").NeedsTables());
    EXPECT_TRUE(Expression("user == 'ada' or has body.shard").NeedsTables());
}

TEST(ExpressionTest, ErrorsSayWhatIsWrongAndWhere) {
    EXPECT_EQ(ErrorOf("elapsed > 5"), "10: a duration needs a unit, as 5ms or 2s");
    EXPECT_EQ(ErrorOf("elapsed > 5parsec"),
              "11: 'parsec' is no unit; known are us, ms, s, m, h, d, B, kB, MB, GB");
    EXPECT_THAT(ErrorOf("usr == 'ada'"), StartsWith("0: 'usr' is no field; known are name, id"));
    EXPECT_EQ(ErrorOf("user == 'ada"), "8: the text that begins here does not end");
    EXPECT_EQ(ErrorOf("user == 5"), "8: a text is not compared with a number");
    EXPECT_EQ(ErrorOf("depth == 'x'"), "9: a number is not compared with a text");
    EXPECT_EQ(ErrorOf("user > true"), "7: a text is not compared with true or false");
    EXPECT_EQ(ErrorOf("failed > true"), "7: true and false are not more or less");
    EXPECT_EQ(ErrorOf("begin > 'soon'"), "8: this is no time, as \"2026-11-21T06:02:25\"");
    EXPECT_EQ(ErrorOf("body.wait > 5ms"),
              "12: attributes have no unit; compare with a plain number");
    EXPECT_EQ(ErrorOf("elapsed =~ '1*'"), "8: only texts fit patterns");
    EXPECT_THAT(ErrorOf("name =~ load"), StartsWith("8: 'load' is no field"));
    EXPECT_EQ(ErrorOf("user"), "4: a comparison is expected here, as == or <");
    EXPECT_EQ(ErrorOf(""), "0: a field or a constant is expected here");
    EXPECT_EQ(ErrorOf("failed failed"), "7: 'and', 'or' or the end is expected here");
    EXPECT_EQ(ErrorOf("(failed"), "7: ')' is expected here");
    EXPECT_EQ(ErrorOf("depth in 3"), "9: '(' is expected here");
    EXPECT_EQ(ErrorOf("depth in (3, 'x')"), "13: a number is not compared with a text");
    EXPECT_EQ(ErrorOf("failed & ended"), "7: '&' means nothing here");
    EXPECT_EQ(ErrorOf("has 5"), "4: the name of a field is expected here");
}

TEST(ExpressionTest, AnErrorIsShownBelowItsPlace) {
    const std::string text = "user == 'größer' and elapsed > 5";
    try {
        Expression{text};
        FAIL();
    } catch (const ExpressionError& error) {
        EXPECT_EQ(Describe(error, text),
                  "a duration needs a unit, as 5ms or 2s\n"
                  "  user == 'größer' and elapsed > 5\n"
                  "                                 ^");
    }
}

TEST(ExpressionTest, LongAndDeepExpressionsDoNotExhaustTheStack) {
    std::string wide = "depth == 0";
    for (int count = 0; count < 20'000; ++count) {
        wide += " or depth == 2";
    }
    EXPECT_TRUE(Matches(wide));
    EXPECT_THAT(ErrorOf(std::string(100'000, '(')), HasSubstr("nested too deeply"));
    EXPECT_THAT(ErrorOf(std::string(190, '(') + "failed" + std::string(190, ')')), "no error");
}

}  // namespace
}  // namespace tarnview
