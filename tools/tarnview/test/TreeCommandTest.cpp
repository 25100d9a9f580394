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
activity       elapsed exclusive      self       cpu    memory threads  process:thread   time                  result
order           100 ms   30.0 ms   20.0 ms   14.0 ms   1.90 kB       2  100:1            ####################
  price        20.0 ms   20.0 ms   20.0 ms   2.00 ms     200 B       1  100:1            ..####..............
  audit        40.0 ms   40.0 ms   40.0 ms   8.00 ms     400 B       1  100:2            ....########........
  ask          50.0 ms   50.0 ms   20.0 ms   1.00 ms     300 B       1  100:1            ........##########..
    stock      30.0 ms   10.0 ms   10.0 ms    700 us     100 B       1  200:9            ..........######....  (caller guessed)
      lookup   20.0 ms   20.0 ms   20.0 ms    500 us      70 B       1  200:9            ...........####.....  exception: msg=no such item type=NotFound
)");
    EXPECT_EQ(Errors(), "tarnview: callers that the log does not name were guessed: 1\n");
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
        HasSubstr("activity     elapsed   exclusive        self         cpu      memory threads"));
    EXPECT_THAT(Output(), HasSubstr("load     59 min 59 s 59 min 59 s 59 min 59 s             "));
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
    EXPECT_THAT(Errors(),
                HasSubstr("a.log:1: activity whose sponsor is not in the log: part B, sponsor X\n"
                          "tarnview: 1 activity whose sponsor is not in the log; "));
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

// Two calls at once and what they are answered with, each in its own process. `skew` is what the
// clock of the answering one is ahead.
class CallTreeTest : public TreeCommandTest {
protected:
    struct Part {
        std::string name;
        std::string id;
        std::string sponsor;
        int begin;
        int end;
        int process;
        int thread;
        int depth;
        std::string caller{};
    };

    static std::string LinesOf(const Part& part, Microseconds skew) {
        constexpr Microseconds start = 1'772'359'200'000'000;  // 2026-03-01T10:00:00Z
        std::string lines;
        for (const bool isEnd : {false, true}) {
            const int at = isEnd ? part.end : part.begin;
            std::ostringstream line;
            line << R"({"time":")" << FormatTimestamp(start + Microseconds{at} * 1000 + skew)
                 << R"(","event":"x","pid":)" << part.process << R"(,"tid":)" << part.thread
                 << R"(,"request":"r","activity":{"depth":)" << part.depth;
            if (!part.caller.empty()) {
                line << R"(,"caller":")" << part.caller << '"';
            }
            if (isEnd) {
                line << R"(,"elapsed":)" << (part.end - part.begin) / 1e3 << R"(,"exclusive":)"
                     << (part.end - part.begin) / 1e3;
            }
            line << R"(,"id":")" << part.id << R"(","name":")" << part.name << '"';
            if (isEnd) {
                line << R"(,"rk":"ok")";
            }
            if (part.depth != 0) {
                line << R"(,"root":"R")";
            }
            if (isEnd) {
                line << R"(,"rv":{})";
            }
            if (part.depth != 0) {
                line << R"(,"sponsor":")" << part.sponsor << '"';
            }
            line << R"(,"type":")" << (isEnd ? "end" : "begin") << "\"}}\n";
            lines += line.str();
        }
        return lines;
    }

    // The rows of these, of which process 1 is the front and all others are ahead by `skew`.
    std::vector<std::string> TreeOf(const std::vector<Part>& parts, Microseconds skew) {
        std::string front;
        std::string back;
        for (const Part& part : parts) {
            (part.process == 1 ? front : back) += LinesOf(part, part.process == 1 ? 0 : skew);
        }
        TreeOptions options;
        options.input.files = {Write("front.log", front), Write("back.log", back)};
        std::vector<std::string> rows = Rows(options);
        rows.erase(rows.begin(), rows.end() - static_cast<std::ptrdiff_t>(parts.size()));
        return rows;
    }

    static constexpr Microseconds skews[] = {0,
                                             5'000,
                                             -5'000,
                                             1'000'000,
                                             -1'000'000,
                                             3'600'000'000,
                                             -3'600'000'000,
                                             3 * 3'600'000'000LL};
};

TEST_F(CallTreeTest, AnAnswerLiesBelowTheOnlyCallWhateverTheClocksSay) {
    for (const Microseconds skew : skews) {
        EXPECT_THAT(TreeOf({{"serve", "R", "", 0, 100, 1, 1, 0},
                            {"call", "C", "R", 10, 60, 1, 1, 1},
                            {"answer", "B", "B", 20, 50, 2, 7, 2},
                            {"read", "D", "B", 30, 40, 2, 7, 3}},
                           skew),
                    ElementsAre("serve", "  call", "    answer", "      read"))
            << skew;
    }
    EXPECT_THAT(
        Errors(),
        HasSubstr("tarnview: by the calls between them, the clock of process 2 is 1 h 0 min "
                  "behind that of process 1\n"));
}

TEST_F(CallTreeTest, EachOfTwoCallsAtOnceHasItsAnswer) {
    for (const Microseconds skew : skews) {
        EXPECT_THAT(TreeOf({{"serve", "R", "", 0, 100, 1, 1, 0},
                            {"first", "C1", "R", 10, 60, 1, 2, 1},
                            {"second", "C2", "R", 12, 62, 1, 3, 1},
                            {"one", "B1", "B1", 20, 50, 2, 7, 2},
                            {"two", "B2", "B2", 22, 52, 2, 8, 2}},
                           skew),
                    ElementsAre("serve", "  first", "    one", "  second", "    two"))
            << skew;
    }
    EXPECT_THAT(Output(), HasSubstr("(caller guessed among several)\n"));
    EXPECT_THAT(Errors(),
                HasSubstr("callers that the log does not name were guessed: 2, 2 of them among"));
}

TEST_F(CallTreeTest, TheCallerThatTheLogNamesIsTheParent) {
    EXPECT_THAT(TreeOf({{"serve", "R", "", 0, 100, 1, 1, 0},
                        {"first", "C1", "R", 10, 60, 1, 2, 1},
                        {"second", "C2", "R", 12, 62, 1, 3, 1},
                        {"one", "B1", "B1", 20, 50, 2, 7, 2, "C2"},
                        {"two", "B2", "B2", 22, 52, 2, 8, 2, "C1"}},
                       0),
                ElementsAre("serve", "  first", "    two", "  second", "    one"));
    EXPECT_THAT(Output(), Not(HasSubstr("guessed")));
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CallTreeTest, ACallerThatHasEndedIsTheParentOfWhatItStarted) {
    EXPECT_THAT(TreeOf({{"serve", "R", "", 0, 100, 1, 1, 0},
                        {"start", "C", "R", 10, 20, 1, 1, 1},
                        {"job", "B", "R", 40, 50, 1, 2, 2, "C"}},
                       0),
                ElementsAre("serve", "  start", "    job"));
}

TEST_F(CallTreeTest, ACallerThatIsNotInTheLogIsPassedOver) {
    EXPECT_THAT(
        TreeOf({{"serve", "R", "", 0, 100, 1, 1, 0}, {"job", "B", "R", 40, 50, 1, 2, 1, "X"}}, 0),
        ElementsAre("serve", "  job"));
}

TEST_F(CallTreeTest, SelfTimeIsWhatNoChildCovers) {
    TreeOf({{"serve", "R", "", 0, 100, 1, 1, 0},
            {"one", "A", "R", 10, 60, 1, 2, 1},
            {"two", "B", "R", 40, 90, 1, 3, 1},
            {"late", "C", "R", 95, 180, 1, 4, 1}},
           0);

    // Less 10 to 90 and 95 to 100.
    EXPECT_THAT(Output(), HasSubstr("serve       100 ms    100 ms   15.0 ms"));
}

TEST_F(TreeCommandTest, ARequestThatBothLinesNameDifferentlyIsNotNamed) {
    const std::string begin = LineText{.id = "A"}.ToString();
    std::string end = LineText{.phase = "end", .id = "A"}.ToString();
    end.replace(end.find(R"("request":"r")"), 13, R"("request":"other")");
    TreeOptions options;
    options.input.files = {Write("a.log", begin + "\n" + end + "\n")};

    EXPECT_THAT(Tree(options), HasSubstr("root A  user ada\n"));
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
    options.input.files = {Write("a.log",
                                 {{.name = "a\\u001b[2J\\u009b2J\\u202e",
                                   .id = "A",
                                   .user = "x\\u0007\\u2066",
                                   .body = R"({"k\u009b":"\u001b[31m"})"}})};

    Tree(options);

    for (const char* const text : {"\x1B", "\x07", "\xC2\x9B", "\xE2\x80\xAE", "\xE2\x81\xA6"}) {
        EXPECT_THAT(Output(), Not(HasSubstr(text)));
    }
}

}  // namespace
}  // namespace tarnview
