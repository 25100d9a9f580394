#include "ExportFixture.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::ElementsAre;

class ChromeExportTest : public ExportFixture {
protected:
    // What a reader makes of the arrows, as "sponsor to work": it takes events by their time, those
    // of one time in the file's order, and ties an arrow to what its thread has begun last.
    static std::multiset<std::string> ReadArrows(const json& events) {
        std::vector<json> inOrder;
        std::copy_if(events.begin(), events.end(), std::back_inserter(inOrder), [](const json& it) {
            return it["ph"] == "X" || it["ph"] == "s" || it["ph"] == "f";
        });
        std::stable_sort(inOrder.begin(), inOrder.end(), [](const json& a, const json& b) {
            return a["ts"].get<double>() < b["ts"].get<double>();
        });
        std::map<json, std::string> begunLast;
        std::map<json, std::string> sponsors;
        std::multiset<std::string> arrows;
        for (const json& event : inOrder) {
            const json thread{event["pid"], event["tid"]};
            if (event["ph"] == "X") {
                begunLast[thread] = event["name"];
            } else if (event["ph"] == "s") {
                sponsors[event["id"]] = begunLast[thread];
            } else {
                arrows.insert(sponsors[event["id"]] + " to " + begunLast[thread]);
            }
        }
        return arrows;
    }
};

TEST_F(ChromeExportTest, ChromeHasTimesFromTheFirstBeginOn) {
    const json trace = json::parse(Export(ExportFormat::Chrome));

    EXPECT_FALSE(trace.contains("displayTimeUnit"));
    const json& lookup = Find(trace["traceEvents"], "name", "lookup");
    EXPECT_EQ(lookup["ph"], "X");
    EXPECT_EQ(lookup["ts"], 55'000);
    EXPECT_EQ(lookup["dur"], 20'000);
    EXPECT_EQ(lookup["pid"], 200);
    EXPECT_EQ(lookup["tid"], 9);
    EXPECT_EQ(lookup["cat"], "failed");
    EXPECT_EQ(lookup["args"]["result"], "exception");
    EXPECT_EQ(lookup["args"]["allocated-bytes"], 70);
}

TEST_F(ChromeExportTest, ChromeHasTheTimeOfDayAttributesAndSupplements) {
    const json trace = json::parse(Export(ExportFormat::Chrome));

    const json& order = Find(trace["traceEvents"], "name", "order");
    EXPECT_EQ(trace["otherData"]["begin"], "2026-03-01T10:00:00.000000Z");
    EXPECT_EQ(order["args"]["begin"], "2026-03-01T10:00:00.000000Z");
    EXPECT_EQ(order["args"]["attributes"]["tenant"], "blue");
    EXPECT_TRUE(order["args"].contains("session"));
    const bool hasSupplement = std::any_of(
        trace["traceEvents"].begin(), trace["traceEvents"].end(), [](const json& event) {
            return event.contains("args") && event["args"].contains("body at end") &&
                   event["args"]["body at end"].contains("logs");
        });
    EXPECT_TRUE(hasSupplement);
}

// An arrow leaves its sponsor before that begins anything else on its own thread.
TEST_F(ChromeExportTest, ChromeShowsHandOversAsArrows) {
    const json events = json::parse(Export(ExportFormat::Chrome))["traceEvents"];

    std::multiset<std::string> arrows;
    for (const json& event : events) {
        if (event["ph"] == "s" || event["ph"] == "f") {
            arrows.insert(event["ph"].get<std::string>() + " " + event["id"].dump() + " " +
                          event["pid"].dump() + ":" + event["tid"].dump() + " " +
                          event["ts"].dump());
        }
    }

    EXPECT_THAT(
        arrows,
        ElementsAre(
            "f 2 100:2 20000.0", "f 7 200:9 50000.0", "s 2 100:1 9999.5", "s 7 100:1 49999.5"));
}

// The sponsor's thread comes after the other one in all that is sorted by threads.
TEST_F(ChromeExportTest, ChromesArrowsAreFoundThoughEverythingBeginsAtOnce) {
    const auto line = [](const char* phase, const char* name, int thread, int depth) {
        return LineText{.phase = phase,
                        .name = name,
                        .id = name,
                        .root = "request",
                        .milliseconds = *phase == 'b' ? 0 : 10,
                        .thread = thread,
                        .depth = depth,
                        .elapsed = 10};
    };
    std::string text;
    for (const char* const phase : {"begin", "end"}) {
        LineText request = line(phase, "request", 9, 0);
        LineText check = line(phase, "check", 9, 1);
        check.sponsor = "request";
        LineText load = line(phase, "load", 1, 1);
        load.sponsor = "request";
        LineText parse = line(phase, "parse", 1, 2);
        parse.sponsor = "load";
        LineText store = line(phase, "store", 5, 3);
        store.sponsor = "parse";
        for (const LineText& it : {request, check, load, parse, store}) {
            text += it.ToString() + "\n";
        }
    }

    const json events = json::parse(Export(ExportFormat::Chrome, {Write("a.log", text)}));

    EXPECT_THAT(ReadArrows(events["traceEvents"]),
                ElementsAre("parse to store", "request to load"));
}

TEST_F(ChromeExportTest, ChromeShowsWhatASponsorHandedOverThatHasEnded) {
    const json events = json::parse(Export(
        ExportFormat::Chrome,
        {Write("a.log",
               {{.name = "order", .id = "A"},
                {.phase = "end", .name = "order", .id = "A", .milliseconds = 5, .elapsed = 5},
                {.name = "next", .id = "B", .milliseconds = 6},
                {.name = "mail",
                 .id = "C",
                 .sponsor = "A",
                 .root = "A",
                 .milliseconds = 8,
                 .thread = 2,
                 .depth = 1}})}));

    EXPECT_THAT(ReadArrows(events["traceEvents"]), ElementsAre("order to mail"));
    EXPECT_EQ(Find(events["traceEvents"], "ph", "s")["ts"], 4999.5);
}

// Each of the two threads would have to come first.
TEST_F(ChromeExportTest, ChromeKeepsTheNestingWhereArrowsOfOneMomentGoInACircle) {
    const auto begin = [](const char* name, const char* sponsor, int thread, int depth, int end) {
        LineText line{.name = name, .id = name, .sponsor = sponsor, .root = "a"};
        line.thread = thread;
        line.depth = depth;
        LineText last = line;
        last.phase = "end";
        last.milliseconds = last.elapsed = end;
        return line.ToString() + "\n" + last.ToString() + "\n";
    };
    const std::string text = begin("a", "", 1, 0, 1) + begin("b", "a", 2, 1, 9) +
                             begin("c", "b", 2, 2, 8) + begin("d", "c", 1, 3, 7);

    const json events = json::parse(Export(ExportFormat::Chrome, {Write("a.log", text)}));

    std::map<int, std::string> names;
    for (const json& event : events["traceEvents"]) {
        if (event["ph"] == "X") {
            names[event["tid"]] += event["name"];
        }
    }
    EXPECT_THAT(names, ElementsAre(std::pair(1, "da"), std::pair(2, "bc")));
}

TEST_F(ChromeExportTest, ChromeShowsWhatDoesNotNestAsAsynchronous) {
    const json events = json::parse(Export(ExportFormat::Chrome, {Crossing()}))["traceEvents"];

    EXPECT_EQ(Find(events, "name", "one")["ph"], "X");
    EXPECT_EQ(Find(events, "name", "two")["ph"], "b");
    EXPECT_EQ(Find(events, "ph", "e")["ts"], 20'000);
    EXPECT_EQ(Find(events, "ph", "e")["id"], "B");
}

}  // namespace
}  // namespace tarnview
