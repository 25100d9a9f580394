#include "LogFixture.h"
#include "commands/ExportCommand.h"
#include "export/Exports.h"
#include "export/ThreadLanes.h"
#include "read/InputFiles.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class ExportTest : public LogFixture {
protected:
    std::string Export(ExportFormat format, std::vector<std::string> files = SampleLogs()) {
        ExportOptions options;
        options.input.files = std::move(files);
        options.format = format;
        EXPECT_EQ(RunExport(options, Streams()), exitSuccess);
        return Output();
    }

    // Two on one thread that overlap without one holding the other.
    std::string Crossing() {
        return Write(
            "cross.log",
            {{.name = "one", .id = "A"},
             {.name = "two", .id = "B", .milliseconds = 5},
             {.phase = "end", .name = "one", .id = "A", .milliseconds = 10, .elapsed = 10},
             {.phase = "end", .name = "two", .id = "B", .milliseconds = 20, .elapsed = 15}});
    }

    static constexpr int levels = 3'000;

    // Each sponsors the next one, and allocates ten bytes.
    std::string Chain() {
        std::string text;
        for (const char* const phase : {"begin", "end"}) {
            for (int level = 0; level < levels; ++level) {
                LineText line{.phase = phase, .name = "n", .id = std::to_string(level)};
                line.root = "0";
                line.depth = level;
                line.sponsor = level == 0 ? "" : std::to_string(level - 1);
                line.resources = R"({"alloc":{"ae":10,"ai":10}})";
                text += line.ToString() + "\n";
            }
        }
        return Write("chain.log", text);
    }

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

    static const json& Find(const json& list, const std::string& key, const std::string& value) {
        for (const json& item : list) {
            if (item[key] == value) {
                return item;
            }
        }
        ADD_FAILURE() << "there is no " << value;
        static const json nothing;
        return nothing;
    }
};

TEST_F(ExportTest, ChromeHasTimesFromTheFirstBeginOn) {
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

TEST_F(ExportTest, ChromeHasTheTimeOfDayAttributesAndSupplements) {
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
TEST_F(ExportTest, ChromeShowsHandOversAsArrows) {
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
TEST_F(ExportTest, ChromesArrowsAreFoundThoughEverythingBeginsAtOnce) {
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

TEST_F(ExportTest, ChromeShowsWhatASponsorHandedOverThatHasEnded) {
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
TEST_F(ExportTest, ChromeKeepsTheNestingWhereArrowsOfOneMomentGoInACircle) {
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

TEST_F(ExportTest, ChromeShowsWhatDoesNotNestAsAsynchronous) {
    const json events = json::parse(Export(ExportFormat::Chrome, {Crossing()}))["traceEvents"];

    EXPECT_EQ(Find(events, "name", "one")["ph"], "X");
    EXPECT_EQ(Find(events, "name", "two")["ph"], "b");
    EXPECT_EQ(Find(events, "ph", "e")["ts"], 20'000);
    EXPECT_EQ(Find(events, "ph", "e")["id"], "B");
}

// Plays the events back: each end closes what was opened last, at no earlier time.
TEST_F(ExportTest, SpeedscopeProfilesAreBalancedAndHaveTheTotals) {
    const json file = json::parse(Export(ExportFormat::Speedscope));
    const json& frames = file["shared"]["frames"];
    std::map<std::string, long long> totals;
    std::size_t evented = 0;

    for (const json& profile : file["profiles"]) {
        if (profile["type"] != "evented") {
            continue;
        }
        ++evented;
        EXPECT_EQ(profile["unit"], "nanoseconds");
        std::vector<std::pair<std::size_t, long long>> open;
        long long last = profile["startValue"];
        for (const json& event : profile["events"]) {
            const long long at = event["at"];
            ASSERT_GE(at, last);
            last = at;
            if (event["type"] == "O") {
                open.emplace_back(event["frame"], at);
            } else {
                ASSERT_FALSE(open.empty());
                ASSERT_EQ(open.back().first, event["frame"].get<std::size_t>());
                totals[frames[open.back().first]["name"]] += at - open.back().second;
                open.pop_back();
            }
        }
        EXPECT_THAT(open, IsEmpty());
        EXPECT_LE(last, profile["endValue"].get<long long>());
    }

    EXPECT_EQ(evented, 3U);
    EXPECT_THAT(totals,
                ElementsAre(std::pair("ask", 50'000'000),
                            std::pair("audit", 40'000'000),
                            std::pair("lookup", 20'000'000),
                            std::pair("order", 100'000'000),
                            std::pair("price", 20'000'000),
                            std::pair("refund", 5'000'000),
                            std::pair("stock", 30'000'000),
                            std::pair("sweep", 1'000)))
        << "what never ended is drawn a microsecond beyond the log";
}

TEST_F(ExportTest, SpeedscopeOpensOnTheBusiestThreadAndShowsNoTimeBesideIt) {
    const json file = json::parse(Export(
        ExportFormat::Speedscope,
        {Write("a.log",
               {{.name = "short", .id = "A"},
                {.phase = "end", .name = "short", .id = "A", .milliseconds = 1, .elapsed = 1},
                {.name = "long", .id = "B", .milliseconds = 500, .thread = 2},
                {.phase = "end",
                 .name = "long",
                 .id = "B",
                 .milliseconds = 900,
                 .thread = 2,
                 .elapsed = 400}})}));

    const json& active = file["profiles"][file["activeProfileIndex"].get<std::size_t>()];
    EXPECT_EQ(active["name"], "process 1 thread 2");
    EXPECT_EQ(active["startValue"], 500'000'000);
    EXPECT_EQ(active["endValue"], 900'000'000);
    EXPECT_EQ(file["profiles"][0]["endValue"], 1'000'000);
}

TEST_F(ExportTest, SpeedscopeHasTheBytesThatEachStackAllocated) {
    const json file = json::parse(Export(ExportFormat::Speedscope));
    const json& profile = Find(file["profiles"], "name", "shop process 100 memory allocated");

    long long total = 0;
    for (const json& weight : profile["weights"]) {
        total += weight.get<long long>();
    }

    EXPECT_EQ(profile["type"], "sampled");
    EXPECT_EQ(profile["unit"], "bytes");
    EXPECT_EQ(profile["samples"].size(), profile["weights"].size());
    EXPECT_EQ(total, 1950);
    EXPECT_EQ(profile["endValue"], total);
}

TEST_F(ExportTest, SpeedscopePutsWhatOverlapsIntoAProfileOfItsOwn) {
    const json file = json::parse(Export(ExportFormat::Speedscope, {Crossing()}));

    EXPECT_THAT(file["profiles"], SizeIs(2));
    EXPECT_EQ(file["profiles"][1]["name"], "process 1 thread 1 overlapping 1");
}

TEST_F(ExportTest, OtlpHasALineForEachProcess) {
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
TEST_F(ExportTest, OtlpLinksTheSponsorWhereAnotherIsTheCaller) {
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

TEST_F(ExportTest, OtlpSpansOfOneIdAreToldApartAndTheirChildrenFollow) {
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

TEST_F(ExportTest, OtlpHasNoEventsWhereThereAreNoSupplements) {
    EXPECT_THAT(Export(ExportFormat::Otlp, {Crossing()}), Not(HasSubstr("\"events\"")));
}

TEST_F(ExportTest, OtlpHasSupplementsAsEventsAndNoKeyTwice) {
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

TEST_F(ExportTest, FoldedStacksHaveTheTimesInWhichNoChildRan) {
    EXPECT_EQ(Export(ExportFormat::Folded),
              "order 20000\n"
              "order;ask 20000\n"
              "order;ask;stock 10000\n"
              "order;ask;stock;lookup 20000\n"
              "order;audit 40000\n"
              "order;price 20000\n"
              "refund 5000\n");
}

// Reads the wire form of protocol buffers: the fields of a message, with numbers or texts.
class WireReader {
public:
    struct Field {
        std::uint64_t number = 0;
        std::uint64_t value = 0;
        std::string text{};
    };

    explicit WireReader(std::string text) : m_text(std::move(text)) {}

    std::vector<Field> Fields() {
        std::vector<Field> fields;
        while (m_place < m_text.size()) {
            const std::uint64_t key = Varint();
            Field field{key >> 3U};
            if ((key & 7U) == 0) {
                field.value = Varint();
            } else {
                const std::uint64_t length = Varint();
                field.text = m_text.substr(m_place, length);
                m_place += length;
            }
            fields.push_back(field);
        }
        return fields;
    }

    std::vector<std::uint64_t> Numbers() {
        std::vector<std::uint64_t> numbers;
        while (m_place < m_text.size()) {
            numbers.push_back(Varint());
        }
        return numbers;
    }

private:
    std::uint64_t Varint() {
        std::uint64_t value = 0;
        for (unsigned shift = 0; m_place < m_text.size(); shift += 7) {
            const auto byte = static_cast<unsigned char>(m_text[m_place++]);
            value |= std::uint64_t{byte & 0x7FU} << shift;
            if ((byte & 0x80U) == 0) {
                break;
            }
        }
        return value;
    }

    std::string m_text;
    std::size_t m_place = 0;
};

// The only field of that number; an empty one if there is none.
WireReader::Field FieldOf(const std::string& message, std::uint64_t number) {
    for (const WireReader::Field& field : WireReader(message).Fields()) {
        if (field.number == number) {
            return field;
        }
    }
    return {};
}

TEST_F(ExportTest, PerfettoNestsTheSlicesOfEachTrackAndNamesItsThread) {
    const std::string trace = Export(ExportFormat::Perfetto);

    std::map<std::uint64_t, std::string> tracks;
    std::map<std::uint64_t, std::vector<std::string>> open;
    std::map<std::string, std::vector<std::string>> slices;  // of each thread, as its stacks
    std::vector<std::uint64_t> begins;
    std::uint64_t latest = 0;
    for (const WireReader::Field& packet : WireReader(trace).Fields()) {
        ASSERT_EQ(packet.number, 1U);
        if (const std::string track = FieldOf(packet.text, 60).text; !track.empty()) {
            tracks[FieldOf(track, 1).value] = FieldOf(FieldOf(track, 4).text, 5).text;
        }
        const std::string event = FieldOf(packet.text, 11).text;
        if (event.empty()) {
            continue;
        }
        const std::uint64_t time = FieldOf(packet.text, 8).value;
        EXPECT_GE(time, latest);
        latest = time;
        const std::uint64_t track = FieldOf(event, 11).value;
        if (FieldOf(event, 9).value == 1) {
            open[track].push_back(FieldOf(event, 23).text);
            begins.push_back(time);
            std::string stack;
            for (const std::string& name : open[track]) {
                stack += (stack.empty() ? "" : ";") + name;
            }
            slices[tracks.at(track)].push_back(stack);
        } else {
            ASSERT_FALSE(open[track].empty());
            open[track].pop_back();
        }
    }
    EXPECT_EQ(begins.front(), 1'772'359'200'000'000'000U) << "2026-03-01T10:00:00Z";
    EXPECT_THAT(begins, SizeIs(8));
    EXPECT_THAT(slices["thread 9"], ElementsAre("stock", "stock;lookup"));
    for (const auto& [track, names] : open) {
        EXPECT_THAT(names, IsEmpty()) << "of track " << track;
    }
}

TEST_F(ExportTest, PerfettoHasTheArgumentsAndAFlowForWorkThatWasHandedOver) {
    const std::string trace = Export(ExportFormat::Perfetto);

    std::map<std::string, std::map<std::string, std::string>> arguments;
    std::map<std::uint64_t, std::string> sources;
    std::map<std::string, std::string> flows;
    for (const WireReader::Field& packet : WireReader(trace).Fields()) {
        const std::string event = FieldOf(packet.text, 11).text;
        if (FieldOf(event, 9).value != 1) {
            continue;
        }
        const std::string name = FieldOf(event, 23).text;
        for (const WireReader::Field& field : WireReader(event).Fields()) {
            if (field.number == 4) {
                const WireReader::Field text = FieldOf(field.text, 6);
                arguments[name][FieldOf(field.text, 10).text] =
                    text.number == 6 ? text.text : std::to_string(FieldOf(field.text, 4).value);
            } else if (field.number == 36) {
                sources[field.value] = name;
            } else if (field.number == 42) {
                flows[name] = sources.at(field.value);
            }
        }
    }
    EXPECT_EQ(arguments["lookup"]["result"], "exception");
    EXPECT_EQ(arguments["lookup"]["allocated-exclusive-bytes"], "70");
    EXPECT_EQ(arguments["sweep"]["result"], "never ended");
    EXPECT_EQ(flows["stock"], "ask");
    EXPECT_EQ(flows.count("lookup"), 0U) << "on the thread of its sponsor";
}

std::string Decompressed(const std::string& path) {
    const InputFile input(path);
    std::string text;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(input.Descriptor(), buffer, sizeof(buffer))) > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

TEST_F(ExportTest, PprofHasTheFiguresOfEachStackTheInnermostNameFirst) {
    const std::string profile = Decompressed(Write("profile.pb.gz", Export(ExportFormat::Pprof)));

    std::vector<std::string> texts;
    std::map<std::uint64_t, std::string> names;
    std::vector<WireReader::Field> samples;
    std::vector<WireReader::Field> functions;
    for (const WireReader::Field& field : WireReader(profile).Fields()) {
        if (field.number == 6) {
            texts.push_back(field.text);
        } else if (field.number == 2) {
            samples.push_back(field);
        } else if (field.number == 5) {
            functions.push_back(field);
        }
    }
    for (const WireReader::Field& function : functions) {
        const auto fields = WireReader(function.text).Fields();
        names[fields[0].value] = texts[fields[1].value];
    }
    std::map<std::string, std::vector<std::uint64_t>> stacks;
    for (const WireReader::Field& sample : samples) {
        const auto fields = WireReader(sample.text).Fields();
        std::string stack;
        for (const std::uint64_t location : WireReader(fields[0].text).Numbers()) {
            stack += (stack.empty() ? "" : " < ") + names[location];
        }
        stacks[stack] = WireReader(fields[1].text).Numbers();
    }

    EXPECT_EQ(texts[0], "");
    EXPECT_THAT(stacks["lookup < stock < ask < order"],
                ElementsAre(1U, 20'000'000U, 500'000U, 70U));
    EXPECT_THAT(stacks["price < order"], ElementsAre(1U, 20'000'000U, 2'000'000U, 200U));
    EXPECT_THAT(stacks["sweep"], ElementsAre(1U, 0U, 0U, 0U)) << "it never ended";
    EXPECT_THAT(stacks, SizeIs(8));
}

TEST_F(ExportTest, TheSameLogMakesTheSameProfile) {
    const std::string first = Export(ExportFormat::Pprof);

    EXPECT_EQ(Export(ExportFormat::Pprof), first + first);
    EXPECT_EQ(first.substr(4, 4), std::string(4, '\0')) << "no time of its making";
}

TEST_F(ExportTest, ASemicolonInANameDoesNotPartTheStack) {
    EXPECT_EQ(Export(ExportFormat::Folded,
                     {Write("a.log",
                            {{.name = "a;b", .id = "A"},
                             {.phase = "end",
                              .name = "a;b",
                              .id = "A",
                              .milliseconds = 1,
                              .elapsed = 1,
                              .exclusive = 1}})}),
              "a_b 1000\n");
}

TEST_F(ExportTest, FiguresThatNothingCanHaveAreCutAndDoNotOverflow) {
    const std::string resources = R"({"alloc":{"ae":1e300,"ai":1e300}})";
    ExportOptions options;
    options.input.files = {
        Write("a.log",
              {{.name = "n", .id = "A"},
               {.phase = "end", .name = "n", .id = "A", .resources = resources},
               {.name = "n", .id = "B"},
               {.phase = "end", .name = "n", .id = "B", .resources = resources}})};
    options.format = ExportFormat::Folded;
    options.weight = FoldedWeight::Memory;

    EXPECT_EQ(RunExport(options, Streams()), exitSuccess);
    EXPECT_EQ(Output(), "n 2000000000000000\n");
}

// Written whole, the stacks of a chain would take the square of its length.
TEST_F(ExportTest, AVeryDeepStackIsCut) {
    ExportOptions options;
    options.input.files = {Chain()};
    options.format = ExportFormat::Folded;
    options.weight = FoldedWeight::Memory;

    ASSERT_EQ(RunExport(options, Streams()), exitSuccess);

    std::istringstream lines(Output());
    std::size_t longest = 0;
    long long total = 0;
    for (std::string stack, bytes; lines >> stack >> bytes;) {
        longest = std::max(longest, stack.size());
        total += std::stoll(bytes);
    }
    EXPECT_EQ(longest, 2 * deepestStack - 1) << "names and semicolons";
    EXPECT_EQ(total, 10 * levels) << "what is deeper counts all the same";
}

TEST_F(ExportTest, SpeedscopeCutsAVeryDeepStackToo) {
    const json file = json::parse(Export(ExportFormat::Speedscope, {Chain()}));

    const json& profile = Find(file["profiles"], "name", "process 1 memory allocated");
    std::size_t longest = 0;
    for (const json& stack : profile["samples"]) {
        longest = std::max(longest, stack.size());
    }
    EXPECT_EQ(longest, deepestStack);
    EXPECT_EQ(profile["endValue"], 10 * levels);
}

}  // namespace
}  // namespace tarnview
