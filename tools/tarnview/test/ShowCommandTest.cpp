#include "commands/ShowCommand.h"

#include "LogFixture.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class ShowCommandTest : public LogFixture {
protected:
    int Show(const std::string& id) { return RunShow({{SampleLogs()}, id}, Streams()); }
};

constexpr const char* idStart = "00000000-0000-4000-8000-00000000000";

TEST_F(ShowCommandTest, AsJsonItIsOneObjectOfPlainNumbers) {
    ShowOptions options{{SampleLogs()}, std::string(idStart) + "2"};
    options.isJson = true;

    ASSERT_EQ(RunShow(options, Streams()), exitSuccess);

    const nlohmann::json activity = nlohmann::json::parse(Output());
    EXPECT_EQ(activity["name"], "price");
    EXPECT_EQ(activity["parent"], std::string(idStart) + "1");
    EXPECT_EQ(activity["elapsed_seconds"], 0.02);
    EXPECT_EQ(activity["memory_bytes"], 200);
    EXPECT_EQ(activity["body_begin"]["items"], 3);
    EXPECT_FALSE(activity.contains("level"));
}

TEST_F(ShowCommandTest, AConditionChoosesAmongThoseWhoseIdsBeginSo) {
    ShowOptions options{{SampleLogs()}, idStart};
    options.filter.where = Expression("name == 'price'");

    EXPECT_EQ(RunShow(options, Streams()), exitSuccess);

    EXPECT_EQ(Output().rfind("price\n", 0), 0U);
}

TEST_F(ShowCommandTest, AllThatIsKnownIsShown) {
    ASSERT_EQ(Show(std::string(idStart) + "2"), exitSuccess);

    for (const char* const line : {"price\n",
                                   "  depth           1\n",
                                   "  process         100\n",
                                   "  user            ada\n",
                                   "shop.log:3)\n",
                                   "shop.log:5)\n",
                                   "  elapsed         20.0 ms\n",
                                   "  result          ok\n",
                                   "  allocated       200 B in 1 call, exclusive 200 B in 1 call\n",
                                   "  cpu in program  2.00 ms, exclusive 2.00 ms\n",
                                   "body at begin\n  items           3\n",
                                   ("supplements\n  begin=2026-03-01T10:00:00.020000+00:00 "
                                    "currency=EUR rate=1.5\n"),
                                   "sponsors, the nearest first\n"}) {
        EXPECT_THAT(Output(), HasSubstr(line));
    }
    EXPECT_THAT(Output(), Not(HasSubstr("body at end")));
}

TEST_F(ShowCommandTest, ChildrenAndSponsorsMayBeInAnotherProcess) {
    ASSERT_EQ(Show(std::string(idStart) + "5"), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("3      50.0 ms  ask  (caller guessed)\n"));
    EXPECT_THAT(Output(), HasSubstr("1       100 ms  order\n"));
    EXPECT_THAT(Output(),
                HasSubstr("6      20.0 ms  lookup  exception: msg=no such item type=NotFound\n"));
}

TEST_F(ShowCommandTest, ABeginningThatSeveralIdsHaveIsNotEnough) {
    EXPECT_EQ(Show("0000"), exitNegative);

    EXPECT_THAT(Output(), IsEmpty());
    EXPECT_THAT(Errors(), HasSubstr("several activities have an id that begins with '0000'"));
}

TEST_F(ShowCommandTest, AnIdThatIsNotThereIsSaidSo) {
    EXPECT_EQ(Show("FFFF"), exitNegative);

    EXPECT_THAT(Errors(), HasSubstr("no activity has an id that begins with 'FFFF'"));
}

TEST_F(ShowCommandTest, AFileThatIsNoLogIsAnErrorAlsoWhereTheIdIsNotThere) {
    ShowOptions options;
    options.id = "A";
    options.input.files = {Write("a.log", "broken\n")};

    EXPECT_EQ(RunShow(options, Streams()), exitInputOutput);

    EXPECT_THAT(Errors(), HasSubstr("no line of this file is a log line\n"));
}

TEST_F(ShowCommandTest, SeveralActivitiesOfOneIdAreShownAndSaidSo) {
    const std::string log =
        Write("a.log", {{.name = "serve", .id = "ABCD"}, {.name = "adopted", .id = "ABCD"}});

    EXPECT_EQ(RunShow({{{log}}, "ABCD"}, Streams()), exitNegative);

    EXPECT_THAT(Output(), HasSubstr("serve\n"));
    EXPECT_THAT(Output(), HasSubstr("adopted\n"));
    EXPECT_THAT(Errors(), HasSubstr("tarnview: 2 activities have this id\n"));
}

TEST_F(ShowCommandTest, WhatWasNotMeasuredIsNotShown) {
    const std::string log = Write("a.log",
                                  {{.id = "ABCD"},
                                   {.phase = "end",
                                    .id = "ABCD",
                                    .resources = R"({"alloc":{"ae":1,"ai":2,"ane":3,"ani":4}})"}});

    EXPECT_EQ(RunShow({{{log}}, "ABCD"}, Streams()), exitSuccess);

    EXPECT_THAT(Output(), HasSubstr("  allocated "));
    for (const char* const field : {"released", "most in use", "cpu in", "threads"}) {
        EXPECT_THAT(Output(), Not(HasSubstr(field)));
    }
}

TEST_F(ShowCommandTest, SmallLettersFindAnIdInCapitals) {
    const std::string log = Write("a.log", {{.name = "load", .id = "ABCD"}});

    EXPECT_EQ(RunShow({{{log}}, "abc"}, Streams()), exitSuccess);
    EXPECT_THAT(Output(), HasSubstr("  end             never ended\n"));
}

}  // namespace
}  // namespace tarnview
