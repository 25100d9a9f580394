#include "commands/CheckCommand.h"

#include "LogFixture.h"

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class CheckCommandTest : public LogFixture {
protected:
    int Check(std::vector<std::string> files, std::vector<ProblemKind> ignored = {}) {
        return RunCheck({{std::move(files)}, std::move(ignored)}, Streams());
    }

    // An outer activity with 10 ms and 130 bytes, and an inner one with 4 ms and 30 bytes.
    std::string Nested(const char* outerResources, int outerExclusive) {
        return Write("nested.log",
                     {{.name = "outer", .id = "A"},
                      {.name = "inner", .id = "B", .sponsor = "A", .root = "A", .depth = 1},
                      {.phase = "end",
                       .name = "inner",
                       .id = "B",
                       .sponsor = "A",
                       .root = "A",
                       .depth = 1,
                       .elapsed = 4,
                       .exclusive = 4,
                       .resources = R"({"alloc":{"ae":30.0,"ai":30.0,"ane":1,"ani":1}})"},
                      {.phase = "end",
                       .name = "outer",
                       .id = "A",
                       .elapsed = 10,
                       .exclusive = outerExclusive,
                       .resources = outerResources}});
    }
};

constexpr const char* soundResources = R"({"alloc":{"ae":100.0,"ai":130.0,"ane":2,"ani":3}})";

TEST_F(CheckCommandTest, AWholeLogIsWhole) {
    EXPECT_EQ(Check(SampleLogs(), {ProblemKind::NeverEnded}), exitSuccess);

    EXPECT_EQ(
        Output(),
        "16 lines, 7 activities, 1 failed, 1 never ended, 1 messages\nthe log is whole; its lines "
        "have no numbers (seq), so whole activities may be missing\n");
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(CheckCommandTest, AsJsonTheSummaryIsOneObject) {
    CheckOptions options;
    options.input.files = SampleLogs();
    options.isJson = true;

    EXPECT_EQ(RunCheck(options, Streams()), exitNegative);

    EXPECT_EQ(Output(),
              R"({"whole":false,"numbered":false,"lines":16,"activities":7,"failed":1,)"
              R"("never_ended":1,"messages":1,"left_out":0,"problems":{"never-ended":1}})"
              "\n");
}

TEST_F(CheckCommandTest, WithAConditionOnlyWhatFitsIsCounted) {
    CheckOptions options;
    options.input.files = SampleLogs();
    options.filter.where = Expression("name == 'lookup'");

    EXPECT_EQ(RunCheck(options, Streams()), exitSuccess) << "what never ended has another name";

    EXPECT_THAT(Output(), HasSubstr("16 lines, 1 activities, 1 failed, 0 never ended"));
}

TEST_F(CheckCommandTest, ACrashIsNamedWithItsLastWords) {
    const std::string log = Write(
        "a.log",
        R"({"time":"2026-03-01T10:00:10Z","message":"Crashed by SIGABRT on thread 1; open scopes: load 4 ms","pid":7})"
        "\n");

    EXPECT_EQ(Check({log}), exitNegative);

    EXPECT_THAT(Output(), HasSubstr("1 process that crashed (crash)\n"));
    EXPECT_THAT(Errors(),
                HasSubstr("a.log:1: process that crashed: process 7: Crashed by SIGABRT on thread "
                          "1; open scopes: load 4 ms\n"));
}

TEST_F(CheckCommandTest, WhatNeverEndedIsNamed) {
    EXPECT_EQ(Check(SampleLogs()), exitNegative);

    EXPECT_THAT(Output(), HasSubstr("1 activity that never ended (never-ended)\n"));
    EXPECT_THAT(Errors(), HasSubstr("shop.log:12: activity that never ended: sweep"));
}

TEST_F(CheckCommandTest, FiguresThatAddUpAreNotNamed) {
    EXPECT_EQ(Check({Nested(soundResources, 6)}), exitSuccess) << Errors();
}

TEST_F(CheckCommandTest, MemoryThatDoesNotAddUpIsNamed) {
    EXPECT_EQ(Check({Nested(R"({"alloc":{"ae":100.0,"ai":131.0,"ane":2,"ani":3}})", 6)}),
              exitNegative);

    EXPECT_THAT(Errors(),
                HasSubstr("nested.log:4: activity whose figures do not add up: outer A, "
                          "ai is 131 and not ae 100 and the children's 30"));
}

TEST_F(CheckCommandTest, TimesThatDoNotAddUpAreNamed) {
    EXPECT_EQ(Check({Nested(soundResources, 7)}), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("exclusive is 7 ms and not 10 ms less the 4 ms of children"));
}

TEST_F(CheckCommandTest, TimeOnAnotherThreadIsNobodysShare) {
    const std::string log =
        Write("a.log",
              {{.name = "outer", .id = "A"},
               {.name = "inner", .id = "B", .sponsor = "A", .root = "A", .thread = 2, .depth = 1},
               {.phase = "end",
                .name = "inner",
                .id = "B",
                .sponsor = "A",
                .root = "A",
                .thread = 2,
                .depth = 1,
                .elapsed = 4,
                .exclusive = 4},
               {.phase = "end", .name = "outer", .id = "A", .elapsed = 10, .exclusive = 10}});

    EXPECT_EQ(Check({log}), exitSuccess) << Errors();
}

TEST_F(CheckCommandTest, WorkThatOutlivesItsSponsorCountsForTheNextOneThatIsOpen) {
    const char* const inner = R"({"alloc":{"ae":40.0,"ai":40.0,"ane":1,"ani":1}})";
    const char* const middle = R"({"alloc":{"ae":0.0,"ai":0.0,"ane":0,"ani":0}})";
    const char* const outer = R"({"alloc":{"ae":0.0,"ai":40.0,"ane":0,"ani":1}})";
    const std::string log =
        Write("a.log",
              {{.name = "serve", .id = "A"},
               {.name = "query", .id = "B", .sponsor = "A", .root = "A", .depth = 1},
               {.name = "cleanup", .id = "C", .sponsor = "B", .root = "A", .thread = 2, .depth = 2},
               {.phase = "end",
                .name = "query",
                .id = "B",
                .sponsor = "A",
                .root = "A",
                .depth = 1,
                .resources = middle},
               {.phase = "end",
                .name = "cleanup",
                .id = "C",
                .sponsor = "B",
                .root = "A",
                .thread = 2,
                .depth = 2,
                .resources = inner},
               {.phase = "end", .name = "serve", .id = "A", .resources = outer}});

    EXPECT_EQ(Check({log}), exitSuccess) << Errors();
}

TEST_F(CheckCommandTest, AnIdThatIsUsedAgainIsNamed) {
    const std::string log =
        Write("a.log",
              {{.id = "A"},
               {.id = "B", .sponsor = "A", .root = "A", .depth = 1},
               {.phase = "end", .id = "B", .sponsor = "A", .root = "A", .depth = 1},
               {.id = "B", .sponsor = "A", .root = "A", .depth = 1},
               {.phase = "end", .id = "B", .sponsor = "A", .root = "A", .depth = 1}});

    EXPECT_EQ(Check({log}), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("a.log:4: id that repeats: B has been used before"));
}

TEST_F(CheckCommandTest, AnEndWithoutABeginIsNamed) {
    EXPECT_EQ(Check({Write("a.log", {{.phase = "end", .id = "A"}})}), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("a.log:1: end without a begin: load A"));
}

TEST_F(CheckCommandTest, AClockThatWentBackIsNamed) {
    const std::string log =
        Write("a.log", {{.id = "A", .milliseconds = 5000}, {.phase = "end", .id = "A"}});

    EXPECT_EQ(Check({log}), exitNegative);

    EXPECT_THAT(Errors(),
                HasSubstr("a.log:2: clock that went back: from 2026-03-01T10:00:05.000000Z to "
                          "2026-03-01T10:00:00.000000Z"));
}

TEST_F(CheckCommandTest, LinesThatAreALittleOutOfOrderAreNoClockThatWentBack) {
    const std::string log =
        Write("a.log", {{.id = "A", .milliseconds = 900}, {.phase = "end", .id = "A"}});

    EXPECT_EQ(Check({log}), exitSuccess) << Errors();
}

TEST_F(CheckCommandTest, AReportOfLostLinesMakesTheLogNotWhole) {
    const std::string log = Write(
        "a.log",
        R"({"time":"2026-03-01T10:00:00Z","severity":"warn","message":"Missing in this log: 3","pid":1,"tid":1})"
        "\n");

    EXPECT_EQ(Check({log}), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("a.log:1: report of lost lines: Missing in this log: 3"));
}

TEST_F(CheckCommandTest, LostLinesOfAllKindsAreAddedUp) {
    const std::string log = Write(
        "a.log",
        R"({"time":"2026-03-01T10:00:00Z","message":"Missing in this log: refused events: 3; lines that could not be written: 452"})"
        "\n");

    EXPECT_EQ(Check({log}), exitNegative);

    EXPECT_THAT(Output(), HasSubstr("455 lines that were lost (lost)\n"));
}

TEST_F(CheckCommandTest, ASponsorThatIsNotInTheLogIsNamed) {
    const std::string log =
        Write("a.log",
              {{.id = "B", .sponsor = "A", .root = "A", .depth = 1},
               {.phase = "end", .id = "B", .sponsor = "A", .root = "A", .depth = 1}});

    EXPECT_EQ(Check({log}), exitNegative);

    EXPECT_THAT(
        Errors(),
        HasSubstr("a.log:1: activity whose sponsor is not in the log: load B, sponsor A\n"));
    EXPECT_THAT(Output(), HasSubstr("\n1 activity whose sponsor is not in the log (orphan)\n"));
}

TEST_F(CheckCommandTest, ARootThatIsNotInTheLogIsNamed) {
    const std::string log =
        Write("a.log",
              {{.id = "B", .sponsor = "B", .root = "R", .depth = 1},
               {.phase = "end", .id = "B", .sponsor = "B", .root = "R", .depth = 1}});

    EXPECT_EQ(Check({log}), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("load B, root R\n"));
}

TEST_F(CheckCommandTest, ASponsorThatStandsInALaterFileIsInTheLog) {
    const std::string child =
        Write("child.log",
              {{.id = "B", .sponsor = "A", .root = "A", .depth = 1},
               {.phase = "end", .id = "B", .sponsor = "A", .root = "A", .depth = 1}});
    const std::string parent = Write("parent.log", {{.id = "A"}, {.phase = "end", .id = "A"}});

    EXPECT_EQ(Check({child, parent}), exitSuccess) << Errors();
}

TEST_F(CheckCommandTest, SponsorsInACircleAreNamedOnce) {
    const std::string log =
        Write("a.log",
              {{.name = "one", .id = "A", .sponsor = "C", .root = "R", .depth = 1},
               {.name = "two", .id = "B", .sponsor = "A", .root = "R", .depth = 2},
               {.name = "three", .id = "C", .sponsor = "B", .root = "R", .depth = 3}});

    EXPECT_EQ(Check({log}, {ProblemKind::NeverEnded}), exitNegative);

    EXPECT_EQ(Output(),
              "3 lines, 0 activities, 0 failed, 3 never ended, 0 messages\n"
              "1 circle of sponsors (cycle)\n"
              "the log is not whole; its lines have no numbers (seq), so whole activities may be "
              "missing\n");
}

TEST_F(CheckCommandTest, WhatAForkedProcessEndsOfItsParentIsNoFault) {
    const LineText begin{.id = "A", .process = 7};
    const LineText end{.phase = "end", .id = "A", .process = 7};
    const LineText endInChild{.phase = "end", .id = "A", .process = 8};

    EXPECT_EQ(Check({Write("child-first.log", {begin, endInChild, end})}), exitSuccess) << Errors();
    EXPECT_EQ(Check({Write("child-last.log", {begin, end, endInChild})}), exitSuccess) << Errors();
}

TEST_F(CheckCommandTest, AnEndThatStandsTwiceIsNoFork) {
    const LineText end{.phase = "end", .id = "A"};

    EXPECT_EQ(Check({Write("a.log", {{.id = "A"}, end, end})}), exitNegative);
}

TEST_F(CheckCommandTest, LinesThatAreMissingByTheirNumbersAreNamed) {
    std::string text;
    for (const int number : {1, 3, 2, 7, 8}) {
        std::string line = LineText{.id = std::to_string(number), .process = 17}.ToString();
        line.insert(line.find(R"("type")"), R"("seq":)" + std::to_string(number) + ",");
        text += line + "\n";
    }

    EXPECT_EQ(Check({Write("a.log", text)}, {ProblemKind::NeverEnded}), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("a.log: gap in the numbers of lines: process 17, 4 to 6\n"));
    EXPECT_THAT(Output(),
                HasSubstr("\n3 lines missing by their numbers (gap)\nthe log is not whole\n"));
}

std::string NumberedLine(int number) {
    std::string line = LineText{.id = std::to_string(number), .process = 17}.ToString();
    return line.insert(line.find(R"("type")"), R"("seq":)" + std::to_string(number) + ",") + "\n";
}

std::string LeftOutLine(int lines) {
    return R"({"time":"2026-03-01T10:00:00.000000Z","severity":"info","event":"tarn-left-out",)"
           R"("pid":17,"tid":17,"body":{"activities":{"lines":{"count":9}},"late":60.0,"lines":)" +
           std::to_string(lines) + R"(,"trees":2}})" + "\n";
}

TEST_F(CheckCommandTest, LinesThatKeepRulesHaveLeftOutAreNotMissing) {
    const std::string text =
        NumberedLine(1) + NumberedLine(7) + LeftOutLine(3) + NumberedLine(9) + LeftOutLine(4);

    EXPECT_EQ(Check({Write("a.log", text)}, {ProblemKind::NeverEnded}), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("\n7 more lines left out by keep rules, as chosen\n"));
}

TEST_F(CheckCommandTest, WhatIsMissingBesideLinesLeftOutIsNamed) {
    const std::string text = NumberedLine(1) + NumberedLine(7) + LeftOutLine(3);

    EXPECT_EQ(Check({Write("a.log", text)}, {ProblemKind::NeverEnded}), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("process 17, 2 beside those left out by its keep rules\n"));
    EXPECT_THAT(Output(), HasSubstr("\n2 lines missing by their numbers (gap)\n"));
}

TEST_F(CheckCommandTest, LinesThatWaitedForAVerdictAreNoClockThatWentBack) {
    const auto at = [](const char* second, const char* id) {
        std::string line = LineText{.id = id, .process = 17}.ToString();
        const std::size_t begin = line.find("2026-");
        return line.replace(begin,
                            line.find('"', begin) - begin,
                            std::string("2026-03-01T10:00:") + second + "Z") +
               "\n";
    };
    const std::string rules =
        R"({"time":"2026-03-01T10:00:00Z","severity":"info","event":"tarn-keep-rules","pid":17,)"
        R"("tid":17,"body":{"late":20.0,"rules":"failed"}})"
        "\n";

    EXPECT_EQ(
        Check({Write("a.log", rules + at("30", "A") + at("10", "B"))}, {ProblemKind::NeverEnded}),
        exitSuccess);
    EXPECT_EQ(
        Check({Write("b.log", rules + at("30", "A") + at("08", "B"))}, {ProblemKind::NeverEnded}),
        exitNegative);
    EXPECT_THAT(Errors(), HasSubstr("b.log:3: clock that went back"));
}

TEST_F(CheckCommandTest, AProcessThatWasReplacedInTheMiddleOfItsWorkIsNamed) {
    const std::string start =
        R"({"time":"2026-03-01T10:00:00Z","message":"Opening MetricsMonitor for context 1","pid":)";
    const std::string log = Write(
        "a.log",
        start + "7}\n" + LineText{.id = "A", .process = 7}.ToString() + "\n" + start + "8}\n");

    EXPECT_EQ(Check({log}, {ProblemKind::NeverEnded}), exitNegative);

    EXPECT_THAT(
        Errors(),
        HasSubstr("a.log:2: process that was replaced in the middle of its work: process 7, "
                  "open: 1, as load\n"));
}

TEST_F(CheckCommandTest, DuplicateAndWrongFieldsAreNamed) {
    const std::string log = Write(
        "a.log", "{\"message\":\"a\",\"message\":\"b\"}\n{\"message\":\"a\",\"pid\":\"x\"}\n");

    EXPECT_EQ(Check({log}), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("a.log:1: duplicate field: message"));
    EXPECT_THAT(Errors(), HasSubstr("a.log:2: field that is missing or of a wrong kind: pid"));
}

TEST_F(CheckCommandTest, ALineOfSixteenMebibytesIsALine) {
    const std::string log =
        Write("a.log",
              {{.id = "A", .body = "{\"x\":\"" + std::string(std::size_t{16} << 20, 'y') + "\"}"},
               {.phase = "end", .id = "A"}});

    EXPECT_EQ(Check({log}), exitSuccess) << Errors();
}

TEST_F(CheckCommandTest, WhatIsIgnoredIsNoFault) {
    const LineText begin{.id = "A"};
    const LineText end{.phase = "end", .id = "A"};
    const std::string log = Write("a.log", begin.ToString() + "\nbroken\n" + end.ToString() + "\n");

    EXPECT_EQ(Check({log}, {ProblemKind::UnreadableLine}), exitSuccess);
}

TEST_F(CheckCommandTest, AFileThatIsNoLogIsNotWholeWhateverIsIgnored) {
    const std::string log = Write("a.log", "broken\n");

    EXPECT_EQ(Check({log}, {ProblemKind::UnreadableLine}), exitInputOutput);
    EXPECT_THAT(Errors(), HasSubstr("a.log: no line of this file is a log line\n"));
}

}  // namespace
}  // namespace tarnview
