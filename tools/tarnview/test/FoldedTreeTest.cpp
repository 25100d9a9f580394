#include "LogFixture.h"
#include "commands/TreeCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Le;
using testing::Not;
using testing::SizeIs;

class FoldedTreeTest : public LogFixture {
protected:
    static std::string Child(const std::string& name,
                             const std::string& id,
                             int begin,
                             int microseconds,
                             const std::string& result = "ok",
                             const std::string& sponsor = "R",
                             int depth = 1) {
        LineText line{.name = name,
                      .id = id,
                      .sponsor = sponsor,
                      .root = "R",
                      .milliseconds = begin,
                      .depth = depth,
                      .body = R"({"output":")" + id + "\"}"};
        std::string text = line.ToString() + "\n";
        line.phase = "end";
        line.microseconds = microseconds;
        line.result = result;
        return text + line.ToString() + "\n";
    }

    // A root of 500 ms, and in it what `children` are the lines of.
    std::string Log(const std::string& children) {
        return Write(
            "a.log",
            LineText{.name = "serve", .id = "R"}.ToString() + "\n" + children +
                LineText{
                    .phase = "end", .name = "serve", .id = "R", .milliseconds = 500, .elapsed = 500}
                    .ToString() +
                "\n");
    }

    std::string Tree(TreeOptions options, const std::string& children) {
        options.input.files = {Log(children)};
        EXPECT_EQ(RunTree(options, Streams()), exitSuccess);
        return Output();
    }

    static std::string Writes(int count) {
        std::string lines;
        for (int number = 0; number < count; ++number) {
            lines += Child("write", "W" + std::to_string(number), 10 + number, 4 + number % 3);
        }
        return lines;
    }

    static std::size_t LinesOf(const std::string& text) {
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }
};

TEST_F(FoldedTreeTest, ManySiblingsOfOneNameAreOneLineWithTheirSumAndMedian) {
    const std::string tree = Tree({}, Writes(300));

    EXPECT_THAT(tree, HasSubstr("\n  write x 300   1.50 ms"));
    EXPECT_THAT(tree, HasSubstr("p50 5 us, max 6 us\n"));
    EXPECT_EQ(LinesOf(tree), 4U) << tree;
}

TEST_F(FoldedTreeTest, FewSiblingsAreShownOneByOneAndAllIfAskedFor) {
    TreeOptions all;
    all.most = 0;

    EXPECT_EQ(LinesOf(Tree({}, Writes(5))), 8U);
    EXPECT_EQ(LinesOf(Tree(all, Writes(100))), 8U + 103U);
}

TEST_F(FoldedTreeTest, OneFailureAmongManyIsNotHiddenAmongThem) {
    const std::string tree =
        Tree({}, Writes(50) + Child("write", "F", 300, 9, "exception") + Writes(0));

    EXPECT_THAT(tree, HasSubstr("write x 50 "));
    EXPECT_THAT(tree, HasSubstr("exception\n"));
    EXPECT_EQ(LinesOf(tree), 5U) << tree;
}

TEST_F(FoldedTreeTest, ManyFailuresFoldAndTheSlowestIsShownAsAnExample) {
    std::string lines;
    for (int number = 0; number < 20; ++number) {
        lines += Child("write", "F" + std::to_string(number), 10 + number, 1 + number, "exception");
    }

    const std::string tree = Tree({}, lines);

    EXPECT_THAT(tree, HasSubstr("write x 20 "));
    EXPECT_THAT(tree, HasSubstr("max 20 us, each exception\n"));
    EXPECT_EQ(LinesOf(tree), 5U) << tree;
}

// A failure below a sibling parts it from those below which all is well.
TEST_F(FoldedTreeTest, WhatHasAFailureBelowItDoesNotFoldWithTheRest) {
    std::string lines;
    for (int number = 0; number < 20; ++number) {
        const std::string id = "I" + std::to_string(number);
        lines += Child("item", id, 10 + number, 50);
        if (number == 7) {
            lines += Child("step", "S", 10 + number, 20, "exception", id, 2);
        }
    }

    const std::string tree = Tree({}, lines);

    EXPECT_THAT(tree, HasSubstr("item x 19 "));
    EXPECT_THAT(tree, HasSubstr("\n    step "));
}

TEST_F(FoldedTreeTest, LabelsStandBehindNames) {
    TreeOptions options;
    options.labels = {*ActivityField::Find("body.output"), *ActivityField::Find("body.none")};

    const std::string tree =
        Tree(options, Child("edge", "one.o", 1, 5) + Child("edge", "two.o", 2, 5));

    EXPECT_THAT(tree, HasSubstr("\n  edge one.o "));
    EXPECT_THAT(tree, HasSubstr("\n  edge two.o "));
}

TEST_F(FoldedTreeTest, RowsFitTheTerminal) {
    for (const std::size_t width : {40U, 60U, 80U, 120U}) {
        Streams().terminal.width = width;
        const std::size_t before = Output().size();

        Tree({},
             Writes(300) + Child("a-rather-long-name-of-an-activity", "F", 300, 9, "exception"));

        std::istringstream lines(Output().substr(before));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_THAT(line, SizeIs(Le(width))) << line;
        }
    }
    EXPECT_THAT(Output(), HasSubstr(" self ")) << "120 columns have room for it";
}

TEST_F(FoldedTreeTest, MessagesStandBelowTheInnermostActivityOfTheirThreadAndTime) {
    const auto message = [](const char* time, int thread, const char* text) {
        return R"({"time":"2026-03-01T10:00:)" + std::string(time) +
               R"(Z","severity":"warn","message":")" + text + R"(","pid":1,"tid":)" +
               std::to_string(thread) + "}\n";
    };
    TreeOptions options;
    options.showsMessages = true;

    // They may come before the lines of their activities: others write those.
    const std::string tree =
        Tree(options,
             message("00.010002", 1, "within the write") + message("00.005000", 1, "in serve") +
                 message("00.010002", 2, "of another thread") +
                 message("09.000000", 1, "too late") + Child("write", "W", 10, 4));

    EXPECT_THAT(tree, HasSubstr("\n    - 2026-03-01T10:00:00.010002Z  warn  within the write\n"));
    EXPECT_THAT(tree, HasSubstr("\n  - 2026-03-01T10:00:00.005000Z  warn  in serve\n"));
    EXPECT_THAT(tree, Not(HasSubstr("another thread")));
    EXPECT_THAT(tree, Not(HasSubstr("too late")));
}

TEST_F(FoldedTreeTest, AMessageThatNamesAnIdBelongsToThatActivityWhereverItWasWritten) {
    const std::string id = "7F4C1D7E-0000-4000-8000-0123456789AB";
    TreeOptions options;
    options.showsMessages = true;

    const std::string tree =
        Tree(options,
             Child("write", id, 10, 4) +
                 R"({"time":"2026-03-01T11:00:00Z","severity":"error","message":"lost )" + id +
                 R"(!","pid":9,"tid":9})" + "\n");

    EXPECT_THAT(tree, HasSubstr("error  lost " + id + "!"));
}

TEST_F(FoldedTreeTest, AMessageWhoseLineNamesItsActivityIsThereThoughAnotherOneRan) {
    const auto message = [](const std::string& id, const std::string& text) {
        return R"({"time":"2026-03-01T10:00:00.010002Z","severity":"warn","message":")" + text +
               R"(","pid":1,"tid":1,"activity":{"id":")" + id + R"(","root":"R"}})" + "\n";
    };
    TreeOptions options;
    options.showsMessages = true;

    const std::string tree = Tree(options,
                                  message("R", "of serve") + message("A", "of the first") +
                                      message("none", "of what the log lacks") +
                                      Child("first", "A", 10, 4) + Child("second", "B", 10, 4));

    EXPECT_THAT(tree, HasSubstr("\n  - 2026-03-01T10:00:00.010002Z  warn  of serve\n"));
    EXPECT_LT(tree.find("first"), tree.find("of the first"));
    EXPECT_LT(tree.find("of the first"), tree.find("second"));
    EXPECT_LT(tree.find("second"), tree.find("of what the log lacks")) << "by time and thread";
}

TEST_F(FoldedTreeTest, AnEscapeSequenceInAMessageOrALabelDoesNotReachTheTerminal) {
    TreeOptions options;
    options.showsMessages = true;
    options.labels = {*ActivityField::Find("body.output")};

    const std::string tree = Tree(
        options,
        R"({"time":"2026-03-01T10:00:00.1Z","severity":"\u001b[2J","message":"\u001b[1A\u009b","pid":1,"tid":1})"
        "\n" +
            Child("edge", R"(\u001b[31m\u202e)", 1, 5));

    EXPECT_THAT(tree, Not(HasSubstr("\x1B")));
    EXPECT_THAT(tree, Not(HasSubstr("\xC2\x9B")));
    EXPECT_THAT(tree, Not(HasSubstr("\xE2\x80\xAE")));
    EXPECT_THAT(tree, HasSubstr("[1A"));
}

TEST_F(FoldedTreeTest, AsJsonEachActivityIsALineWithAllThatIsKnown) {
    TreeOptions options;
    options.isJson = true;
    options.showsMessages = true;

    std::istringstream lines(Tree(options, Writes(300)));
    std::vector<json> rows;
    for (std::string line; std::getline(lines, line);) {
        rows.push_back(json::parse(line));
    }

    ASSERT_THAT(rows, SizeIs(301)) << "none is folded";
    EXPECT_EQ(rows[0]["name"], "serve");
    EXPECT_EQ(rows[0]["level"], 0);
    EXPECT_EQ(rows[0]["parent"], nullptr);
    EXPECT_EQ(rows[0]["elapsed_seconds"], 0.5);
    EXPECT_EQ(rows[1]["level"], 1);
    EXPECT_EQ(rows[1]["parent"], "R");
    EXPECT_EQ(rows[1]["link"], "named");
    EXPECT_EQ(rows[1]["begin"], "2026-03-01T10:00:00.010000Z");
    EXPECT_EQ(rows[1]["elapsed_seconds"], 4e-6);
    EXPECT_EQ(rows[1]["cpu_seconds"], nullptr) << "it was not measured";
    EXPECT_EQ(rows[1]["body_begin"]["output"], "W0");
    EXPECT_EQ(rows[1]["messages"], json::array());
}

TEST_F(FoldedTreeTest, WithAFilterTheSlowestAreThoseInWhichWhatFitsTookLongest) {
    const auto tree = [](const std::string& root, int whole, int part) {
        const std::string id = root + "-query";
        return LineText{.name = root, .id = root}.ToString() + "\n" +
               LineText{.name = "query", .id = id, .sponsor = root, .root = root, .depth = 1}
                   .ToString() +
               "\n" +
               LineText{.phase = "end",
                        .name = "query",
                        .id = id,
                        .sponsor = root,
                        .root = root,
                        .milliseconds = part,
                        .depth = 1,
                        .elapsed = part}
                   .ToString() +
               "\n" +
               LineText{.phase = "end",
                        .name = root,
                        .id = root,
                        .milliseconds = whole,
                        .elapsed = whole}
                   .ToString() +
               "\n";
    };
    TreeOptions options;
    options.input.files = {Write("a.log", tree("long", 900, 1) + tree("short", 50, 40))};
    options.order = TreeOrder::Slowest;
    options.count = 1;
    options.filter.names = {"query"};

    EXPECT_EQ(RunTree(options, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("\nshort "));
    EXPECT_THAT(Output(), Not(HasSubstr("\nlong ")));
}

TEST_F(FoldedTreeTest, TimesAreRelativeToTheFirstLineIfAskedFor) {
    Streams().times.kind = TimeStyle::Kind::Relative;
    TreeOptions options;
    options.input.files = {
        Write("a.log",
              {{.name = "first", .id = "A", .milliseconds = 1000},
               {.phase = "end", .name = "first", .id = "A", .milliseconds = 1001, .elapsed = 1},
               {.name = "second", .id = "B", .milliseconds = 3500},
               {.phase = "end", .name = "second", .id = "B", .milliseconds = 3501, .elapsed = 1}})};

    EXPECT_EQ(RunTree(options, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("+0.000000 s  root A"));
    EXPECT_THAT(Output(), HasSubstr("+2.500000 s  root B"));
}

TEST_F(FoldedTreeTest, FollowingPrintsEachTreeOnceItIsFinished) {
    TreeOptions options;
    options.input.files = {Write("a.log",
                                 {{.name = "done", .id = "A"},
                                  {.phase = "end", .name = "done", .id = "A", .elapsed = 0},
                                  {.name = "running", .id = "B"}})};
    options.follow = {.isFollowing = true, .interval = std::chrono::milliseconds(1), .updates = 3};

    EXPECT_EQ(RunTree(options, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("\ndone "));
    EXPECT_EQ(Output().find("\ndone "), Output().rfind("\ndone ")) << "once";
    EXPECT_THAT(Output(), Not(HasSubstr("running")));
}

}  // namespace
}  // namespace tarnview
