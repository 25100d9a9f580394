#include "ExportFixture.h"

#include <set>
#include <sstream>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class OtlpExportTest : public ExportFixture {};

TEST_F(OtlpExportTest, OtlpHasALineForEachProcess) {
    std::istringstream text(Export(ExportFormat::Otlp));
    std::vector<json> requests;
    for (std::string line; std::getline(text, line);) {
        requests.push_back(json::parse(line));
    }

    ASSERT_THAT(requests, SizeIs(2));
    const json& resource = requests[0]["resourceSpans"][0]["resource"]["attributes"];
    EXPECT_EQ(Find(resource, "key", "service.name")["value"]["stringValue"], "shop");
    EXPECT_EQ(Find(resource, "key", "host.name")["value"]["stringValue"], "vega");
    EXPECT_EQ(Find(resource, "key", "process.pid")["value"]["intValue"], "100");
    const json& spans = requests[1]["resourceSpans"][0]["scopeSpans"][0]["spans"];
    const json& stock = Find(spans, "name", "stock");
    EXPECT_EQ(stock["traceId"], "00000000000040008000000000000001");
    EXPECT_EQ(stock["spanId"], "8000000000000005");
    EXPECT_EQ(stock["parentSpanId"], "8000000000000003");
    EXPECT_EQ(stock["startTimeUnixNano"], "1772359200050000000");
    EXPECT_EQ(stock["endTimeUnixNano"], "1772359200080000000");
    EXPECT_EQ(stock["status"]["code"], 1);
    const json& lookup = Find(spans, "name", "lookup");
    EXPECT_EQ(lookup["status"]["code"], 2);
    EXPECT_EQ(lookup["status"]["message"], "no such item");
    const json& front = requests[0]["resourceSpans"][0]["scopeSpans"][0]["spans"];
    const json& sweep = Find(front, "name", "sweep");
    EXPECT_EQ(sweep["status"]["code"], 2);
    EXPECT_EQ(sweep["status"]["message"], "never ended");
    EXPECT_EQ(Find(stock["attributes"], "key", "tarn.caller")["value"]["stringValue"], "guessed");
    EXPECT_EQ(Find(stock["attributes"], "key", "tarn.id")["value"]["stringValue"],
              "00000000-0000-4000-8000-000000000005");
    EXPECT_EQ(Find(stock["attributes"], "key", "tarn.exclusive")["value"]["intValue"], "10000");
    EXPECT_EQ(Find(stock["attributes"], "key", "tarn.threads")["value"]["intValue"], "1");
    EXPECT_EQ(stock["kind"], 2) << "adopted from another process";
    EXPECT_EQ(Find(front, "name", "ask")["kind"], 3) << "waits for another process";
    EXPECT_EQ(lookup["kind"], 1);
}

// Where the log names a caller, that is the parent, and the sponsor is no more than linked.
TEST_F(OtlpExportTest, OtlpLinksTheSponsorWhereAnotherIsTheCaller) {
    std::string called =
        LineText{
            .name = "called", .id = "C", .sponsor = "A", .root = "A", .milliseconds = 2, .depth = 1}
            .ToString();
    called.replace(called.find(R"("activity":{)"), 12, R"("activity":{"caller":"B",)");
    const std::string caller =
        LineText{
            .name = "caller", .id = "B", .sponsor = "A", .root = "A", .milliseconds = 1, .depth = 1}
            .ToString();

    const json request = json::parse(Export(ExportFormat::Otlp,
                                            {Write("a.log",
                                                   LineText{.name = "serve", .id = "A"}.ToString() +
                                                       "\n" + caller + "\n" + called + "\n")}));
    const json& spans = request["resourceSpans"][0]["scopeSpans"][0]["spans"];

    const json& span = Find(spans, "name", "called");
    EXPECT_EQ(span["parentSpanId"], Find(spans, "name", "caller")["spanId"]);
    ASSERT_TRUE(span.contains("links"));
    ASSERT_THAT(span["links"], SizeIs(1));
    EXPECT_EQ(span["links"][0]["spanId"], Find(spans, "name", "serve")["spanId"]);
    EXPECT_FALSE(Find(spans, "name", "caller").contains("links"));
}

TEST_F(OtlpExportTest, OtlpSpansOfOneIdAreToldApartAndTheirChildrenFollow) {
    const std::string id = "00000000-0000-4000-8000-000000000001";
    const std::string child = "00000000-0000-4000-8000-000000000002";
    const json request =
        json::parse(Export(ExportFormat::Otlp,
                           {Write("a.log",
                                  {{.name = "serve", .id = id},
                                   {.name = "adopted", .id = id, .milliseconds = 1, .thread = 2},
                                   {.name = "step",
                                    .id = child,
                                    .sponsor = id,
                                    .root = id,
                                    .milliseconds = 2,
                                    .depth = 1}})}));
    const json& spans = request["resourceSpans"][0]["scopeSpans"][0]["spans"];

    ASSERT_THAT(spans, SizeIs(3));
    const std::string first = Find(spans, "name", "serve")["spanId"];
    const std::string second = Find(spans, "name", "adopted")["spanId"];
    const std::string parent = Find(spans, "name", "step")["parentSpanId"];
    EXPECT_NE(first, second);
    EXPECT_TRUE(parent == first || parent == second);
}

TEST_F(OtlpExportTest, OtlpHasNoEventsWhereThereAreNoSupplements) {
    EXPECT_THAT(Export(ExportFormat::Otlp, {Crossing()}), Not(HasSubstr("\"events\"")));
}

TEST_F(OtlpExportTest, OtlpHasSupplementsAsEventsAndNoKeyTwice) {
    const json request = json::parse(Export(
        ExportFormat::Otlp,
        {Write(
            "a.log",
            {{.id = "A", .body = R"({"n":1,"only":true})"},
             {.phase = "end",
              .id = "A",
              .body = R"({"n":2.5,"logs":[{"begin":"2026-03-01T10:00:00+00:00","k":"v"}]})"}})}));
    const json& span = request["resourceSpans"][0]["scopeSpans"][0]["spans"][0];

    EXPECT_EQ(span["events"][0]["timeUnixNano"], "1772359200000000000");
    EXPECT_EQ(span["events"][0]["attributes"][0]["value"]["stringValue"], "v");
    EXPECT_EQ(Find(span["attributes"], "key", "body.n")["value"]["doubleValue"], 2.5);
    EXPECT_EQ(Find(span["attributes"], "key", "body.only")["value"]["boolValue"], true);
    std::set<std::string> keys;
    for (const json& attribute : span["attributes"]) {
        EXPECT_TRUE(keys.insert(attribute["key"]).second) << attribute["key"];
    }
}

}  // namespace
}  // namespace tarnview
