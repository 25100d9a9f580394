#include "model/Joiner.h"

#include "LogFixture.h"
#include "read/LineParser.h"

#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class JoinerTest : public testing::Test {
protected:
    void Take(const LineText& text) {
        std::string padded = text.ToString();
        padded.reserve(padded.size() + simdjson::SIMDJSON_PADDING);
        LogLine line;
        ASSERT_EQ(m_parser.Parse(padded, line), LineParser::Result::Good);
        m_joiner.Take(line, {"log", ++m_lines});
    }

    // Each as "name from-to", with "?" for what is not known.
    std::vector<std::string> Joined() const {
        std::vector<std::string> texts;
        for (const Activity& activity : m_activities) {
            const auto number = [](bool isKnown, std::uint64_t line) {
                return isKnown ? std::to_string(line) : "?";
            };
            texts.push_back(activity.name + " " +
                            number(activity.hasBegin, activity.beginPlace.line) + "-" +
                            number(activity.hasEnd, activity.endPlace.line));
        }
        return texts;
    }

    Joiner& TheJoiner() { return m_joiner; }

    const std::vector<Activity>& Activities() const { return m_activities; }

    std::string Errors() const { return m_errors.str(); }

private:
    std::ostringstream m_errors;
    Problems m_problems{m_errors};
    std::vector<Activity> m_activities;
    Joiner m_joiner{m_problems,
                    [this](Activity&& activity) { m_activities.push_back(std::move(activity)); }};
    LineParser m_parser;
    std::uint64_t m_lines = 0;
};

TEST_F(JoinerTest, BeginAndEndBecomeOneActivityWhenItEnds) {
    Take({.name = "outer", .id = "A"});
    Take({.name = "inner", .id = "B", .sponsor = "A", .root = "A", .milliseconds = 1, .depth = 1});
    Take({.phase = "end", .name = "inner", .id = "B", .sponsor = "A", .root = "A", .depth = 1});
    EXPECT_EQ(TheJoiner().OpenCount(), 1U);
    Take({.phase = "end", .name = "outer", .id = "A", .milliseconds = 8, .elapsed = 7});

    EXPECT_THAT(Joined(), ElementsAre("inner 2-3", "outer 1-4"));
    EXPECT_EQ(Activities()[1].Duration(), 8000);
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(JoinerTest, ADurationThatTheClocksContradictIsTheLoggedOne) {
    Take({.id = "A", .milliseconds = 5000});
    Take({.phase = "end", .id = "A", .milliseconds = 8, .elapsed = 7});

    EXPECT_EQ(Activities()[0].Duration(), 7000);
}

TEST_F(JoinerTest, AnEndWithoutABeginIsReportedAndItsBeginComputed) {
    Take({.phase = "end", .name = "load", .id = "A", .milliseconds = 100, .elapsed = 40});

    ASSERT_THAT(Joined(), ElementsAre("load ?-1"));
    EXPECT_EQ(Activities()[0].begin + 40'000, Activities()[0].end);
    EXPECT_THAT(Errors(), HasSubstr("log:1: end without a begin: load A"));
}

TEST_F(JoinerTest, WhatNeverEndedComesLastInTheOrderOfTheBegins) {
    Take({.name = "first", .id = "A"});
    Take({.name = "second", .id = "B"});
    TheJoiner().Finish();

    EXPECT_THAT(Joined(), ElementsAre("first 1-?", "second 2-?"));
    EXPECT_EQ(TheJoiner().OpenCount(), 0U);
}

TEST_F(JoinerTest, TheSameIdInTwoProcessesIsTwoActivities) {
    Take({.id = "A", .process = 1});
    Take({.id = "A", .process = 2});
    Take({.phase = "end", .id = "A", .process = 1});
    Take({.phase = "end", .id = "A", .process = 2});

    EXPECT_THAT(Joined(), ElementsAre("load 1-3", "load 2-4"));
    EXPECT_THAT(Errors(), IsEmpty());
}

TEST_F(JoinerTest, AnIdThatIsOpenTwiceIsReportedAndTheEndGoesToItsOwnThread) {
    Take({.id = "A", .root = "R", .thread = 1, .depth = 1});
    Take({.id = "A", .root = "R", .thread = 2, .depth = 1});
    Take({.phase = "end", .id = "A", .root = "R", .thread = 1, .depth = 1});
    Take({.phase = "end", .id = "A", .root = "R", .thread = 2, .depth = 1});

    EXPECT_THAT(Joined(), ElementsAre("load 1-3", "load 2-4"));
    EXPECT_THAT(Errors(), HasSubstr("log:2: id that repeats: A is open already"));
}

TEST_F(JoinerTest, OfTwoOnOneThreadTheLaterOneEndsFirst) {
    Take({.id = "A"});
    Take({.id = "A"});
    Take({.phase = "end", .id = "A"});
    Take({.phase = "end", .id = "A"});

    EXPECT_THAT(Joined(), ElementsAre("load 2-3", "load 1-4"));
}

TEST_F(JoinerTest, AnEndOfAnotherNameDoesNotEndIt) {
    Take({.name = "load", .id = "A"});
    Take({.phase = "end", .name = "store", .id = "A"});
    TheJoiner().Finish();

    EXPECT_THAT(Joined(), ElementsAre("store ?-2", "load 1-?"));
}

// As the library does: to the nearest one that is open, which the end line names.
TEST_F(JoinerTest, AnActivityIsChargedToTheSponsorThatItsEndLineNames) {
    Take({.name = "serve", .id = "A"});
    Take({.name = "query", .id = "B", .sponsor = "A", .root = "A", .depth = 1});
    Take({.name = "late", .id = "C", .sponsor = "B", .root = "A", .depth = 2});
    Take({.phase = "end",
          .name = "query",
          .id = "B",
          .sponsor = "A",
          .root = "A",
          .milliseconds = 2,
          .depth = 1,
          .elapsed = 2,
          .exclusive = 2});
    Take({.phase = "end",
          .name = "late",
          .id = "C",
          .sponsor = "A",
          .root = "A",
          .milliseconds = 5,
          .microseconds = 600,
          .depth = 2,
          .elapsed = 5,
          .exclusive = 5});
    Take({.phase = "end",
          .name = "serve",
          .id = "A",
          .milliseconds = 9,
          .microseconds = 900,
          .elapsed = 9,
          .exclusive = 2});

    EXPECT_EQ(Activities()[0].ExclusiveTime(), 2'000);
    EXPECT_EQ(Activities()[1].ExclusiveTime(), 5'600);
    EXPECT_EQ(Activities()[2].ExclusiveTime(), 9'900 - 2'000 - 5'600);
}

TEST_F(JoinerTest, WorkOnAnotherThreadIsNotTakenFromItsSponsor) {
    Take({.name = "serve", .id = "A"});
    Take({.name = "run", .id = "B", .sponsor = "A", .root = "A", .thread = 2, .depth = 1});
    Take({.phase = "end",
          .name = "run",
          .id = "B",
          .sponsor = "A",
          .root = "A",
          .milliseconds = 4,
          .thread = 2,
          .depth = 1,
          .elapsed = 4,
          .exclusive = 4});
    Take({.phase = "end",
          .name = "serve",
          .id = "A",
          .milliseconds = 5,
          .microseconds = 300,
          .elapsed = 5,
          .exclusive = 5});

    EXPECT_EQ(Activities()[1].ExclusiveTime(), 5'300);
}

TEST_F(JoinerTest, AForkedProcessEndsWhatItsParentBegan) {
    Take({.name = "serve", .id = "A", .process = 7});
    Take({.phase = "end",
          .name = "serve",
          .id = "A",
          .milliseconds = 3,
          .process = 8,
          .elapsed = 3});
    EXPECT_EQ(TheJoiner().OpenCount(), 1U);
    Take({.phase = "end",
          .name = "serve",
          .id = "A",
          .milliseconds = 5,
          .process = 7,
          .elapsed = 5});

    EXPECT_THAT(Joined(), ElementsAre("serve 1-2", "serve 1-3"));
    EXPECT_EQ(Activities()[0].process.number, 8);
    EXPECT_TRUE(Activities()[0].isForked);
    EXPECT_FALSE(Activities()[1].isForked);
    EXPECT_THAT(Errors(), IsEmpty());
}

}  // namespace
}  // namespace tarnview
