#include "read/LineParser.h"

#include "LogFixture.h"

#include <list>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tarnview {
namespace {

using Result = LineParser::Result;

class LineParserTest : public testing::Test {
protected:
    Result Parse(const std::string& text, ParserOptions options = {}) {
        LineParser& parser = m_parsers.emplace_back(options);
        m_text = text;
        m_text.reserve(text.size() + simdjson::SIMDJSON_PADDING);
        const Result result = parser.Parse(m_text, m_line);
        m_detail = parser.Detail();
        return result;
    }

    const LogLine& Line() const { return m_line; }

    const std::string& Detail() const { return m_detail; }

private:
    std::list<LineParser> m_parsers;
    std::string m_text;
    std::string m_detail;
    LogLine m_line;
};

TEST_F(LineParserTest, ABeginLineSaysWhoAndWhere) {
    const LineText text{.name = "parse",
                        .id = "B",
                        .sponsor = "A",
                        .root = "R",
                        .milliseconds = 1500,
                        .process = 7,
                        .thread = 9,
                        .depth = 2};

    ASSERT_EQ(Parse(text.ToString()), Result::Good);

    EXPECT_EQ(Line().kind, LineKind::Begin);
    EXPECT_EQ(FormatTimestamp(Line().time), "2026-03-01T10:00:01.500000Z");
    EXPECT_EQ(Line().name, "parse");
    EXPECT_EQ(Line().id, "B");
    EXPECT_EQ(Line().sponsor, "A");
    EXPECT_EQ(Line().root, "R");
    EXPECT_EQ(Line().process.number, 7);
    EXPECT_EQ(Line().thread, 9);
    EXPECT_EQ(Line().depth, 2);
    EXPECT_EQ(Line().user, "ada");
}

TEST_F(LineParserTest, AnEndLineSaysHowLongAndWithWhatResult) {
    const LineText text{.phase = "end",
                        .elapsed = 1250,
                        .exclusive = -3,
                        .result = "exception",
                        .resources =
                            R"({"alloc":{"ae":1.0,"ai":2.0,"ane":3,"ani":4,"apeak":5.0},)"
                            R"("free":{"de":6.0,"di":7.0,"dne":8,"dni":9},)"
                            R"("kcpu":{"ke":10,"ki":11},"ntid":2,"ucpu":{"ue":12,"ui":13}})"};

    ASSERT_EQ(Parse(text.ToString()), Result::Good);

    EXPECT_EQ(Line().kind, LineKind::End);
    EXPECT_DOUBLE_EQ(Line().elapsed, 1.25);
    EXPECT_DOUBLE_EQ(Line().exclusive, -0.003);
    EXPECT_EQ(Line().result, "exception");
    const Figures& figures = Line().figures;
    EXPECT_TRUE(figures.hasAllocated);
    EXPECT_EQ(figures.ae, 1);
    EXPECT_EQ(figures.ai, 2);
    EXPECT_EQ(figures.ane, 3);
    EXPECT_EQ(figures.ani, 4);
    EXPECT_EQ(figures.apeak, 5);
    EXPECT_EQ(figures.de, 6);
    EXPECT_EQ(figures.di, 7);
    EXPECT_EQ(figures.dne, 8);
    EXPECT_EQ(figures.dni, 9);
    EXPECT_EQ(figures.CpuExclusive(), 22);
    EXPECT_EQ(figures.CpuInclusive(), 24);
    EXPECT_EQ(figures.threads, 2);
}

TEST_F(LineParserTest, TheTopOfATreeIsItsOwnRoot) {
    ASSERT_EQ(Parse(LineText{.id = "A"}.ToString()), Result::Good);

    EXPECT_EQ(Line().root, "A");
}

TEST_F(LineParserTest, TablesAreReadOnlyWhenAskedFor) {
    const std::string text = LineText{.body = R"({"path":"x"})"}.ToString();

    ASSERT_EQ(Parse(text), Result::Good);
    EXPECT_EQ(Line().body, "");
    ASSERT_EQ(Parse(text, {.wantsTables = true}), Result::Good);
    EXPECT_EQ(Line().body, R"({"path":"x"})");
    EXPECT_EQ(Line().attributes, R"({"vw":"-","wb":"-"})");
}

TEST_F(LineParserTest, AMessageAndADiagnosticEventAreOfNoActivity) {
    const std::string start = R"({"time":"2026-03-01T10:00:00Z","severity":"warn",)";

    ASSERT_EQ(Parse(start + R"("message":"a \"b\"","pid":1,"tid":2})"), Result::Good);
    EXPECT_EQ(Line().kind, LineKind::Message);
    EXPECT_EQ(Line().message, "a \"b\"");
    EXPECT_EQ(Line().severity, "warn");
    ASSERT_EQ(Parse(start + R"("event":"scope-state","pid":1,"tid":2,"body":{}})"), Result::Good);
    EXPECT_EQ(Line().kind, LineKind::Diagnostic);
}

TEST_F(LineParserTest, FieldsMayStandInAnyOrder) {
    ASSERT_EQ(Parse(R"({"activity":{"type":"end","rk":"ok","name":"n","id":"I","elapsed":2.0},)"
                    R"("new":[1,{"x":2}],"pid":3,"time":"2026-03-01T10:00:00Z"})"),
              Result::Good);

    EXPECT_EQ(Line().kind, LineKind::End);
    EXPECT_EQ(Line().name, "n");
    EXPECT_DOUBLE_EQ(Line().elapsed, 2);
    EXPECT_EQ(Line().process.number, 3);
}

TEST_F(LineParserTest, OfAFieldThatStandsTwiceTheFirstCounts) {
    ASSERT_EQ(Parse(R"({"message":"one","pid":1,"message":"two"})"), Result::Flawed);

    EXPECT_EQ(Line().message, "one");
    EXPECT_EQ(Detail(), "message");
}

TEST_F(LineParserTest, AFieldOfAWrongKindReadsAsNothing) {
    ASSERT_EQ(Parse(R"({"message":"one","pid":"seven","user":5})"), Result::Flawed);

    EXPECT_EQ(Line().process.number, 0);
    EXPECT_EQ(Line().user, "");
    EXPECT_EQ(Line().message, "one");
}

TEST_F(LineParserTest, ATimeThatIsNoneIsAFlaw) {
    EXPECT_EQ(Parse(R"({"time":"yesterday","message":"m"})"), Result::Flawed);
    EXPECT_EQ(Detail(), "time");
}

TEST_F(LineParserTest, APhaseThatIsNoneMakesItNoActivity) {
    EXPECT_EQ(Parse(R"({"event":"e","activity":{"type":"pause","id":"A","name":"n"}})"),
              Result::Flawed);
    EXPECT_EQ(Line().kind, LineKind::Diagnostic);
}

struct BrokenLine {
    const char* what;
    std::string text;
};

void PrintTo(const BrokenLine& line, std::ostream* out) {
    *out << line.what;
}

class BrokenLineTest : public LineParserTest, public testing::WithParamInterface<BrokenLine> {};

TEST_P(BrokenLineTest, IsUnreadable) {
    EXPECT_EQ(Parse(GetParam().text), Result::Unreadable) << GetParam().what;
    EXPECT_NE(Detail(), "");
}

std::vector<BrokenLine> BrokenLines() {
    const std::string good = LineText{}.ToString();
    return {
        {"Empty", ""},
        {"Blank", "   "},
        {"Text", "Segmentation fault"},
        {"Cut", good.substr(0, good.size() / 2)},
        {"CutInsideATable", good.substr(0, good.size() - 1)},
        {"Interleaved", good.substr(0, 100) + good + good.substr(100)},
        {"TwoObjects", good + good},
        {"Rest", good + "x"},
        {"Array", "[" + good + "]"},
        {"Number", "17"},
        {"NulBytes", std::string(64, '\0')},
        {"NulInsideAText", R"({"message":"a)" + std::string(1, '\0') + R"("})"},
        {"Binary", "\x7F\x45\x4C\x46\x02\x01\x01\xFF\xFE\x80"},
        {"BadUtf8", "{\"message\":\"\xC3\x28\"}"},
        {"NoLogLine", R"({"a":1})"},
        {"LoneQuote", R"({"message":")"},
        {"DeepNesting", R"({"body":)" + std::string(5000, '[')},
    };
}

INSTANTIATE_TEST_SUITE_P(All, BrokenLineTest, testing::ValuesIn(BrokenLines()), [](const auto& it) {
    return std::string(it.param.what);
});

TEST_F(LineParserTest, WhatIsSkippedIsLookedAtOnlyWhenStrict) {
    const std::string text = R"({"message":"m","extra":{"a":tru}})";

    EXPECT_EQ(Parse(text), Result::Good);
    EXPECT_EQ(Parse(text, {.isStrict = true}), Result::Unreadable);
}

// Every beginning of a good line, and every line with one byte changed, is read without harm.
TEST_F(LineParserTest, NoCutAndNoChangedByteDoesHarm) {
    const std::string good =
        LineText{.phase = "end", .body = R"({"a":[1,2.5,null,true],"b":{"c":"\u00e9"}})"}
            .ToString();
    std::size_t unreadable = 0;

    for (std::size_t size = 0; size < good.size(); ++size) {
        unreadable += Parse(good.substr(0, size), {.wantsTables = true}) == Result::Unreadable;
        for (const char byte : {'\0', '"', '{', '}', '\\', ',', '\xFF', '9'}) {
            std::string changed = good;
            changed[size] = byte;
            Parse(changed, {.wantsTables = true});
        }
    }

    EXPECT_EQ(unreadable, good.size());
}

}  // namespace
}  // namespace tarnview
