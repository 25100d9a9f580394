// Commands that answer a question with a table.

#include "LogFixture.h"
#include "commands/CallersCommand.h"
#include "commands/CompareCommand.h"
#include "commands/FailuresCommand.h"
#include "commands/HeatCommand.h"
#include "commands/HistogramCommand.h"
#include "commands/PathCommand.h"
#include "commands/TopOverTime.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// What a line of the log says of the result.
std::string Failing(std::string line, const std::string& details) {
    const std::string empty = R"("rv":{})";
    return line.replace(line.find(empty), empty.size(), R"("rv":)" + details);
}

class QuestionsTest : public LogFixture {
protected:
    // An activity from begin to end, in milliseconds.
    struct Span {
        std::string name;
        std::string id;
        std::string sponsor;
        int begin = 0;
        int end = 0;
        int process = 1;
        int thread = 1;
        std::string result = "ok";
        std::string details{};
    };

    // The lines of all, in the order of their times; of equal ones begins first.
    std::string Log(const std::vector<Span>& spans) {
        std::vector<std::pair<int, std::string>> lines;
        for (const Span& span : spans) {
            LineText line;
            line.name = span.name;
            line.id = span.id;
            line.sponsor = span.sponsor;
            line.root = span.sponsor.empty() ? "" : spans.front().id;
            line.depth = span.sponsor.empty() ? 0 : 1;
            line.process = span.process;
            line.thread = span.thread;
            line.milliseconds = span.begin;
            lines.emplace_back(span.begin, line.ToString());
            if (span.end < 0) {
                continue;
            }
            line.phase = "end";
            line.milliseconds = span.end;
            line.elapsed = line.exclusive = span.end - span.begin;
            line.result = span.result;
            const std::string end = line.ToString();
            lines.emplace_back(span.end, span.details.empty() ? end : Failing(end, span.details));
        }
        std::stable_sort(lines.begin(), lines.end(), [](const auto& a, const auto& b) {
            return a.first < b.first;
        });
        std::string text;
        for (const auto& [time, line] : lines) {
            text += line + "\n";
        }
        return Write("log" + std::to_string(m_logs++) + ".log", text);
    }

    // The JSON objects of the output, a line each.
    std::vector<json> Rows() const {
        std::vector<json> rows;
        std::istringstream lines(Output());
        for (std::string line; std::getline(lines, line);) {
            rows.push_back(json::parse(line));
        }
        return rows;
    }

    template <class Value>
    std::vector<Value> Column(const std::string& field) const {
        std::vector<Value> values;
        for (const json& row : Rows()) {
            values.push_back(row.at(field).get<Value>());
        }
        return values;
    }

    static Question Ask(std::vector<std::string> files) {
        Question question;
        question.input.files = std::move(files);
        question.format = TableFormat::Json;
        return question;
    }

private:
    int m_logs = 0;
};

TEST_F(QuestionsTest, FailuresAreGroupedByWhatTheySay) {
    const std::string log = Log(
        {{"charge", "A", "", 0, 5, 1, 1, "exception", R"({"msg":"card 17 is bad","type":"T"})"},
         {"charge", "B", "", 10, 15, 1, 1, "exception", R"({"msg":"card 9 is bad","type":"T"})"},
         {"charge", "C", "", 20, 25, 1, 1, "exception", R"({"msg":"no answer","type":"T"})"},
         {"charge", "D", "", 30, 35}});

    EXPECT_EQ(RunFailures({.question = Ask({log})}, Streams()), exitSuccess);

    EXPECT_THAT(Column<std::string>("message"), ElementsAre("card # is bad", "no answer"));
    EXPECT_THAT(Column<int>("count"), ElementsAre(2, 1));
    EXPECT_THAT(Column<int>("requests"), ElementsAre(2, 1));
    EXPECT_THAT(Column<std::string>("id"), ElementsAre("A", "C"));
    EXPECT_EQ(Rows()[0]["first"], "2026-03-01T10:00:00.005000Z");
    EXPECT_EQ(Rows()[0]["last"], "2026-03-01T10:00:00.015000Z");
}

TEST_F(QuestionsTest, MessagesMayBeToldApartByTheirNumbers) {
    const std::string log =
        Log({{"charge", "A", "", 0, 5, 1, 1, "exception", R"({"msg":"card 17 is bad"})"},
             {"charge", "B", "", 10, 15, 1, 1, "exception", R"({"msg":"card 9 is bad"})"}});

    RunFailures({.question = Ask({log}), .grouping = {.isExact = true}}, Streams());

    EXPECT_THAT(Column<std::string>("message"), ElementsAre("card 17 is bad", "card 9 is bad"));
}

TEST_F(QuestionsTest, WhatFailedBecauseOfAFailureBelowIsNoFailureOfItsOwn) {
    const std::string lines =
        LineText{.name = "order"}.ToString() + "\n" +
        LineText{.name = "pay", .id = "B", .sponsor = "A", .root = "A", .depth = 1}.ToString() +
        "\n" +
        Failing(LineText{.phase = "end",
                         .name = "pay",
                         .id = "B",
                         .sponsor = "A",
                         .root = "A",
                         .depth = 1,
                         .result = "exception"}
                    .ToString(),
                R"({"msg":"no money"})") +
        "\n" +
        Failing(LineText{.phase = "end", .name = "order", .result = "error"}.ToString(),
                R"({"msg":"detected in one or more sponsees"},"rnerr":2)") +
        "\n";

    RunFailures({.question = Ask({Write("a.log", lines)})}, Streams());

    EXPECT_THAT(Column<std::string>("name"), ElementsAre("pay"));
    EXPECT_THAT(Errors(), HasSubstr("1 more ended so because something below them failed"));
}

TEST_F(QuestionsTest, FailuresCanBeInTheOrderInWhichTheyBegan) {
    const std::string log = Log({{"late", "A", "", 50, 60, 1, 1, "error"},
                                 {"late", "B", "", 60, 70, 1, 1, "error"},
                                 {"early", "C", "", 0, 10, 1, 1, "error"}});

    RunFailures({.question = Ask({log}), .order = FailureOrder::First}, Streams());

    EXPECT_THAT(Column<std::string>("name"), ElementsAre("early", "late"));
}

TEST(FailureGroupsTest, NumbersAndIdsAreReplacedButNotDigitsOfWords) {
    EXPECT_EQ(WithoutNumbers("order 17 of utf8 text, 3.5 s"), "order # of utf8 text, #.# s");
    EXPECT_EQ(WithoutNumbers("id 766D8930-1c2D is gone"), "id #-#c2D is gone");
    EXPECT_EQ(WithoutNumbers("deadbeef and facade are words"), "deadbeef and facade are words");
    EXPECT_EQ(WithoutNumbers(""), "");
}

TEST_F(QuestionsTest, TheHistogramCountsEachActivityInOneClass) {
    const std::string log = Log({{"a", "A", "", 0, 1},
                                 {"a", "B", "", 0, 2},
                                 {"a", "C", "", 0, 3},
                                 {"a", "D", "", 0, 40},
                                 {"a", "E", "", 0, -1}});

    EXPECT_EQ(RunHistogram({.question = Ask({log})}, Streams()), exitSuccess);

    EXPECT_THAT(Column<double>("from_seconds"), ElementsAre(0.001, 0.002, 0.005, 0.01, 0.02));
    EXPECT_THAT(Column<int>("count"), ElementsAre(1, 2, 0, 0, 1));
    EXPECT_EQ(Rows()[1]["share"], 0.5);
    EXPECT_EQ(Rows()[4]["share_up_to_here"], 1.0);
}

TEST_F(QuestionsTest, AHistogramOfWhatWasNotMeasuredIsEmpty) {
    const std::string log = Log({{"a", "A", "", 0, 1}});

    RunHistogram({.question = Ask({log}), .figure = HistogramFigure::Memory}, Streams());

    EXPECT_THAT(Output(), IsEmpty());
    EXPECT_THAT(Errors(), HasSubstr("no activity fits"));
}

TEST_F(QuestionsTest, TheHeatMapHasAColumnForEachIntervalAndARowForEachClass) {
    const std::string log = Log({{"a", "A", "", 0, 1},
                                 {"a", "B", "", 500, 501},
                                 {"a", "C", "", 1000, 1001},
                                 {"a", "D", "", 2000, 2005}});
    HeatOptions options{.question = Ask({log}), .interval = 1'000'000};

    EXPECT_EQ(RunHeat(options, Streams()), exitSuccess);

    EXPECT_THAT(Column<std::string>("time"),
                ElementsAre("2026-03-01T10:00:00.000000Z",
                            "2026-03-01T10:00:01.000000Z",
                            "2026-03-01T10:00:02.000000Z"));
    EXPECT_THAT(Column<int>("count"), ElementsAre(2, 1, 1));
    EXPECT_THAT(Column<double>("from_seconds"), ElementsAre(0.001, 0.001, 0.005));
}

TEST_F(QuestionsTest, TheHeatMapOfATerminalIsAsWideAsThat) {
    std::vector<Span> spans;
    for (int number = 0; number < 500; ++number) {
        spans.push_back({"a", "A" + std::to_string(number), "", number * 100, number * 100 + 5});
    }
    HeatOptions options{.question = Ask({Log(spans)})};
    options.question.format = TableFormat::Text;
    Streams().terminal.width = 60;

    RunHeat(options, Streams());

    std::istringstream lines(Output());
    std::string line;
    std::getline(lines, line);
    EXPECT_THAT(line, StartsWith("  5.00 ms |"));
    EXPECT_GT(line.size(), 35U);
    EXPECT_LE(line.size(), 60U);
}

TEST_F(QuestionsTest, CallersAreTheWaysToAName) {
    const std::string log = Log({{"order", "A", "", 0, 100},
                                 {"query", "B", "A", 10, 20},
                                 {"price", "C", "A", 30, 60},
                                 {"query", "D", "C", 30, 50, 1, 1, "error"},
                                 {"query", "E", "C", 50, 60}});

    EXPECT_EQ(RunCallers({.question = Ask({log}), .name = "query"}, Streams()), exitSuccess);

    EXPECT_THAT(Column<std::string>("callers"),
                ElementsAre("order > price > query", "order > query"));
    EXPECT_THAT(Column<int>("count"), ElementsAre(2, 1));
    EXPECT_THAT(Column<int>("failed"), ElementsAre(1, 0));
    EXPECT_THAT(Column<double>("total_seconds"), ElementsAre(0.03, 0.01));
}

TEST_F(QuestionsTest, CallersMayBeCutToTheNearest) {
    const std::string log =
        Log({{"order", "A", "", 0, 100}, {"price", "C", "A", 30, 60}, {"query", "D", "C", 30, 50}});

    RunCallers({.question = Ask({log}), .name = "query", .levels = 1}, Streams());

    EXPECT_THAT(Column<std::string>("callers"), ElementsAre("price > query"));
}

TEST_F(QuestionsTest, ThePathFollowsWhatEndedLastAndItsOwnTimesAddUp) {
    const std::string log = Log({{"order", "A", "", 0, 100},
                                 {"short", "B", "A", 10, 40, 1, 2},
                                 {"long", "C", "A", 10, 60, 1, 3},
                                 {"pay", "D", "A", 70, 95}});

    EXPECT_EQ(RunPath({.question = Ask({log})}, Streams()), exitSuccess);

    EXPECT_THAT(Column<std::string>("name"), ElementsAre("order", "long", "pay"));
    EXPECT_THAT(Column<double>("own_seconds"), ElementsAre(0.025, 0.05, 0.025));
    EXPECT_THAT(Column<double>("after_seconds"), ElementsAre(0.0, 0.01, 0.07));
    EXPECT_THAT(Column<double>("seconds"), ElementsAre(0.1, 0.05, 0.025));
}

TEST_F(QuestionsTest, WhatLiesOutsideOfItsParentIsNotOnThePath) {
    const std::string log = Log({{"order", "A", "", 0, 100},
                                 {"before", "B", "A", -50, -10, 1, 2},
                                 {"beyond", "C", "A", 60, 180, 1, 3}});

    RunPath({.question = Ask({log})}, Streams());

    EXPECT_THAT(Column<std::string>("name"), ElementsAre("order", "beyond"));
    EXPECT_THAT(Column<double>("own_seconds"), ElementsAre(0.06, 0.04));
}

// The second process is an hour ahead, and names no caller.
TEST_F(QuestionsTest, ThePathGoesThroughProcessesWhoseClocksDiffer) {
    const std::string log =
        Log({{"order", "A", "", 0, 100}, {"stock", "B", "B", 3'600'010, 3'600'060, 2, 9}});

    RunPath({.question = Ask({log})}, Streams());

    EXPECT_THAT(Column<std::string>("name"), ElementsAre("order", "stock"));
    EXPECT_THAT(Column<double>("own_seconds"), ElementsAre(0.05, 0.05));
    EXPECT_EQ(Rows()[1]["link"], "guessed");
    EXPECT_TRUE(Rows()[0]["link"].is_null());
}

TEST_F(QuestionsTest, CallersThatWereGuessedAreMarked) {
    const std::string log = Log({{"order", "A", "", 0, 100}, {"stock", "B", "B", 10, 60, 2, 9}});

    RunCallers({.question = Ask({log}), .name = "stock"}, Streams());

    EXPECT_THAT(Column<std::string>("callers"), ElementsAre("order ~> stock"));
}

TEST_F(QuestionsTest, EqualNeighboursOnThePathAreOneRow) {
    const std::string log = Log({{"order", "A", "", 0, 100},
                                 {"write", "B", "A", 10, 20},
                                 {"write", "C", "A", 20, 30},
                                 {"write", "D", "A", 30, 40},
                                 {"read", "E", "A", 40, 50},
                                 {"write", "F", "A", 50, 60, 1, 1, "error"}});
    PathOptions options{.question = Ask({log})};
    options.question.format = TableFormat::Text;

    RunPath(options, Streams());

    EXPECT_THAT(Output(), HasSubstr("30.0 ms  30.0 %  30.0 ms    write x 3"));
    EXPECT_THAT(Output(), HasSubstr("10.0 ms  10.0 %  10.0 ms    read"));
    EXPECT_THAT(Output(), HasSubstr("10.0 ms  10.0 %  10.0 ms    write  "));
}

TEST_F(QuestionsTest, ThePathsOfManyRequestsAddUpByName) {
    const std::string first = Log({{"order", "A", "", 0, 100}, {"pay", "B", "A", 10, 60}});
    const std::string second = Log({{"order", "P", "", 0, 50}, {"pay", "Q", "P", 10, 40}});

    RunPath({.question = Ask({first, second}), .slowest = 2, .isByName = true}, Streams());

    EXPECT_THAT(Column<std::string>("name"), ElementsAre("pay", "order"));
    EXPECT_THAT(Column<double>("own_seconds"), ElementsAre(0.08, 0.07));
    EXPECT_THAT(Column<int>("count"), ElementsAre(2, 2));
}

TEST_F(QuestionsTest, IntervalsHaveRatesAndPercentilesAndEmptyOnesAreShown) {
    const std::string log = Log({{"a", "A", "", 0, 1},
                                 {"a", "B", "", 100, 103, 1, 1, "error"},
                                 {"b", "C", "", 20'500, 20'510},
                                 {"b", "D", "", 20'500, -1}});
    TopOptions options;
    options.input.files = {log};
    options.format = TopFormat::Json;
    options.over = 10'000'000;

    EXPECT_EQ(RunTopOverTime(options, Streams()), exitSuccess);

    EXPECT_THAT(Column<std::string>("time"),
                ElementsAre("2026-03-01T10:00:00.000000Z",
                            "2026-03-01T10:00:10.000000Z",
                            "2026-03-01T10:00:20.000000Z"));
    EXPECT_THAT(Column<int>("count"), ElementsAre(2, 0, 1));
    EXPECT_THAT(Column<double>("per_second"), ElementsAre(0.2, 0.0, 0.1));
    EXPECT_THAT(Column<int>("failed"), ElementsAre(1, 0, 0));
    EXPECT_EQ(Rows()[0]["p50_seconds"], 0.001);
    EXPECT_EQ(Rows()[0]["max_seconds"], 0.003);
    EXPECT_TRUE(Rows()[1]["p50_seconds"].is_null());
}

TEST_F(QuestionsTest, IntervalsMayBeByGroup) {
    const std::string log = Log({{"a", "A", "", 0, 1}, {"b", "B", "", 0, 3}});
    TopOptions options;
    options.input.files = {log};
    options.format = TopFormat::Json;
    options.over = 10'000'000;
    options.isGroupedOverTime = true;

    RunTopOverTime(options, Streams());

    EXPECT_THAT(Column<std::string>("name"), ElementsAre("a", "b"));
    EXPECT_THAT(Column<double>("p99_seconds"), ElementsAre(0.001, 0.003));
}

class CompareTest : public QuestionsTest {
protected:
    // `count` of a name, which take from `least` on, a millisecond longer each.
    static void Add(std::vector<Span>& spans, const std::string& name, int count, int least) {
        for (int number = 0; number < count; ++number) {
            const int begin = static_cast<int>(spans.size()) * 1'000;
            spans.push_back(
                {name, name + std::to_string(begin), "", begin, begin + least + number});
        }
    }
};

TEST_F(CompareTest, WhatCostsMostComesFirstAndChanceIsToldFromChange) {
    std::vector<Span> before;
    Add(before, "same", 20, 10);
    Add(before, "slower", 20, 10);
    Add(before, "gone", 1, 3);
    std::vector<Span> after;
    Add(after, "same", 20, 10);
    Add(after, "slower", 20, 60);
    Add(after, "new", 1, 5);

    EXPECT_EQ(RunCompare({.question = Ask({Log(before), Log(after)})}, Streams()), exitSuccess);

    EXPECT_THAT(Column<std::string>("name"), ElementsAre("slower", "new", "gone", "same"));
    const std::vector<json> rows = Rows();
    EXPECT_EQ(rows[0]["p50_seconds_old"], 0.019);
    EXPECT_EQ(rows[0]["p50_seconds_new"], 0.069);
    EXPECT_EQ(rows[0]["cost_seconds"], 1.0);
    EXPECT_LT(rows[0]["chance"], 0.001);
    EXPECT_THAT(Column<bool>("significant"), ElementsAre(true, false, false, false));
    EXPECT_EQ(rows[1]["count_old"], 0);
    EXPECT_TRUE(rows[1]["p50_seconds_old"].is_null());
    EXPECT_TRUE(rows[1]["chance"].is_null());
    EXPECT_EQ(rows[3]["change"], 0.0);
    EXPECT_GT(rows[3]["chance"], 0.9);
}

TEST_F(CompareTest, EachSideMayHaveSeveralLogs) {
    const std::string one = Log({{"a", "A", "", 0, 10}});
    const std::string two = Log({{"a", "B", "", 0, 20}});
    const std::string three = Log({{"a", "C", "", 0, 30}});
    const std::string four = Log({{"a", "D", "", 0, 50}});
    CompareOptions options{.question = Ask({three, four}), .old = {one, two}};

    RunCompare(options, Streams());

    EXPECT_THAT(Column<int>("count_old"), ElementsAre(2));
    EXPECT_THAT(Column<int>("count_new"), ElementsAre(2));
    EXPECT_EQ(Rows()[0]["cost_seconds"], 0.05);
}

TEST_F(CompareTest, ALogCanBePartedAtATime) {
    const std::string log =
        Log({{"a", "A", "", 0, 10}, {"a", "B", "", 1'000, 1'030, 1, 1, "error"}});
    CompareOptions options{.question = Ask({log})};
    options.at = *ParseTimestamp("2026-03-01T10:00:01Z");

    RunCompare(options, Streams());

    ASSERT_THAT(Rows(), SizeIs(1));
    EXPECT_EQ(Rows()[0]["count_old"], 1);
    EXPECT_EQ(Rows()[0]["count_new"], 1);
    EXPECT_EQ(Rows()[0]["failed_new"], 1);
    EXPECT_EQ(Rows()[0]["change"], 2.0);
}

TEST_F(CompareTest, ASideWithoutActivitiesIsSaid) {
    const std::string log = Log({{"a", "A", "", 0, 10}});
    CompareOptions options{.question = Ask({log})};
    options.at = *ParseLooseTimestamp("2026-03-02");

    RunCompare(options, Streams());

    EXPECT_THAT(Errors(), HasSubstr("nothing on the new side"));
}

}  // namespace
}  // namespace tarnview
