#include "commands/TopCommand.h"

#include "LogFixture.h"

#include <cmath>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class TopCommandTest : public LogFixture {
protected:
    std::string Top(const TopOptions& options) {
        EXPECT_EQ(RunTop(options, Streams()), exitSuccess);
        return Output();
    }

    static TopOptions Sample() {
        TopOptions options;
        options.input.files = SampleLogs();
        return options;
    }
};

TEST_F(TopCommandTest, LinesThatKeepRulesHaveLeftOutAreMentionedOnce) {
    TopOptions options;
    options.input.files = {
        Write("a.log",
              LineText{.id = "A"}.ToString() + "\n" +
                  R"({"time":"2026-03-01T10:00:00.000000Z","severity":"info",)"
                  R"("event":"tarn-left-out","pid":17,"tid":17,"body":{"lines":4,"trees":1}})" +
                  "\n")};

    Top(options);

    EXPECT_THAT(Errors(),
                HasSubstr("tarnview: 4 lines were left out by keep rules; their activities are not "
                          "counted here\n"));
}

TEST_F(TopCommandTest, TheTableHasARowForEachNameTheCostliestFirst) {
    EXPECT_EQ(
        Top(Sample()),
        R"(name      count  failed  early   open        total     mean      p50      p90      p99      max    exclusive          cpu   memory
order         1       0      0      0       100 ms   100 ms   100 ms   100 ms   100 ms   100 ms      30.0 ms      3.00 ms  1.00 kB
ask           1       0      0      0      50.0 ms  50.0 ms  50.0 ms  50.0 ms  50.0 ms  50.0 ms      50.0 ms      1.00 ms    300 B
audit         1       0      0      0      40.0 ms  40.0 ms  40.0 ms  40.0 ms  40.0 ms  40.0 ms      40.0 ms      8.00 ms    400 B
stock         1       0      0      0      30.0 ms  30.0 ms  30.0 ms  30.0 ms  30.0 ms  30.0 ms      10.0 ms       200 us     30 B
lookup        1       1      0      0      20.0 ms  20.0 ms  20.0 ms  20.0 ms  20.0 ms  20.0 ms      20.0 ms       500 us     70 B
price         1       0      0      0      20.0 ms  20.0 ms  20.0 ms  20.0 ms  20.0 ms  20.0 ms      20.0 ms      2.00 ms    200 B
refund        1       0      1      0      5.00 ms  5.00 ms  5.00 ms  5.00 ms  5.00 ms  5.00 ms      5.00 ms        10 us     50 B
sweep         0       0      0      1
)");
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(TopCommandTest, TheTableFitsTheTerminalAndKeepsWhatMattersMost) {
    for (const std::size_t width : {40U, 80U, 100U, 130U}) {
        Streams().terminal.width = width;
        const std::size_t before = Output().size();

        RunTop(Sample(), Streams());

        std::istringstream table(Output().substr(before));
        std::string line;
        std::getline(table, line);
        EXPECT_THAT(line, HasSubstr("name"));
        EXPECT_THAT(line, HasSubstr("count"));
        EXPECT_THAT(line, HasSubstr("total"));
        do {
            EXPECT_LE(line.size(), width) << line;
        } while (std::getline(table, line));
    }
}

TEST_F(TopCommandTest, FollowingCountsWhatHasBeenWrittenMeanwhileAndEachOnce) {
    TopOptions options;
    options.input.files = {Write("a.log",
                                 {{.name = "load", .id = "A"},
                                  {.phase = "end", .name = "load", .id = "A", .elapsed = 0},
                                  {.name = "load", .id = "B"}})};
    options.format = TopFormat::Csv;
    options.follow = {.isFollowing = true, .interval = std::chrono::milliseconds(1), .updates = 2};

    const std::string tables = Top(options);

    const std::string row = "\nload,1,0,0,1,";
    EXPECT_THAT(tables, HasSubstr(row));
    EXPECT_NE(tables.find(row), tables.rfind(row)) << "a table for each update, the same";
}

// Five requests, each with 400 lookups of 604 us and 400 steps of 20 us: of all that the log itself
// has 0 ms, and the requests' whole time as exclusive.
TEST_F(TopCommandTest, TimesAreMicrosecondsWhateverTheLogCutsOff) {
    std::string text;
    int time = 0;  // us
    const auto add = [&](const LineText& line) { text += LineText(line).ToString() + "\n"; };
    for (int request = 0; request < 5; ++request) {
        const std::string root = "R" + std::to_string(request);
        const int begin = time;
        add({.name = "serve", .id = root, .microseconds = time});
        for (int number = 0; number < 800; ++number) {
            LineText line{.name = number % 2 == 0 ? "lookup" : "decode",
                          .id = root + "-" + std::to_string(number),
                          .sponsor = root,
                          .root = root,
                          .microseconds = time,
                          .depth = 1};
            add(line);
            time += number % 2 == 0 ? 604 : 20;
            line.phase = "end";
            line.microseconds = time;
            add(line);
        }
        time += 12'180;
        add({.phase = "end",
             .name = "serve",
             .id = root,
             .microseconds = time,
             .elapsed = (time - begin) / 1000,
             .exclusive = (time - begin) / 1000});
    }
    TopOptions options;
    options.input.files = {Write("short.log", text)};
    options.format = TopFormat::Csv;

    EXPECT_THAT(Top(options),
                HasSubstr("\nserve,5,0,0,0,1.308900,0.261780,0.261780,0.261780,"
                          "0.261780,0.261780,0.060900,,\n"));
    EXPECT_THAT(Output(),
                HasSubstr("\nlookup,2000,0,0,0,1.208000,0.000604,0.000604,0.000604,"
                          "0.000604,0.000604,1.208000,,\n"));
    EXPECT_THAT(Output(),
                HasSubstr("\ndecode,2000,0,0,0,0.040000,0.000020,0.000020,0.000020,"
                          "0.000020,0.000020,0.040000,,\n"));

    options.filter.slowerThan = 400;
    options.filter.names = {"lookup"};
    EXPECT_THAT(Top(options), HasSubstr("\nlookup,2000,"));
}

TEST_F(TopCommandTest, WhatWasNotMeasuredIsEmpty) {
    TopOptions options;
    options.input.files = {Write("a.log", {{.id = "A"}, {.phase = "end", .id = "A"}})};

    EXPECT_THAT(Top(options), HasSubstr(" 0 us         0 us\n"));

    options.format = TopFormat::Json;
    const json row = json::parse(Top(options).substr(Output().find('[')))[0];
    EXPECT_EQ(row["exclusive_seconds"], 0);
    EXPECT_EQ(row["cpu_exclusive_microseconds"], nullptr);
    EXPECT_EQ(row["memory_exclusive_bytes"], nullptr);
}

TEST_F(TopCommandTest, AttributesOfTheBodyCountFromBothLinesTheLaterOneFirst) {
    TopOptions options;
    options.input.files = {Write("a.log",
                                 {{.id = "A", .body = R"({"shard":1,"state":"new"})"},
                                  {.phase = "end", .id = "A", .body = R"({"state":"done"})"}})};
    options.groupBy = {"body.shard", "body.state"};
    options.format = TopFormat::Csv;

    EXPECT_THAT(Top(options), HasSubstr("\n1,done,1,"));
}

TEST_F(TopCommandTest, ANameMayHoldAnyCharacter) {
    TopOptions options;
    options.input.files = {Write("a.log",
                                 {{.name = R"(a\u0000b)", .id = "A"},
                                  {.phase = "end", .name = R"(a\u0000b)", .id = "A"},
                                  {.name = "a", .id = "B"},
                                  {.phase = "end", .name = "a", .id = "B"}})};
    options.groupBy = {"name", "user"};
    options.format = TopFormat::Json;
    options.sortBy = "name";

    const json rows = json::parse(Top(options));

    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0]["name"], "a");
    EXPECT_EQ(rows[1]["name"], std::string("a\0b", 3));
    EXPECT_EQ(rows[1]["user"], "ada");
}

TEST_F(TopCommandTest, CsvQuotesWhatNeedsIt) {
    TopOptions options = Sample();
    options.groupBy = {"user", "site"};
    options.format = TopFormat::Csv;

    EXPECT_EQ(
        Top(options),
        "user,site,count,failed,early_terminations,open,total_seconds,mean_seconds,p50_seconds,"
        "p90_seconds,p99_seconds,max_seconds,exclusive_seconds,cpu_exclusive_microseconds,"
        "memory_exclusive_bytes\n"
        "ada,shop,4,0,0,0,0.210000,0.052500,0.040000,0.100000,0.100000,0.100000,0.140000,"
        "14000,1900\n"
        "ada,stock,2,1,0,0,0.050000,0.025000,0.020000,0.030000,0.030000,0.030000,0.030000,"
        "700,100\n"
        "\"bob, \"\"b\"\"\",shop,1,0,1,0,0.005000,0.005000,0.005000,0.005000,0.005000,"
        "0.005000,0.005000,10,50\n"
        "-,shop,0,0,0,1,,,,,,,,,\n");
}

// The sums are taken once more, line by line, by another JSON reader.
TEST_F(TopCommandTest, JsonHasTheSumsThatTheLinesHave) {
    struct Sums {
        int count = 0;
        double total = 0;
        double exclusive = 0;
        double cpu = 0;
        double memory = 0;
        double maximum = 0;
    };

    std::map<std::string, Sums> expected;
    for (const std::string& path : SampleLogs()) {
        std::ifstream file(path);
        for (std::string text; std::getline(file, text);) {
            const json line = json::parse(text);
            if (!line.contains("activity") || line["activity"]["type"] != "end") {
                continue;
            }
            const json& activity = line["activity"];
            const json& resources = activity["res"];
            Sums& sums = expected[activity["name"]];
            ++sums.count;
            sums.total += activity["elapsed"].get<double>();
            sums.maximum = std::max(sums.maximum, activity["elapsed"].get<double>());
            sums.exclusive += activity["exclusive"].get<double>();
            sums.cpu +=
                resources["kcpu"]["ke"].get<double>() + resources["ucpu"]["ue"].get<double>();
            sums.memory += resources["alloc"]["ae"].get<double>();
        }
    }
    TopOptions options = Sample();
    options.format = TopFormat::Json;
    options.filter.results = {"*"};  // leaves out what never ended

    const json rows = json::parse(Top(options));

    ASSERT_EQ(rows.size(), expected.size());
    for (const json& row : rows) {
        const Sums& sums = expected.at(row["name"]);
        EXPECT_EQ(row["count"], sums.count);
        EXPECT_NEAR(row["total_seconds"], sums.total, 1e-9);
        EXPECT_NEAR(row["max_seconds"], sums.maximum, 1e-9);
        EXPECT_NEAR(row["exclusive_seconds"], sums.exclusive, 1e-9);
        EXPECT_EQ(row["cpu_exclusive_microseconds"], sums.cpu);
        EXPECT_EQ(row["memory_exclusive_bytes"], sums.memory);
    }
}

TEST_F(TopCommandTest, RowsAreSortedByAnyColumnAndCut) {
    TopOptions options = Sample();
    options.format = TopFormat::Json;
    options.sortBy = "memory";
    options.limit = 2;

    const json rows = json::parse(Top(options));

    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0]["name"], "order");
    EXPECT_EQ(rows[1]["name"], "audit");
}

TEST_F(TopCommandTest, KeysAreSortedFromAToZOrReversed) {
    TopOptions options = Sample();
    options.format = TopFormat::Json;
    options.sortBy = "name";
    options.isReversed = true;
    options.limit = 2;

    const json rows = json::parse(Top(options));

    EXPECT_EQ(rows[0]["name"], "sweep");
    EXPECT_EQ(rows[1]["name"], "stock");
}

TEST_F(TopCommandTest, AttributesMakeGroups) {
    TopOptions options = Sample();
    options.format = TopFormat::Json;
    options.groupBy = {"attributes.tenant"};

    const json rows = json::parse(Top(options));

    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0]["attributes.tenant"], "-");
    EXPECT_EQ(rows[1]["attributes.tenant"], "blue");
    EXPECT_EQ(rows[1]["count"], 1);
}

TEST_F(TopCommandTest, FiltersLeaveOutActivitiesAndWhatNeverEnded) {
    TopOptions options = Sample();
    options.format = TopFormat::Csv;
    options.filter.isNotOk = true;

    const std::string table = Top(options);

    EXPECT_THAT(table, HasSubstr("\nlookup,1,1,0,"));
    EXPECT_THAT(table, HasSubstr("\nrefund,1,0,1,"));
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 3);
}

TEST_F(TopCommandTest, QuantilesAreOfTheEndsOfOneName) {
    std::string text;
    for (int elapsed = 1; elapsed <= 100; ++elapsed) {
        text +=
            LineText{.phase = "end", .id = std::to_string(elapsed), .elapsed = elapsed}.ToString() +
            "\n";
    }
    TopOptions options;
    options.input.files = {Write("a.log", text)};
    options.format = TopFormat::Json;

    const json row = json::parse(Top(options))[0];

    EXPECT_EQ(row["p50_seconds"], 0.05);
    EXPECT_EQ(row["p90_seconds"], 0.09);
    EXPECT_EQ(row["p99_seconds"], 0.099);
    EXPECT_EQ(row["max_seconds"], 0.1);
    EXPECT_EQ(row["mean_seconds"], 0.0505);
}

TEST_F(TopCommandTest, ARotatedSetIsOneLog) {
    Write("a.2.log", {{.id = "A"}});
    Write("a.1.log", {{.phase = "end", .id = "A"}, {.id = "B"}});
    TopOptions options;
    options.input.files = {Write("a.log", {{.phase = "end", .id = "B"}, {.id = "C"}})};
    options.format = TopFormat::Json;

    const json row = json::parse(Top(options))[0];

    EXPECT_EQ(row["count"], 2);
    EXPECT_EQ(row["open"], 1);
}

TEST_F(TopCommandTest, BrokenLinesAreNamedAndTheRestCounts) {
    const std::string good = LineText{.phase = "end", .elapsed = 3}.ToString();
    TopOptions options;
    options.input.files = {Write("a.log",
                                 good + "\ngarbage \x1B[31m\n" + good.substr(0, 50) + good + "\n" +
                                     std::string(100, '\0') + "\n" + good + "\n" + good)};
    options.format = TopFormat::Json;

    const json row = json::parse(Top(options))[0];

    EXPECT_EQ(row["count"], 3);
    EXPECT_THAT(Errors(), HasSubstr("a.log:2: line that does not parse"));
    EXPECT_THAT(Errors(), HasSubstr("a.log:3: line that does not parse"));
    EXPECT_THAT(Errors(), HasSubstr("a.log:4: line that does not parse"));
    EXPECT_THAT(Errors(), HasSubstr("a.log:6: line without an end"));
    EXPECT_EQ(Errors().find('\x1B'), std::string::npos);
}

TEST_F(TopCommandTest, OnlyTheFirstOfManyProblemsAreNamed) {
    std::string text;
    for (int count = 0; count < 1000; ++count) {
        text += "broken\n";
    }
    TopOptions options;
    options.input.files = {Write("a.log", LineText{}.ToString() + "\n" + text)};
    options.filter.names = {"none"};

    Top(options);

    EXPECT_THAT(Errors(),
                HasSubstr("tarnview: 1000 lines that do not parse; the answer may be incomplete"));
    const std::string errors = Errors();
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 6);
}

TEST_F(TopCommandTest, LostLinesAreTold) {
    TopOptions options;
    options.input.files = {Write(
        "a.log",
        R"({"time":"2026-03-01T10:00:00Z","message":"Missing in this log: lines that could not be written: 455"})"
        "\n")};

    Top(options);

    EXPECT_THAT(Errors(), HasSubstr("\ntarnview: 455 lines that were lost; the answer may be"));
}

TEST_F(TopCommandTest, AFileThatIsNoLogIsAnErrorAndAnEmptyOneIsNot) {
    TopOptions options;
    options.input.files = {Write("a.log", "no log\nat all\n")};

    EXPECT_EQ(RunTop(options, Streams()), exitInputOutput);

    EXPECT_THAT(Errors(), HasSubstr("a.log: no line of this file is a log line\n"));
    options.input.files = {Write("b.log", "")};
    EXPECT_EQ(RunTop(options, Streams()), exitSuccess);
}

TEST_F(TopCommandTest, ProcessorTimeThatIsCountedInTicksIsTold) {
    std::string text;
    for (int number = 0; number < 60; ++number) {
        const std::string id = std::to_string(number);
        text += LineText{.id = id}.ToString() + "\n";
        text += LineText{.phase = "end",
                         .id = id,
                         .resources = R"({"kcpu":{"ke":0,"ki":0},"ucpu":{"ue":0,"ui":0}})"}
                    .ToString() +
                "\n";
    }
    TopOptions options;
    options.input.files = {Write("a.log", text)};

    Top(options);

    EXPECT_THAT(Errors(), HasSubstr("the system counts it in ticks"));
}

TEST_F(TopCommandTest, AnInputIsNotOverwritten) {
    TopOptions options;
    options.input.files = {Write("a.log", {{.id = "A"}})};
    Streams().outputPath = PathOf(".") + "/a.log";

    EXPECT_THROW(RunTop(options, Streams()), CommandLineError);
}

TEST_F(TopCommandTest, AByteOrderMarkCostsNoLine) {
    TopOptions options;
    options.input.files = {
        Write("a.log", "\xEF\xBB\xBF" + LineText{.phase = "end"}.ToString() + "\n")};

    EXPECT_THAT(Top(options), HasSubstr("\nload        1"));
    EXPECT_THAT(Errors(), Not(HasSubstr("parse")));
}

TEST_F(TopCommandTest, AFileThatCannotBeReadIsAnError) {
    TopOptions options;
    options.input.files = {PathOf("none.log")};

    EXPECT_THROW(RunTop(options, Streams()), std::system_error);
}

}  // namespace
}  // namespace tarnview
