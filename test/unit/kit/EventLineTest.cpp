// That the reader of lines is as strict as it says, and finds where a line and its event differ.
#include "EventLine.h"

#include "CapturingLog.h"
#include "CapturingSink.h"
#include "JsonReader.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/JsonLines.h"

#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

namespace {

using nlohmann::json;
using tarn::test::DifferenceOfLine;
using tarn::test::ReadJsonLine;
using testing::HasSubstr;
using testing::Not;
using TLog::Literal;

std::string RefusalOf(const std::string& line) {
    try {
        return "reads " + ReadJsonLine(line).dump();
    } catch (const std::invalid_argument& refusal) {
        return refusal.what();
    }
}

// ---- The reader.

TEST(JsonReaderTest, AnObjectIsRead) {
    EXPECT_EQ(ReadJsonLine(R"({"a":[1,{"a":true}],"b":{"a":null,"c":-2.5}})"),
              json({{"a", {1, {{"a", true}}}}, {"b", {{"a", nullptr}, {"c", -2.5}}}}));
}

TEST(JsonReaderTest, TwoFieldsOfOneNameAreRefusedAtEveryDepth) {
    for (const char* const line : {R"({"wb":"layer","wb":"-"})",
                                   R"({"wb":1,"a":{},"wb":1})",
                                   R"({"a":{"b":{"wb":1,"wb":2}}})",
                                   R"({"a":[0,{"wb":1,"x":{"y":2},"wb":2}]})",
                                   R"({"wb":1,"\u0077b":2})"}) {
        EXPECT_THAT(RefusalOf(line), HasSubstr(R"(two fields are named "wb")")) << line;
    }
    EXPECT_THAT(RefusalOf(R"({"":1,"":2})"), HasSubstr(R"(two fields are named "")"));
}

TEST(JsonReaderTest, FieldsOfOneNameInDifferentObjectsAreNot) {
    EXPECT_NO_THROW(ReadJsonLine(R"({"a":{"a":{"a":1}},"b":[{"a":1},{"a":2}],"c":{"a":1}})"));
}

TEST(JsonReaderTest, WhatIsNoObjectAloneOnItsLineIsRefused) {
    for (const char* const line : {"",
                                   "5",
                                   "[{}]",
                                   " {}",
                                   "{} ",
                                   "{}{}",
                                   "{},{}",
                                   "\xEF\xBB\xBF{}",
                                   "{\n}",
                                   "{\"a\":1}\n",
                                   "{\"a\":\"\t\"}",
                                   R"({"a":1)",
                                   R"({"a"})",
                                   R"({"a":1,})",
                                   R"({'a':1})",
                                   R"({"a":NaN})",
                                   R"({"a":01})",
                                   R"({"a":1e999})",
                                   R"({"a":"\ud800"})",
                                   "{\"a\":\"\xFF\"}"}) {
        EXPECT_THAT(RefusalOf(line), Not(HasSubstr("reads"))) << line;
    }
}

// ---- Lines and events.

TLog::Event EventOf(TLog::NameTable body) {
    return {TString(u"begin-load"),
            TLog::Object::Make(std::move(body)),
            TLog::ActivityInfo(TLog::EventTimePoint(TLog::EventTimePoint::duration(12'345'678)),
                               1,
                               2,
                               TString(u"session"),
                               TString(u"request"),
                               TString(u"user"),
                               TString(u"site"),
                               TLog::Object::Make({}),
                               nullptr,
                               TLog::Object::Make({{u"vw", Literal::String(TString(u"-"))}}))};
}

std::string Replaced(std::string line, const std::string& what, const std::string& by) {
    const std::size_t at = line.find(what);
    if (at == std::string::npos) {
        throw std::logic_error(what + " is not in " + line);
    }
    return line.replace(at, what.size(), by);
}

TEST(EventLineTest, ALineOfTheEventSaysTheSame) {
    const std::vector<std::shared_ptr<TLog::Value>> items{
        Literal::Int(std::numeric_limits<int64>::min()), nullptr, Literal::Null()};
    const TLog::Event event =
        EventOf({{u"int", Literal::Int(-5)},
                 {u"real", Literal::Double(-0.0, 0)},
                 {u"fixed", Literal::Double(1e-7, 1)},
                 {u"infinite", Literal::Double(std::numeric_limits<double>::infinity(), 0)},
                 {u"flag", Literal::Bool(true)},
                 {u"list", TLog::Array::Make(items)},
                 {u"\u00E9\"\n", Literal::String(TString(u"\xD800 \U0001D11E"))},
                 {u"missing", nullptr}});

    EXPECT_EQ(DifferenceOfLine(TLog::Info, event), "");
    EXPECT_EQ(DifferenceOfLine(TLog::Fatal, event), "");
    EXPECT_EQ(DifferenceOfLine(TLog::Warn, TLog::Event(TString(u"e"), event.GetBody())), "");
    EXPECT_EQ(DifferenceOfLine(TLog::Warn, TLog::Event(TString(u"e"), nullptr)), "");
}

TEST(EventLineTest, EveryFieldThatDiffersIsNoticed) {
    const TLog::Event event = EventOf({{u"rows", Literal::Int(5)}});
    const std::string line = TLog::FormatJsonLine(TLog::Info, event, {});
    ASSERT_EQ(DifferenceOfLine(line, TLog::Info, event), "");

    const std::vector<std::pair<std::string, std::string>> changes{
        {"01.234567Z", "01.234568Z"},
        {R"("info")", R"("warn")"},
        {"begin-load", "end-load"},
        {R"("pid":1)", R"("pid":2)"},
        {R"("tid":2)", R"("tid":3)"},
        {R"("session":"session")", R"("session":"")"},
        {R"("request":"request")", R"("request":"-")"},
        {R"("user":"user")", R"("user":null)"},
        {R"("site":"site",)", ""},
        {R"("environment":{},)", ""},
        {R"("attributes")", R"("activity":{},"attributes")"},
        {R"("vw":"-")", R"("vw":"+")"},
        {R"("vw":"-")", R"("vw":"-","vw":"-")"},
        {R"("vw":"-")", R"("vw":"-","wb":"-")"},
        {R"("rows":5)", R"("rows":5.0)"},
        {R"("rows":5)", R"("rows":"5")"},
        {R"("rows":5)", R"("Rows":5)"},
        {R"({"rows":5})", R"({})"}};
    for (const auto& [what, by] : changes) {
        EXPECT_NE(DifferenceOfLine(Replaced(line, what, by), TLog::Info, event), "")
            << what << " became " << by;
    }
}

// ---- What captures events looks at their lines.

// Its line has one name twice: both become a replacement character and the same text behind it.
TLog::Event EventWithAnAmbiguousLine() {
    const auto half = [](const char16_t* text) { return TString(std::u16string_view(text, 2)); };
    return EventOf({{half(u"\xD800x"), Literal::Int(1)}, {half(u"\xDC00x"), Literal::Int(2)}});
}

TEST(CapturingTest, AnEventWhoseLineSaysOtherwiseFailsTheTestInASink) {
    static const TLog::Event event = EventWithAnAmbiguousLine();

    EXPECT_NONFATAL_FAILURE(
        tarn::test::CapturingSink(std::make_shared<tarn::test::CapturedEvents>()).Log(event),
        "two fields are named");
}

TEST(CapturingTest, AnEventWhoseLineSaysOtherwiseFailsTheTestInALog) {
    static const TLog::Event event = EventWithAnAmbiguousLine();

    EXPECT_NONFATAL_FAILURE(tarn::test::CapturingLog().Write(TLog::Info, event),
                            "two fields are named");
}

}  // namespace
