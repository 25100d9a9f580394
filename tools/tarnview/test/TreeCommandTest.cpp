#include "commands/TreeCommand.h"

#include "LogFixture.h"

#include <algorithm>
#include <sstream>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class TreeCommandTest : public LogFixture {
protected:
    std::string Tree(const TreeOptions& options) {
        EXPECT_EQ(RunTree(options, Streams()), exitSuccess);
        return Output();
    }

    // The names of the rows, with their indentation.
    std::vector<std::string> Rows(const TreeOptions& options) {
        std::istringstream text(Tree(options));
        std::vector<std::string> rows;
        bool isRow = false;
        for (std::string line; std::getline(text, line);) {
            if (line.empty()) {
                isRow = false;
            } else if (line.rfind("activity ", 0) == 0) {
                isRow = true;
            } else if (isRow) {
                const std::size_t name = line.find_first_not_of(' ');
                rows.push_back(line.substr(0, line.find(' ', name)));
            }
        }
        return rows;
    }

    static TreeOptions Sample() {
        TreeOptions options;
        options.input.files = SampleLogs();
        return options;
    }
};

TEST_F(TreeCommandTest, OneRequestIsOneTreeAcrossThreadsAndProcesses) {
    TreeOptions options = Sample();
    options.filter.roots = {"00000000-0000-4000-8000-000000000001"};

    EXPECT_EQ(
        Tree(options),
        R"(2026-03-01T10:00:00.000000Z  root 00000000-0000-4000-8000-000000000001  request r-1  user ada  site shop
order 17, größer
activity       elapsed exclusive       cpu    memory threads  process:thread   time                  result
order           100 ms   30.0 ms   14.0 ms   1.90 kB       2  100:1            ####################
  price        20.0 ms   20.0 ms   2.00 ms     200 B       1  100:1            ..####..............
  audit        40.0 ms   40.0 ms   8.00 ms     400 B       1  100:2            ....########........
  ask          50.0 ms   50.0 ms   1.00 ms     300 B       1  100:1            ........##########..
    stock      30.0 ms   10.0 ms    700 us     100 B       1  200:9            ..........######....
      lookup   20.0 ms   20.0 ms    500 us      70 B       1  200:9            ...........####.....  exception: msg=no such item type=NotFound
)");
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(TreeCommandTest, AttributesAndSupplementsAreShownWhenAskedFor) {
    TreeOptions options = Sample();
    options.showsAttributes = true;

    const std::string tree = Tree(options);

    EXPECT_THAT(tree, HasSubstr("\n  tenant=blue\n"));
    EXPECT_THAT(tree, HasSubstr("\n    items=3\n"));
    EXPECT_THAT(tree,
                HasSubstr("* begin=2026-03-01T10:00:00.020000+00:00 currency=EUR rate=1.5\n"));
}

TEST_F(TreeCommandTest, WhatTookMinutesIsNotCutOff) {
    constexpr int longTime = 3'599'000;
    TreeOptions options;
    options.input.files = {Write("a.log",
                                 {{.id = "A"},
                                  {.phase = "end",
                                   .id = "A",
                                   .milliseconds = longTime,
                                   .elapsed = longTime,
                                   .exclusive = longTime}})};

    EXPECT_THAT(
        Tree(options),
        HasSubstr("activity     elapsed   exclusive         cpu      memory threads  process"));
    EXPECT_THAT(Output(), HasSubstr("load     59 min 59 s 59 min 59 s                         "));
}

TEST_F(TreeCommandTest, WhatNeverEndedIsMarked) {
    TreeOptions options = Sample();
    options.order = TreeOrder::Last;
    options.count = 1;

    EXPECT_THAT(Tree(options), HasSubstr("#...................  never ended\n"));
}

TEST_F(TreeCommandTest, TheSlowestComeFirst) {
    const std::string log = Write("a.log",
                                  {{.name = "fast", .id = "A"},
                                   {.phase = "end", .name = "fast", .id = "A", .elapsed = 5},
                                   {.name = "slow", .id = "B"},
                                   {.phase = "end", .name = "slow", .id = "B", .elapsed = 90},
                                   {.name = "medium", .id = "C"},
                                   {.phase = "end", .name = "medium", .id = "C", .elapsed = 50}});
    TreeOptions options;
    options.input.files = {log};
    options.order = TreeOrder::Slowest;
    options.count = 2;

    EXPECT_THAT(Rows(options), ElementsAre("slow", "medium"));
}

TEST_F(TreeCommandTest, ATreeIsShownWholeIfOneActivityFits) {
    TreeOptions options = Sample();
    options.filter.names = {"look*"};

    EXPECT_THAT(Rows(options),
                ElementsAre("order", "  price", "  audit", "  ask", "    stock", "      lookup"));
}

TEST_F(TreeCommandTest, AllFiltersMustFitTheSameActivity) {
    TreeOptions options = Sample();
    options.filter.names = {"price"};
    options.filter.slowerThan = 30'000;

    EXPECT_THAT(Rows(options), IsEmpty());
    EXPECT_THAT(Errors(), HasSubstr("nothing to show"));
}

TEST_F(TreeCommandTest, DepthLimitsTheLevels) {
    TreeOptions options = Sample();
    options.depth = 2;
    options.filter.names = {"order"};

    EXPECT_THAT(Rows(options), ElementsAre("order", "  price", "  audit", "  ask"));
}

TEST_F(TreeCommandTest, WithoutItsSponsorAnActivityIsATopAndSaysSo) {
    TreeOptions options;
    options.input.files = {
        Write("a.log", {{.name = "part", .id = "B", .sponsor = "X", .root = "R", .depth = 2}})};

    const std::string tree = Tree(options);

    EXPECT_THAT(tree, HasSubstr("its sponsor is not in the log: X"));
    EXPECT_THAT(tree, HasSubstr("\npart "));
}

// Two run one level above it at that time: the one that waits is its caller, not the later one that
// is busy with something of its own.
TEST_F(TreeCommandTest, WorkOfAnotherProcessLiesBelowWhatDoesNothingElse) {
    TreeOptions options;
    options.input.files = {
        Write("front.log",
              {{.name = "serve", .id = "R"},
               {.name = "call", .id = "C", .sponsor = "R", .root = "R", .depth = 1},
               {.name = "run",
                .id = "W",
                .sponsor = "R",
                .root = "R",
                .milliseconds = 1,
                .thread = 2,
                .depth = 1},
               {.name = "fetch",
                .id = "F",
                .sponsor = "W",
                .root = "R",
                .milliseconds = 3,
                .thread = 2,
                .depth = 2}}),
        Write("back.log",
              {{.name = "answer",
                .id = "B",
                .sponsor = "B",
                .root = "R",
                .milliseconds = 2,
                .process = 9,
                .depth = 2},
               {.phase = "end",
                .name = "answer",
                .id = "B",
                .sponsor = "B",
                .root = "R",
                .milliseconds = 4,
                .process = 9,
                .depth = 2,
                .elapsed = 2}})};

    EXPECT_THAT(Rows(options), ElementsAre("serve", "  call", "    answer", "  run", "    fetch"));
}

TEST_F(TreeCommandTest, SponsorsInACircleAreReportedAndShownOnce) {
    TreeOptions options;
    options.input.files = {Write(
        "a.log",
        {{.name = "one", .id = "A", .sponsor = "B", .root = "R", .depth = 1},
         {.name = "two", .id = "B", .sponsor = "A", .root = "R", .milliseconds = 1, .depth = 2},
         {.name = "three",
          .id = "C",
          .sponsor = "B",
          .root = "R",
          .milliseconds = 2,
          .depth = 3}})};

    EXPECT_THAT(Rows(options), ElementsAre("one", "  two", "    three"));
    EXPECT_THAT(Errors(), HasSubstr("a.log:1: sponsors in a circle: one A"));
}

TEST_F(TreeCommandTest, AVeryDeepTreeIsNoTrouble) {
    std::string text;
    constexpr int levels = 20'000;
    for (int level = 0; level < levels; ++level) {
        LineText line{.id = std::to_string(level), .root = "0", .depth = level};
        if (level != 0) {
            line.sponsor = std::to_string(level - 1);
        }
        text += line.ToString() + "\n";
    }
    TreeOptions options;
    options.input.files = {Write("a.log", text)};

    EXPECT_EQ(Rows(options).size(), levels);
}

TEST_F(TreeCommandTest, FailuresAreRedOnlyWithColours) {
    TreeOptions options = Sample();
    Streams().terminal.hasColour = true;

    const std::string tree = Tree(options);

    EXPECT_THAT(tree, HasSubstr("\x1B[31m      lookup"));
    EXPECT_THAT(tree, Not(HasSubstr("\x1B[31m    stock")));
}

TEST_F(TreeCommandTest, ControlCharactersOfALogDoNotReachTheTerminal) {
    TreeOptions options;
    options.showsAttributes = true;
    options.input.files = {Write(
        "a.log",
        {{.name = "a\\u001b[2J", .id = "A", .user = "x\\u0007", .body = R"({"k":"\u001b[31m"})"}})};

    EXPECT_EQ(Tree(options).find('\x1B'), std::string::npos);
    EXPECT_EQ(Output().find('\x07'), std::string::npos);
}

}  // namespace
}  // namespace tarnview
