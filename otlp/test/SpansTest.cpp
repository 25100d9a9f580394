#include "Lines.h"
#include "encode/LineEncoder.h"
#include "span/SpanIds.h"
#include "span/Timestamp.h"

#include <nlohmann/json.hpp>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::otlp {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::Pair;

class SpansTest : public testing::Test {
protected:
    static Options InJson() {
        Options options;
        options.encoding = Encoding::Json;
        return options;
    }

    LineEncoder::Result Take(const std::string& line) { return m_lines.Take(line, m_span); }

    json SpanOf(const std::string& begin, const std::string& end) {
        EXPECT_EQ(Take(begin), LineEncoder::Result::Nothing);
        EXPECT_EQ(Take(end), LineEncoder::Result::Span);
        return json::parse(m_span.text);
    }

    static json AttributesOf(const json& span) {
        json table = json::object();
        for (const json& attribute : span["attributes"]) {
            const std::string key = attribute["key"];
            EXPECT_FALSE(table.contains(key)) << key << " occurs twice";
            table[key] = *attribute["value"].begin();
        }
        return table;
    }

    LineEncoder m_lines{InJson()};
    EncodedSpan m_span;
};

TEST_F(SpansTest, AnActivityBecomesASpanWithItsIdsTimesAndResult) {
    const json span = SpanOf(BeginLine(rootId, "serve"), EndLine(rootId, "serve"));

    EXPECT_EQ(span["traceId"], "766d89303a4b4c5d8e6f708192a3b4c5");
    EXPECT_EQ(span["spanId"], "8e6f708192a3b4c5");
    EXPECT_FALSE(span.contains("parentSpanId"));
    EXPECT_EQ(span["name"], "serve");
    EXPECT_EQ(span["startTimeUnixNano"], "1795240945000100000");
    EXPECT_EQ(span["endTimeUnixNano"], "1795240945002600000");
    EXPECT_EQ(span["status"]["code"], 1);
    const json attributes = AttributesOf(span);
    EXPECT_EQ(attributes["thread.id"], "8");
    EXPECT_EQ(attributes["enduser.id"], "ann");
    EXPECT_EQ(attributes["tarn.result"], "ok");
}

TEST_F(SpansTest, AParentIsTheCallerElseTheSponsorElseTheRoot) {
    const std::string root = std::string(R"(,"root":")") + rootId + '"';
    const std::string other = R"(","caller":"AAAAAAAA-0000-4000-8000-000000000001")";
    const auto parentOf = [&](const std::string& more) {
        return SpanOf(BeginLine(childId, "work", root + more),
                      EndLine(childId, "work", root + R"(,"sponsor":"-","rk":"ok")"))
            .value("parentSpanId", "none");
    };

    EXPECT_EQ(parentOf(std::string(R"(,"sponsor":")") + rootId + other), "8000000000000001");
    EXPECT_EQ(parentOf(std::string(R"(,"sponsor":")") + rootId + '"'), "8e6f708192a3b4c5");
    EXPECT_EQ(parentOf(std::string(R"(,"sponsor":")") + childId + '"'), "8e6f708192a3b4c5");
    EXPECT_EQ(parentOf(R"(,"sponsor":"-")"), "none");
}

TEST_F(SpansTest, AFailureSaysWhyAndWhatEndedEarlyIsNeitherGoodNorFailed) {
    const json failed =
        SpanOf(BeginLine(rootId, "serve"),
               EndLine(rootId, "serve", R"(,"rk":"error","rv":{"msg":"no route","e-code":"3"})"));
    const json early = SpanOf(BeginLine(rootId, "serve"),
                              EndLine(rootId, "serve", R"(,"rk":"early-termination","rv":{})"));

    EXPECT_EQ(failed["status"], json({{"message", "no route"}, {"code", 2}}));
    EXPECT_EQ(AttributesOf(failed)["result.e-code"], "3");
    EXPECT_EQ(early["status"], json::object());
}

TEST_F(SpansTest, ValuesKeepTheirKindsAndNoKeyStandsTwice) {
    const json span = SpanOf(BeginLine(rootId, "serve", "", R"({"n":1,"path":"/a","late":0})"),
                             EndLine(rootId,
                                     "serve",
                                     R"(,"rk":"ok")",
                                     R"({"late":2.5,"yes":true,"none":null,"list":[1, {"a":"b"}]})",
                                     7,
                                     R"({"wb":"book","thread.id":"x","body.n":"y","vw":"-"})"));

    json attributes = AttributesOf(span);
    EXPECT_EQ(attributes["body.n"], "1");
    EXPECT_EQ(attributes["body.late"], 2.5);
    EXPECT_EQ(attributes["body.yes"], true);
    EXPECT_EQ(attributes["body.list"], R"([1,{"a":"b"}])");
    EXPECT_EQ(attributes["wb"], "book");
    EXPECT_EQ(attributes["attributes.thread.id"], "x");
    EXPECT_EQ(attributes["attributes.body.n"], "y");
    EXPECT_FALSE(attributes.contains("body.none"));
    EXPECT_FALSE(attributes.contains("vw"));
}

TEST_F(SpansTest, LogSupplementsBecomeEventsAtTheirTimes) {
    const json span = SpanOf(
        BeginLine(rootId, "serve"),
        EndLine(
            rootId,
            "serve",
            R"(,"rk":"ok")",
            R"({"logs":[{"begin":"2026-11-21T07:02:25.001000+01:00","step":"read"},{"a":1}]})"));

    ASSERT_EQ(span["events"].size(), 2U);
    EXPECT_EQ(span["events"][0]["timeUnixNano"], "1795240945001000000");
    EXPECT_EQ(span["events"][0]["attributes"][0]["key"], "step");
    EXPECT_EQ(span["events"][1]["timeUnixNano"], span["endTimeUnixNano"]);
    EXPECT_FALSE(AttributesOf(span).contains("body.logs"));
}

TEST_F(SpansTest, AnEndWithoutItsBeginTakesTheElapsedTime) {
    ASSERT_EQ(Take(EndLine(rootId, "serve")), LineEncoder::Result::Span);

    const json span = json::parse(m_span.text);
    EXPECT_EQ(span["startTimeUnixNano"], "1795240945000600000");
    EXPECT_EQ(span["endTimeUnixNano"], "1795240945002600000");
}

TEST_F(SpansTest, ABeginForWhichThereIsNoRoomIsLeftOutAndTheSpanIsMadeAllTheSame) {
    Options options = InJson();
    options.openBytes = 700;
    LineEncoder lines(options);

    EXPECT_EQ(lines.Take(BeginLine(rootId, "serve"), m_span), LineEncoder::Result::Nothing);
    EXPECT_EQ(lines.Take(BeginLine(childId, "work"), m_span), LineEncoder::Result::BeginLeftOut);
    EXPECT_EQ(lines.Take(EndLine(childId, "work"), m_span), LineEncoder::Result::Span);
    EXPECT_EQ(lines.Take(EndLine(rootId, "serve"), m_span), LineEncoder::Result::Span);
    EXPECT_EQ(lines.Take(BeginLine(childId, "work"), m_span), LineEncoder::Result::Nothing);
}

TEST_F(SpansTest, WhatAForkedProcessTakesOverIsAChildOfWhatItWas) {
    Take(BeginLine(rootId, "serve"));

    Take(EndLine(rootId, "serve", R"(,"rk":"ok")", "{}", 9));
    const json child = json::parse(m_span.text);
    const auto childProcess = m_span.resource->process;
    Take(EndLine(rootId, "serve"));
    const json parent = json::parse(m_span.text);

    EXPECT_EQ(childProcess, 9);
    EXPECT_EQ(parent["spanId"], "8e6f708192a3b4c5");
    EXPECT_EQ(child["parentSpanId"], parent["spanId"]);
    EXPECT_NE(child["spanId"], parent["spanId"]);
    EXPECT_EQ(child["startTimeUnixNano"], parent["startTimeUnixNano"]);
    EXPECT_EQ(m_lines.Open().Size(), 0U);
}

TEST_F(SpansTest, TwoUnderOneIdAreToldApartByNameAndThread) {
    Take(BeginLine(rootId, "outer", "", R"({"who":"outer"})"));
    Take(BeginLine(rootId, "inner", "", R"({"who":"inner"})"));

    Take(EndLine(rootId, "outer"));
    EXPECT_EQ(AttributesOf(json::parse(m_span.text))["body.who"], "outer");
    Take(EndLine(rootId, "inner"));
    EXPECT_EQ(AttributesOf(json::parse(m_span.text))["body.who"], "inner");
}

TEST_F(SpansTest, LinesOfNoActivityAreNothingAndBrokenOnesAreUnreadable) {
    EXPECT_EQ(Take(Padded(R"({"time":"2026-11-21T06:02:25.000100Z","message":"hello"})")),
              LineEncoder::Result::Nothing);
    EXPECT_EQ(Take(Padded("{")), LineEncoder::Result::Unreadable);
    EXPECT_EQ(Take(Padded("")), LineEncoder::Result::Unreadable);
    EXPECT_EQ(Take(Padded(R"({"time":"soon","activity":{"type":"end","id":"a","name":"b"}})")),
              LineEncoder::Result::Unreadable);
    EXPECT_EQ(Take(Padded(R"({"activity":{"type":"end","name":"b"}})")),
              LineEncoder::Result::Unreadable);
}

TEST_F(SpansTest, ClocksThatWereSetLeaveTheElapsedTime) {
    std::string end = EndLine(rootId, "serve");
    end.replace(end.find("02:25.0026"), 10, "01:00.0000");

    const json span = SpanOf(BeginLine(rootId, "serve"), Padded(end));

    EXPECT_EQ(span["endTimeUnixNano"], "1795240945002100000");
}

TEST_F(SpansTest, AResourceHasTheServiceTheHostAndWhatIsConfigured) {
    Options options = InJson();
    options.resourceAttributes = {{"deployment", "green"}, {"deployment", "blue"}};
    LineEncoder bySite(options);
    options.resourceAttributes.emplace_back("service.name", "listed");
    LineEncoder byList(options);
    options.serviceName = "named";
    LineEncoder byName(options);

    const auto serviceOf = [&](LineEncoder& lines) {
        lines.Take(EndLine(rootId, "serve"), m_span);
        return m_span.resource->texts;
    };
    EXPECT_THAT(
        serviceOf(bySite),
        ElementsAre(
            Pair("service.name", "shop"), Pair("host.name", "box"), Pair("deployment", "blue")));
    EXPECT_EQ(serviceOf(byList).front().second, "listed");
    EXPECT_EQ(serviceOf(byName).front().second, "named");
}

TEST(SpanIdsTest, IdsOfAnotherFormHaveNumbersThatStandForThem) {
    EXPECT_EQ(TraceIdOf("req-1"), TraceIdOf("req-1"));
    EXPECT_NE(TraceIdOf("req-1"), TraceIdOf("req-2"));
    EXPECT_NE(TraceIdOf("00000000-0000-0000-0000-000000000000"), TraceId{});
    EXPECT_NE(SpanIdOf("11111111-1111-1111-0000-000000000000"), 0U);
    EXPECT_NE(FurtherSpanIdOf("a", 1, 2, 0), FurtherSpanIdOf("a", 1, 2, 1));
}

TEST(TimestampTest, TimesAreReadWithDecimalsAndOffsets) {
    EXPECT_EQ(ParseTimestamp("1970-01-01T00:00:01Z"), 1'000'000);
    EXPECT_EQ(ParseTimestamp("1970-01-01T00:00:01.5Z"), 1'500'000);
    EXPECT_EQ(ParseTimestamp("1970-01-01T00:00:00.0000019Z"), 1);
    EXPECT_EQ(ParseTimestamp("1970-01-01T01:30:00+01:30"), 0);
    EXPECT_EQ(ParseTimestamp("1969-12-31T23:00:00-01:00"), 0);
    EXPECT_EQ(ParseTimestamp("2024-02-29T00:00:00Z"), 1'709'164'800'000'000);
}

TEST(TimestampTest, WhatIsNoTimeIsNone) {
    for (const char* const text : {"",
                                   "1970-01-01T00:00:01",
                                   "1970-01-01T00:00:01.Z",
                                   "1970-01-01 00:00:01Z",
                                   "1970-13-01T00:00:01Z",
                                   "2023-02-29T00:00:01Z",
                                   "1970-01-01T24:00:01Z",
                                   "1970-01-01T00:00:01+1:00",
                                   "1970-01-01T00:00:01ZZ",
                                   "197x-01-01T00:00:01Z"}) {
        EXPECT_EQ(ParseTimestamp(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace tarn::otlp
