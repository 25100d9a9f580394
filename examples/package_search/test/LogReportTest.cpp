#include "LogReport.h"

#include "ActivityTree.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::ElementsAre;
using testing::IsNull;
using testing::NotNull;
using testing::Pair;

constexpr std::uint32_t process = 7;

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

struct Line {
    std::string name;
    std::string id;
    std::string sponsor;
    std::uint32_t writer = process;
    double elapsed = 0;
    double exclusive = 0;
    std::string result = "ok";
    std::string body = "{}";
    std::string time = "2030-01-01T00:00:00.000000Z";

    std::string Begin() const { return Whole("begin", ""); }

    std::string End() const {
        return Whole("end",
                     ",\"elapsed\":" + std::to_string(elapsed) + ",\"exclusive\":" +
                         std::to_string(exclusive) + ",\"rk\":" + Quoted(result));
    }

private:
    std::string Whole(const std::string& phase, const std::string& more) const {
        return R"({"time":)" + Quoted(time) + R"(,"severity":"info","event":)" +
               Quoted(phase + "-" + name) + R"(,"pid":)" + std::to_string(writer) +
               R"(,"tid":11,"session":"s","request":"r","user":"u","site":"w","activity":{"id":)" +
               Quoted(id) + R"(,"name":)" + Quoted(name) +
               (sponsor.empty() ? "" : R"(,"sponsor":)" + Quoted(sponsor)) + R"(,"type":)" +
               Quoted(phase) + more + R"(},"attributes":{},"body":)" + body + "}\n";
    }
};

class LogReportTest : public testing::Test {
protected:
    LogReportTest()
        : m_folder(std::filesystem::temp_directory_path() /
                   ("log-report-" + std::to_string(getpid()))),
          m_log(m_folder / "a.log") {
        std::filesystem::create_directories(m_folder);
    }

    ~LogReportTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    void Write(const std::string& text) {
        std::ofstream(m_log, std::ios::app | std::ios::binary) << text;
    }

    // What the writer does when a file is full.
    void Rotate() {
        if (std::filesystem::exists(m_folder / "a.1.log")) {
            std::filesystem::rename(m_folder / "a.1.log", m_folder / "a.2.log");
        }
        std::filesystem::rename(m_log, m_folder / "a.1.log");
    }

    LogPosition Start() {
        Write("");
        return LogPosition::EndOf(m_log);
    }

    std::filesystem::path m_folder;
    std::filesystem::path m_log;
};

TEST_F(LogReportTest, BothLinesOfAnActivityBecomeOneEntry) {
    const LogPosition start = Start();
    Line line{"query", "A", ""};
    line.body = R"({"kind":"search","sDepth":0})";
    Write(line.Begin());
    line.elapsed = 1.5;
    line.exclusive = 0.25;
    line.body = R"({"rows":3})";
    Write(line.End());

    const LogReport report = ReadLog(start, process);

    ASSERT_EQ(report.activities.size(), 1U);
    const LoggedActivity& activity = report.activities.front();
    EXPECT_EQ(activity.name, "query");
    EXPECT_EQ(activity.elapsed, 1.5);
    EXPECT_EQ(activity.exclusive, 0.25);
    EXPECT_EQ(activity.result, "ok");
    EXPECT_EQ(activity.attributes, "kind=search rows=3");
    EXPECT_EQ(activity.threadId, 11U);
    EXPECT_EQ(activity.user + activity.site + activity.session + activity.request, "uwsr");
    EXPECT_EQ(report.beginLines, 1U);
    EXPECT_EQ(report.endLines, 1U);
}

TEST_F(LogReportTest, WhatStoodThereBeforeAndWhatOthersWriteIsLeftOut) {
    Write(Line{"query", "old", ""}.Begin());
    const LogPosition start = Start();
    Line foreign{"query", "foreign", ""};
    foreign.writer = process + 1;
    Write(foreign.Begin() + Line{"query", "mine", ""}.Begin());

    const LogReport report = ReadLog(start, process);

    EXPECT_THAT(report.activities, ElementsAre(testing::Field(&LoggedActivity::id, "mine")));
    EXPECT_EQ(report.beginLines, 1U);
}

TEST_F(LogReportTest, ALogIsFollowedThroughRenamedFiles) {
    Write(Line{"query", "old", ""}.Begin());
    const LogPosition start = Start();
    Write(Line{"query", "A", ""}.Begin());
    Rotate();
    Write(Line{"query", "B", ""}.Begin());
    Rotate();
    Write(Line{"query", "C", ""}.Begin());

    const LogReport report = ReadLog(start, process);

    EXPECT_THAT(report.activities,
                ElementsAre(testing::Field(&LoggedActivity::id, "A"),
                            testing::Field(&LoggedActivity::id, "B"),
                            testing::Field(&LoggedActivity::id, "C")));
}

TEST_F(LogReportTest, FilesThatWereFullBeforeTheStartAreNotRead) {
    Write(Line{"query", "old", ""}.Begin());
    Rotate();
    const LogPosition start = Start();
    Write(Line{"query", "A", ""}.Begin());

    const LogReport report = ReadLog(start, process);

    EXPECT_EQ(report.beginLines, 1U);
}

TEST_F(LogReportTest, ALogWhoseBeginningIsGoneIsAnError) {
    const LogPosition start = Start();
    std::filesystem::rename(m_log, m_folder / "elsewhere");
    Write("");

    EXPECT_THROW(ReadLog(start, process), std::runtime_error);
}

TEST_F(LogReportTest, AMissingLogIsAnError) {
    EXPECT_THROW(LogPosition::EndOf(m_log), std::system_error);
}

TEST_F(LogReportTest, LinesThatAreNoneAreCounted) {
    const LogPosition start = Start();
    Write("not JSON\n{\"pid\":7,\"activity\":1}\n{\"pid\":7,\"message\":\"hello\"}\n[1]\n");
    Write(Line{"query", "A", ""}.Begin() + "{\"pid\":7,\"trunc");

    const LogReport report = ReadLog(start, process);

    EXPECT_EQ(report.unreadableLines, 4U);
    EXPECT_EQ(report.otherLines, 1U);
    EXPECT_EQ(report.beginLines, 1U);
}

TEST_F(LogReportTest, PartsHangUnderTheirSponsorInTheOrderTheyBegan) {
    const LogPosition start = Start();
    Line late{"late", "L", "R"};
    late.time = "2030-01-01T00:00:00.000002Z";
    Line early{"early", "E", "R"};
    early.time = "2030-01-01T00:00:00.000001Z";
    Write(late.Begin() + Line{"root", "R", ""}.Begin() + early.Begin() +
          Line{"leaf", "F", "E"}.Begin());

    const LogReport report = ReadLog(start, process);

    ASSERT_EQ(report.activities.size(), 4U);
    EXPECT_EQ(report.activities[1].name, "root");
    EXPECT_THAT(report.activities[1].children, ElementsAre(2U, 0U));
    EXPECT_THAT(report.activities[2].children, ElementsAre(3U));
}

TEST_F(LogReportTest, TheSlowestIsTheFirstOfTheLongestThatEnded) {
    const LogPosition start = Start();
    const auto write = [this](const char* name, const char* id, double elapsed) {
        Line line{name, id, ""};
        line.elapsed = elapsed;
        Write(line.Begin() + line.End());
    };
    write("query", "quick", 0.001);
    write("query", "slow", 0.5);
    write("query", "as slow", 0.5);
    write("load", "other", 3.0);
    Write(Line{"query", "open", ""}.Begin());

    const LogReport report = ReadLog(start, process);

    ASSERT_THAT(report.Slowest("query"), NotNull());
    EXPECT_EQ(report.Slowest("query")->id, "slow");
    EXPECT_THAT(report.Slowest("absent"), IsNull());
    EXPECT_THAT(report.CountByName(), ElementsAre(Pair("load", 1U), Pair("query", 4U)));
}

TEST_F(LogReportTest, TheTreeIsIndentedAndMarksWhatDidNotEndWell) {
    const LogPosition start = Start();
    Line root{"query", "R", ""};
    Line failed{"run", "A", "R"};
    failed.result = "early-termination";
    failed.elapsed = 0.25;
    failed.exclusive = 0.125;
    failed.body = R"({"worker":1})";
    Line open{"run", "B", "R"};
    root.elapsed = root.exclusive = 1.5;
    Write(root.Begin() + failed.Begin() + open.Begin());
    failed.body = "{}";
    Write(failed.End() + root.End());
    const LogReport report = ReadLog(start, process);
    std::ostringstream out;

    PrintTree(out, report, report.activities.front());

    EXPECT_EQ(out.str(),
              "activity     elapsed   exclusive   thread  attributes\n"
              "query        1.500 s     1.500 s       11\n"
              "  run        0.250 s     0.125 s       11  worker=1  (early-termination)\n"
              "  run        0.000 s     0.000 s       11  (never ended)\n");
}

}  // namespace
}  // namespace packagesearch
