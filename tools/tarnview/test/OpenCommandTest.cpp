#include "commands/OpenCommand.h"

#include "LogFixture.h"
#include "model/Joiner.h"
#include "read/FollowedFile.h"

#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <list>
#include <memory>
#include <unistd.h>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class OpenCommandTest : public LogFixture {
protected:
    std::string Open(const OpenOptions& options) {
        EXPECT_EQ(RunOpen(options, Streams()), exitSuccess);
        return Output();
    }

    // A request of 10 s at the end of the log, a query of 4 s within it, and one that is over.
    OpenOptions Running() {
        OpenOptions options;
        options.input.files = {Write("a.log",
                                     {{.name = "request", .id = "A", .process = 7, .thread = 8},
                                      {.name = "done",
                                       .id = "D",
                                       .sponsor = "A",
                                       .root = "A",
                                       .milliseconds = 1000,
                                       .process = 7,
                                       .depth = 1},
                                      {.name = "query",
                                       .id = "B",
                                       .sponsor = "A",
                                       .root = "A",
                                       .milliseconds = 6000,
                                       .process = 7,
                                       .thread = 9,
                                       .depth = 1},
                                      {.phase = "end",
                                       .name = "done",
                                       .id = "D",
                                       .sponsor = "A",
                                       .root = "A",
                                       .milliseconds = 10000,
                                       .process = 7,
                                       .depth = 1}})};
        return options;
    }
};

TEST_F(OpenCommandTest, WhatWasRunningWhenTheLogEndedIsShownLongestFirst) {
    EXPECT_EQ(Open(Running()),
              "2026-03-01T10:00:10.000000Z  2 running\n"
              "   for  activity  process:thread  user  id  within\n"
              "10.0 s  request   7:8             ada   A\n"
              "4.00 s  query     7:9             ada   B   request\n");
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(OpenCommandTest, StuckLeavesOutWhatHasNotBeenRunningForLong) {
    OpenOptions options = Running();
    options.stuck = 5;

    const std::string table = Open(options);

    EXPECT_THAT(table, HasSubstr("1 running for 5.00 s or longer"));
    EXPECT_THAT(table, HasSubstr("request"));
    EXPECT_THAT(table, Not(HasSubstr("query")));
}

TEST_F(OpenCommandTest, NowMeasuresUpToThisMoment) {
    OpenOptions options = Running();
    options.isNow = true;
    options.stuck = 3600;
    options.silentAfter = 1e9;

    EXPECT_THAT(Open(options), HasSubstr("2 running"));
}

TEST_F(OpenCommandTest, WhatBelongsToASilentProcessIsNotCalledRunning) {
    OpenOptions options;
    options.input.files = {
        Write("a.log",
              {{.name = "old", .id = "A", .process = 7},
               {.name = "new", .id = "B", .milliseconds = 90'000, .process = 8}})};

    const std::string table = Open(options);

    EXPECT_THAT(table, HasSubstr("  1 running, 1 of processes that are silent\n"));
    EXPECT_THAT(table,
                HasSubstr("\nprocess 7 has been silent since 2026-03-01T10:00:00.000000Z\n"));
}

// One that was killed and started anew, into the same log.
TEST_F(OpenCommandTest, WhatBelongsToAReplacedProcessIsGone) {
    const auto start = [](const char* process) {
        return R"({"time":"2026-03-01T10:00:02Z","message":"Opening MetricsMonitor for context 1","pid":)" +
               std::string(process) + "}\n";
    };
    OpenOptions options;
    options.input.files = {Write("a.log",
                                 start("7") + LineText{.id = "A", .process = 7}.ToString() + "\n" +
                                     start("8") + LineText{.id = "B", .process = 8}.ToString() +
                                     "\n")};

    const std::string table = Open(options);

    EXPECT_THAT(table, HasSubstr("  1 running, 1 of processes that are gone\n"));
    EXPECT_THAT(table, HasSubstr("\nprocess 7 is gone, its last line is of 2026-03-01T10:00:02"));
    EXPECT_THAT(Errors(), HasSubstr("1 process that was replaced in the middle of its work"));
}

// The process that runs the tests is there, one of an impossible id is not.
TEST_F(OpenCommandTest, MeasuredUpToNowAProcessThatIsNoLongerThereIsGone) {
    char host[256] = {};
    gethostname(host, sizeof(host) - 1);
    const auto lines = [&](int process) {
        std::string end = LineText{.phase = "end", .id = "E", .process = process}.ToString();
        end.replace(end.find(R"("environment":{})"),
                    16,
                    R"("environment":{"host":")" + std::string(host) + "\"}");
        const Microseconds now = std::chrono::duration_cast<std::chrono::microseconds>(
                                     std::chrono::system_clock::now().time_since_epoch())
                                     .count();
        const std::size_t time = end.find("2026-03-01T10:00:00.000000Z");
        end.replace(time, 27, FormatTimestamp(now));
        return LineText{.id = "E", .process = process}.ToString() + "\n" + end + "\n" +
               LineText{.name = "work", .id = "A", .process = process}.ToString() + "\n";
    };
    OpenOptions options;
    options.isNow = true;
    options.input.files = {Write("a.log", lines(getpid()) + lines(INT_MAX))};

    EXPECT_THAT(Open(options), HasSubstr("  1 running, 1 of processes that are gone\n"));
    EXPECT_THAT(Output(), HasSubstr("\nprocess 2147483647 is gone"));
}

TEST_F(OpenCommandTest, FiltersChooseWhatIsShown) {
    OpenOptions options = Running();
    options.filter.names = {"que*"};

    EXPECT_THAT(Open(options), HasSubstr("1 running"));

    options.filter = {.processes = {8}};
    EXPECT_THAT(Open(options), HasSubstr("0 running"));
}

TEST_F(OpenCommandTest, ACrashedProcessIsGoneAndItsLastWordsAreShown) {
    const std::string words =
        "Crashed by SIGSEGV on thread 8; open scopes: parse 12.3 ms, request 10 s";
    OpenOptions options;
    options.input.files = {
        Write("a.log",
              LineText{.name = "request", .id = "A", .process = 7, .thread = 8}.ToString() + "\n" +
                  R"({"time":"2026-03-01T10:00:10Z","severity":"fatal","message":")" + words +
                  R"(","pid":7,"tid":9})" + "\n")};

    const std::string table = Open(options);

    EXPECT_THAT(table, HasSubstr("  0 running, 1 of processes that are gone\n"));
    EXPECT_THAT(
        table,
        HasSubstr("\nprocess 7 is gone, its last line is of 2026-03-01T10:00:10.000000Z\n  " +
                  words + "\n"));
    EXPECT_THAT(table, HasSubstr("\n10.0 s  request "));
    EXPECT_THAT(Errors(), HasSubstr("a.log:2: process that crashed: process 7: " + words));
}

TEST_F(OpenCommandTest, AProcessThatGoesOnAfterACrashIsNotGone) {
    OpenOptions options;
    options.input.files = {Write(
        "a.log",
        LineText{.name = "request", .id = "A", .process = 7}.ToString() + "\n" +
            R"({"time":"2026-03-01T10:00:10Z","message":"Crashed by SIGFPE on thread 1","pid":7})"
            "\n" +
            LineText{.name = "later", .id = "B", .milliseconds = 40'000, .process = 7}.ToString() +
            "\n")};

    EXPECT_THAT(Open(options), HasSubstr("  2 running\n"));
}

TEST_F(OpenCommandTest, AConditionChoosesWhatIsShown) {
    OpenOptions options = Running();
    options.filter.where = Expression("tid == 9");

    const std::string table = Open(options);

    EXPECT_THAT(table, HasSubstr("1 running"));
    EXPECT_THAT(table, HasSubstr("query"));
}

TEST_F(OpenCommandTest, AsJsonARowHasPlainNumbersAndTheStateOfItsProcess) {
    OpenOptions options = Running();
    options.format = TableFormat::Json;

    EXPECT_EQ(Open(options),
              R"({"for_seconds":10.000000,"name":"request","pid":7,"tid":8,"user":"ada","id":"A",)"
              R"("within":"","begin":"2026-03-01T10:00:00.000000Z","state":"running",)"
              R"("last_line":"2026-03-01T10:00:10.000000Z"})"
              "\n"
              R"({"for_seconds":4.000000,"name":"query","pid":7,"tid":9,"user":"ada","id":"B",)"
              R"("within":"request","begin":"2026-03-01T10:00:06.000000Z","state":"running",)"
              R"("last_line":"2026-03-01T10:00:10.000000Z"})"
              "\n");
}

TEST_F(OpenCommandTest, RowsFitTheTerminal) {
    OpenOptions options = Running();
    Streams().terminal.width = 30;

    std::istringstream table(Open(options));
    std::string line;
    std::getline(table, line);
    while (std::getline(table, line)) {
        EXPECT_LE(line.size(), 30U) << line;
    }
}

TEST_F(OpenCommandTest, ALogWithoutActivitiesHasNone) {
    OpenOptions options;
    options.input.files = {Write("a.log", "")};

    EXPECT_EQ(Open(options), "no activities\n");
}

TEST_F(OpenCommandTest, FollowingPrintsATableForEachUpdate) {
    OpenOptions options = Running();
    options.silentAfter = 1e9;
    options.follow = {.isFollowing = true, .interval = std::chrono::milliseconds(1), .updates = 3};

    const std::string tables = Open(options);

    std::size_t count = 0;
    for (std::size_t place = tables.find(" 2 running"); place != std::string::npos;
         place = tables.find(" 2 running", place + 1)) {
        ++count;
    }
    EXPECT_EQ(count, 3U);
}

class FollowedFileTest : public LogFixture {
protected:
    void Append(const std::string& name, const LineText& line) const {
        std::ofstream(PathOf(name), std::ios::app) << line.ToString() << "\n";
    }

    void Move(const std::string& from, const std::string& to) const {
        std::filesystem::rename(PathOf(from), PathOf(to));
    }

    void Start() {
        m_path = PathOf("a.log");
        m_file = std::make_unique<FollowedFile>(m_path, m_parser, m_problems);
    }

    // The ids of the lines that have come since the last call.
    std::vector<std::string> Poll() {
        std::vector<std::string> ids;
        m_file->Poll([&](const LogLine& line, const Place&) { ids.emplace_back(line.id); });
        return ids;
    }

    std::uint64_t Count(ProblemKind kind) const { return m_problems.Count(kind); }

private:
    std::string m_path;
    std::ostringstream m_errors;
    Problems m_problems{m_errors};
    LineParser m_parser;
    std::unique_ptr<FollowedFile> m_file;
};

TEST_F(FollowedFileTest, LinesComeOnceAndOnlyWhenTheyAreWhole) {
    Append("a.log", {.id = "1"});
    Start();
    EXPECT_THAT(Poll(), ElementsAre("1"));
    EXPECT_THAT(Poll(), IsEmpty());

    const std::string line = LineText{.id = "2"}.ToString();
    std::ofstream(PathOf("a.log"), std::ios::app) << line.substr(0, 40) << std::flush;
    EXPECT_THAT(Poll(), IsEmpty());
    std::ofstream(PathOf("a.log"), std::ios::app) << line.substr(40) << "\n";

    EXPECT_THAT(Poll(), ElementsAre("2"));
    EXPECT_EQ(Count(ProblemKind::UnreadableLine), 0U);
}

TEST_F(FollowedFileTest, ARotationLosesNothing) {
    Append("a.log", {.id = "1"});
    Start();
    EXPECT_THAT(Poll(), ElementsAre("1"));
    Append("a.log", {.id = "2"});
    Move("a.log", "a.1.log");
    Append("a.1.log", {.id = "3"});
    Append("a.log", {.id = "4"});

    EXPECT_THAT(Poll(), ElementsAre("2", "3", "4"));
    Append("a.log", {.id = "5"});
    EXPECT_THAT(Poll(), ElementsAre("5"));
}

TEST_F(FollowedFileTest, SeveralRotationsBetweenTwoLooksLoseNothing) {
    Append("a.log", {.id = "1"});
    Start();
    EXPECT_THAT(Poll(), ElementsAre("1"));
    Move("a.log", "a.1.log");
    Append("a.log", {.id = "2"});
    Move("a.1.log", "a.2.log");
    Move("a.log", "a.1.log");
    Append("a.log", {.id = "3"});

    EXPECT_THAT(Poll(), ElementsAre("2", "3"));
}

TEST_F(FollowedFileTest, BetweenMovingAwayAndANewFileTheOldOneIsRead) {
    Append("a.log", {.id = "1"});
    Start();
    EXPECT_THAT(Poll(), ElementsAre("1"));
    Move("a.log", "a.1.log");
    Append("a.1.log", {.id = "2"});
    EXPECT_THAT(Poll(), ElementsAre("2"));
    Append("a.log", {.id = "3"});

    EXPECT_THAT(Poll(), ElementsAre("3"));
}

TEST_F(FollowedFileTest, ATruncatedFileIsReadAnew) {
    Append("a.log", {.id = "1"});
    Append("a.log", {.id = "2"});
    Start();
    EXPECT_THAT(Poll(), ElementsAre("1", "2"));
    std::ofstream(PathOf("a.log"), std::ios::trunc) << LineText{.id = "3"}.ToString() << "\n";

    EXPECT_THAT(Poll(), ElementsAre("3"));
}

TEST_F(FollowedFileTest, AFileThatIsNotThereAtFirstIsAnError) {
    EXPECT_THROW(Start(), std::system_error);
}

}  // namespace
}  // namespace tarnview
