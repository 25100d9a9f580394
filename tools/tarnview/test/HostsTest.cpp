#include "read/Hosts.h"

#include "LogFixture.h"
#include "commands/CheckCommand.h"
#include "commands/CompareCommand.h"
#include "commands/ExportCommand.h"
#include "commands/OpenCommand.h"
#include "commands/PathCommand.h"
#include "commands/ReportCommand.h"
#include "commands/ShowCommand.h"
#include "commands/TopCommand.h"
#include "commands/TreeCommand.h"
#include "read/InputFiles.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class HostsTest : public LogFixture {
protected:
    // What the end of a root says of where it ran.
    std::string On(const std::string& host, LineText end) {
        end.phase = "end";
        std::string line = end.ToString();
        const std::string empty = R"("environment":{})";
        line.replace(line.find(empty),
                     empty.size(),
                     R"("environment":{"env":"live","host":")" + host + R"("})");
        return line + "\n";
    }

    // A root on a host, which says so.
    std::string WriteOf(const std::string& name, const std::string& host, const std::string& id) {
        const LineText line{.id = id, .elapsed = 1};
        return Write(name, line.ToString() + "\n" + On(host, line));
    }

    // A request on vega, thread 1 of process 1, answered on altair by a process and a thread of the
    // same numbers. Another root of altair runs meanwhile.
    std::vector<std::string> TwoHosts() {
        const LineText serve{.name = "serve", .id = "A"};
        const LineText call{.name = "call", .id = "B", .sponsor = "A", .root = "A", .depth = 1};
        const LineText own{.name = "own", .id = "D"};
        const LineText answer{.name = "answer", .id = "C", .sponsor = "C", .root = "A", .depth = 2};
        const auto at = [](LineText line, const char* phase, int time, int elapsed) {
            line.phase = phase;
            line.milliseconds = time;
            line.elapsed = elapsed;
            line.exclusive = elapsed;
            return line;
        };
        LineText served = at(serve, "end", 100, 100);
        served.exclusive = 20;
        return {
            Write("vega.log",
                  serve.ToString() + "\n" + at(call, "begin", 10, 0).ToString() + "\n" +
                      at(call, "end", 90, 80).ToString() + "\n" + On("vega", served)),
            Write("altair.log",
                  at(own, "begin", 5, 0).ToString() + "\n" + at(answer, "begin", 20, 0).ToString() +
                      "\n" + at(answer, "end", 60, 40).ToString() + "\n" +
                      On("altair", at(own, "end", 200, 195)))};
    }

    std::vector<json> JsonLines() const {
        std::vector<json> lines;
        std::istringstream text(Output());
        for (std::string line; std::getline(text, line);) {
            lines.push_back(json::parse(line));
        }
        return lines;
    }
};

TEST_F(HostsTest, ALogIsOfTheHostThatItsLinesName) {
    const std::vector<std::string> files = {WriteOf("a.log", "vega", "A"),
                                            WriteOf("b.log", "altair", "B")};

    const Hosts hosts(files, {});

    EXPECT_TRUE(hosts.AreSeveral());
    EXPECT_EQ(hosts.Of(files[0]), "vega");
    EXPECT_EQ(hosts.Of(files[1]), "altair");
}

TEST_F(HostsTest, LogsOfOneHostHaveNoNeedOfItsName) {
    const std::vector<std::string> files = {WriteOf("a.log", "vega", "A"),
                                            WriteOf("b.log", "vega", "B"),
                                            Write("c.log", {{.id = "C"}})};

    const Hosts hosts(files, {});

    EXPECT_FALSE(hosts.AreSeveral());
    EXPECT_EQ(hosts.Of(files[0]), "");
    EXPECT_THAT(hosts.Nameless(), IsEmpty());
}

TEST_F(HostsTest, AmongSeveralHostsALogThatNamesNoneIsOfAnother) {
    const std::vector<std::string> files = {WriteOf("a.log", "vega", "A"),
                                            WriteOf("b.log", "altair", "B"),
                                            Write("c.log", {{.id = "C"}})};

    const Hosts hosts(files, {});

    EXPECT_EQ(hosts.Of(files[2]), "");
    EXPECT_THAT(hosts.Nameless(), ElementsAre(files[2]));
}

TEST_F(HostsTest, WhatSomebodySaysIsStrongerThanTheLog) {
    const std::vector<std::string> files = {WriteOf("a.log", "localhost", "A"),
                                            WriteOf("b.log", "localhost", "B")};

    const Hosts hosts(files, {{"one", files[0]}, {"two", PathOf("./b.log")}});

    EXPECT_EQ(hosts.Of(files[0]), "one");
    EXPECT_EQ(hosts.Of(files[1]), "two");
}

TEST_F(HostsTest, WhoNamesTheHostOfOneLogMeansThatTheOthersAreOfAnother) {
    const std::vector<std::string> files = {Write("a.log", {{.id = "A"}}),
                                            Write("b.log", {{.id = "B"}})};

    const Hosts hosts(files, {{"vega", files[0]}});

    EXPECT_EQ(hosts.Of(files[0]), "vega");
    EXPECT_EQ(hosts.Of(files[1]), "");
    EXPECT_THAT(hosts.Nameless(), ElementsAre(files[1]));
}

TEST_F(HostsTest, FullFilesAndJournalsAreOfTheHostOfTheirLog) {
    WriteOf("a.1.log", "vega", "A");
    Write("a.log", {{.id = "A2"}});
    Write("a.log.4711.journal", "");
    WriteOf("b.log", "altair", "B");
    const std::vector<std::string> files = FilesToRead({PathOf("a.log"), PathOf("b.log")}, true);

    const Hosts hosts(files, {});

    ASSERT_THAT(
        files,
        ElementsAre(
            PathOf("a.1.log"), PathOf("a.log"), PathOf("a.log.4711.journal"), PathOf("b.log")));
    EXPECT_EQ(hosts.Of(files[0]), "vega");
    EXPECT_EQ(hosts.Of(files[1]), "vega");
    EXPECT_EQ(hosts.Of(files[2]), "vega");
    EXPECT_EQ(hosts.Of(files[3]), "altair");
}

TEST_F(HostsTest, AnIdThatAnotherHostHasUsedIsNotRepeated) {
    const LineText line{.id = "A", .sponsor = "R", .root = "R", .depth = 1};
    LineText end = line;
    end.phase = "end";
    const LineText root{.id = "R"};
    LineText rootEnd = root;
    rootEnd.phase = "end";
    const std::string vega = Write("vega.log", {root, line, end, rootEnd});
    const std::string altair = Write("altair.log", {root, line, end, rootEnd});
    CheckOptions options;
    options.input.files = {vega, altair};

    EXPECT_EQ(RunCheck(options, Streams()), exitNegative);
    EXPECT_THAT(Errors(), HasSubstr("altair.log:2: id that repeats: A has been used before"));

    options.input.hosts = {{"vega", vega}, {"altair", altair}};
    EXPECT_EQ(RunCheck(options, Streams()), exitSuccess);
}

TEST_F(HostsTest, GapsInNumbersAreThoseOfAProcessOfAHost) {
    const auto numbered = [](const char* id, int number) {
        std::string line = LineText{.id = id, .process = 7}.ToString();
        line.insert(line.find(R"("type")"), R"("seq":)" + std::to_string(number) + ",");
        return line + "\n";
    };
    const std::string vega = Write("vega.log", numbered("A", 1) + numbered("B", 3));
    const std::string altair = Write("altair.log", numbered("C", 1) + numbered("D", 2));
    CheckOptions options;
    options.input.files = {vega, altair};
    options.input.hosts = {{"vega", vega}, {"altair", altair}};
    options.ignored = {ProblemKind::NeverEnded};

    EXPECT_EQ(RunCheck(options, Streams()), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("vega.log: gap in the numbers of lines: process vega/7, 2\n"));
    EXPECT_THAT(Output(), Not(HasSubstr("altair")));
}

TEST_F(HostsTest, AForkOnOneHostEndsNothingOfAnother) {
    // Process 8 of vega is a child of process 7; process 7 of altair has the same id open.
    const LineText begin{.name = "serve", .id = "A", .process = 7};
    const LineText other{.name = "serve", .id = "A", .milliseconds = 50, .process = 7};
    const LineText end{.phase = "end",
                       .name = "serve",
                       .id = "A",
                       .milliseconds = 90,
                       .process = 8,
                       .elapsed = 90,
                       .exclusive = 90};
    const std::string vega = Write("vega.log", {begin});
    const std::string altair = Write("altair.log", {other});
    const std::string child = Write("child.log", {end});
    TreeOptions options;
    options.isJson = true;
    options.input.files = {vega, altair, child};
    options.input.hosts = {{"vega", vega}, {"altair", altair}, {"vega", child}};

    EXPECT_EQ(RunTree(options, Streams()), exitSuccess);

    const std::vector<json> rows = JsonLines();
    ASSERT_EQ(rows.size(), 3U);
    for (const json& row : rows) {
        if (row["pid"] == 8) {
            EXPECT_EQ(row["begin"], "2026-03-01T10:00:00.000000Z") << "that of its parent on vega";
            EXPECT_EQ(row["host"], "vega");
        } else {
            EXPECT_TRUE(row["end"].is_null());
        }
    }
}

TEST_F(HostsTest, ACallToAnEqualProcessOfAnotherHostIsFound) {
    TreeOptions options;
    options.input.files = TwoHosts();

    EXPECT_EQ(RunTree(options, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("\n  call "));
    EXPECT_THAT(Output(), HasSubstr("\n    answer "));
    EXPECT_THAT(Output(), HasSubstr("  vega/1:1 "));
    EXPECT_THAT(Output(), HasSubstr("  altair/1:1 "));
    EXPECT_THAT(Errors(), Not(HasSubstr("--host")));
}

TEST_F(HostsTest, ClocksOfEqualProcessesOfTwoHostsAreCompared) {
    const auto at = [](LineText line, const char* phase, int time) {
        line.phase = phase;
        line.milliseconds = time;
        line.elapsed = 10;
        return line;
    };
    std::string vega;
    std::string altair;
    for (int number = 0; number < 3; ++number) {
        const std::string id = std::to_string(number);
        const LineText call{.name = "call", .id = "A" + id};
        const LineText answer{
            .name = "answer", .id = "B" + id, .sponsor = "B" + id, .root = "A" + id, .depth = 1};
        vega += at(call, "begin", 100 * number).ToString() + "\n" +
                at(call, "end", 100 * number + 10).ToString() + "\n";
        altair += at(answer, "begin", 100 * number + 5000).ToString() + "\n" +
                  at(answer, "end", 100 * number + 5010).ToString() + "\n";
    }
    TreeOptions options;
    options.input.files = {Write("vega.log", vega), Write("altair.log", altair)};
    options.input.hosts = {{"vega", options.input.files[0]}, {"altair", options.input.files[1]}};

    EXPECT_EQ(RunTree(options, Streams()), exitSuccess);

    EXPECT_THAT(Errors(),
                HasSubstr("the clock of process altair/1 is 5.00 s ahead of that of process "
                          "vega/1\n"));
}

TEST_F(HostsTest, ProgramsGetTheHostOnlyIfThereAreSeveral) {
    OpenOptions open;
    open.format = TableFormat::Json;
    open.input.files = {Write("a.log", {{.id = "A"}}), Write("b.log", {{.id = "B"}})};
    EXPECT_EQ(RunOpen(open, Streams()), exitSuccess);
    EXPECT_THAT(Output(), Not(HasSubstr("host")));

    open.input.hosts = {{"vega", open.input.files[0]}, {"altair", open.input.files[1]}};
    EXPECT_EQ(RunOpen(open, Streams()), exitSuccess);

    const std::vector<json> rows = JsonLines();
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_EQ(rows[2]["host"], "vega");
    EXPECT_EQ(rows[3]["host"], "altair");
}

TEST_F(HostsTest, AProcessIsGoneOnlyIfItsOwnHostSaysSo) {
    const std::string start = R"({"time":"2026-03-01T10:00:01.000000Z","severity":"info",)"
                              R"("message":"Opening MetricsMonitor for context 1","pid":8,"tid":1})"
                              "\n";
    const std::string begin = LineText{.id = "A", .process = 7}.ToString() + "\n";
    OpenOptions open;
    open.input.files = {Write("a.log", begin + start), Write("b.log", begin)};
    open.input.hosts = {{"vega", open.input.files[0]}, {"altair", open.input.files[1]}};

    EXPECT_EQ(RunOpen(open, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("\nprocess vega/7 is gone"));
    EXPECT_THAT(Output(), Not(HasSubstr("process altair/7 is gone")));
}

TEST_F(HostsTest, ConditionsAndGroupsKnowTheHost) {
    TopOptions options;
    options.input.files = TwoHosts();
    options.groupBy = {"host", "name"};
    options.filter.where = Expression("host == 'altair' and pid == 1");

    EXPECT_EQ(RunTop(options, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("altair"));
    EXPECT_THAT(Output(), Not(HasSubstr("vega")));
}

TEST_F(HostsTest, ThePathAndAllAboutOneActivityNameTheHost) {
    PathOptions path;
    path.question.input.files = TwoHosts();
    EXPECT_EQ(RunPath(path, Streams()), exitSuccess);
    EXPECT_THAT(Output(), HasSubstr("altair/1:1"));

    ShowOptions show;
    show.input.files = TwoHosts();
    show.id = "C";
    EXPECT_EQ(RunShow(show, Streams()), exitSuccess);
    EXPECT_THAT(Output(), HasSubstr("  host            altair\n  process         1\n"));
}

TEST_F(HostsTest, EqualProcessesHaveDifferentNumbersInTraces) {
    ExportOptions options;
    options.input.files = TwoHosts();
    options.format = ExportFormat::Chrome;

    EXPECT_EQ(RunExport(options, Streams()), exitSuccess);

    std::map<std::string, int> numbers;
    std::map<std::string, int> processOf;
    const json trace = json::parse(Output());
    for (const json& event : trace["traceEvents"]) {
        if (event["name"] == "process_name") {
            numbers[event["args"]["name"]] = event["pid"];
        } else if (event["ph"] == "X") {
            processOf[event["name"]] = event["pid"];
        }
    }
    ASSERT_EQ(numbers.size(), 2U);
    EXPECT_NE(numbers["- altair/1"], numbers["- vega/1"]);
    EXPECT_EQ(processOf["answer"], numbers["- altair/1"]);
    EXPECT_EQ(processOf["call"], numbers["- vega/1"]);
}

TEST_F(HostsTest, SpansAreOfTheResourceOfTheirHost) {
    ExportOptions options;
    options.input.files = TwoHosts();
    options.format = ExportFormat::Otlp;

    EXPECT_EQ(RunExport(options, Streams()), exitSuccess);

    std::map<std::string, std::string> hostOf;
    for (const json& request : JsonLines()) {
        for (const json& resource : request["resourceSpans"]) {
            std::string host;
            for (const json& attribute : resource["resource"]["attributes"]) {
                if (attribute["key"] == "host.name") {
                    host = attribute["value"]["stringValue"];
                }
            }
            for (const json& span : resource["scopeSpans"][0]["spans"]) {
                hostOf[span["name"]] = host;
            }
        }
    }
    EXPECT_EQ(hostOf,
              (std::map<std::string, std::string>{
                  {"serve", "vega"}, {"call", "vega"}, {"own", "altair"}, {"answer", "altair"}}));
}

TEST_F(HostsTest, TheNameThatSomebodyGivesIsThatOfTheResource) {
    ExportOptions options;
    options.input.files = {WriteOf("a.log", "localhost", "A"), WriteOf("b.log", "localhost", "B")};
    options.input.hosts = {{"vega", options.input.files[0]}, {"altair", options.input.files[1]}};
    options.format = ExportFormat::Otlp;

    EXPECT_EQ(RunExport(options, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("altair"));
    EXPECT_THAT(Output(), Not(HasSubstr("{\"stringValue\":\"localhost\"}")));
}

TEST_F(HostsTest, AnEndThatOnlyAnotherHostHasBegunHasNoBegin) {
    for (const int process : {7, 8}) {
        CheckOptions options;
        options.input.files = {Write("a.log",
                                     {{.id = "A", .process = 7},
                                      {.id = "B", .process = 7},
                                      {.phase = "end", .id = "B", .process = 7}}),
                               Write("b.log",
                                     {{.phase = "end", .id = "A", .process = process},
                                      {.phase = "end", .id = "B", .process = 8}})};
        options.ignored = {ProblemKind::NeverEnded};
        EXPECT_EQ(RunCheck(options, Streams()), exitSuccess) << "a child may end it as well";

        options.input.hosts = {{"vega", options.input.files[0]},
                               {"altair", options.input.files[1]}};
        EXPECT_EQ(RunCheck(options, Streams()), exitNegative);
        EXPECT_THAT(Errors(), HasSubstr("b.log:1: end without a begin"));
        EXPECT_THAT(Errors(), HasSubstr("b.log:2: end without a begin"));
    }
}

TEST_F(HostsTest, WhatCannotBeToldApartIsSaid) {
    const auto write = [this](const char* name, const char* id) {
        return Write(
            name, {{.id = id}, {.phase = "end", .id = id, .milliseconds = 3000, .elapsed = 3000}});
    };
    TopOptions options;
    options.input.files = {write("a.log", "A"), write("b.log", "B")};

    EXPECT_EQ(RunTop(options, Streams()), exitSuccess);

    EXPECT_THAT(Errors(),
                HasSubstr("process 1 is in " + options.input.files[0] + " and " +
                          options.input.files[1] + " at the same time; if these are of two hosts"));
}

TEST_F(HostsTest, PartsOfOneLogAreNotTakenForTwoHosts) {
    TopOptions options;
    options.input.files = {
        Write("first.log", {{.id = "A"}, {.id = "B", .milliseconds = 3000}}),
        Write("then.log",
              {{.phase = "end", .id = "B", .milliseconds = 2900, .elapsed = 0},
               {.phase = "end", .id = "A", .milliseconds = 6000, .elapsed = 6000}})};

    EXPECT_EQ(RunTop(options, Streams()), exitSuccess);

    EXPECT_THAT(Errors(), Not(HasSubstr("--host")));
}

TEST_F(HostsTest, AHostThatNobodyNamesIsSaid) {
    TopOptions options;
    options.input.files = {WriteOf("a.log", "vega", "A"),
                           WriteOf("b.log", "altair", "B"),
                           Write("c.log", {{.id = "C"}})};

    EXPECT_EQ(RunTop(options, Streams()), exitSuccess);

    EXPECT_THAT(Errors(), HasSubstr("c.log does not say of which host it is"));
}

TEST_F(HostsTest, AHostsNameMovesNoCursor) {
    TreeOptions options;
    options.input.files = {WriteOf("a.log", R"(ve\u009b2Jga\u202e)", "A"),
                           WriteOf("b.log", "altair", "B")};

    EXPECT_EQ(RunTree(options, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("  ve?2Jga?/1:1"));
}

}  // namespace
}  // namespace tarnview
