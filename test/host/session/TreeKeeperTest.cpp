#include "TreeKeeper.h"

#include "KeepLines.h"

#include "cvlcoreplatform/TLogValue.h"

#include <chrono>
#include <cstddef>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using namespace std::chrono_literals;

int64 IntegerOf(const TLog::Object& table, const char* name) {
    const auto field = table.GetFields().find(TString(name));
    return field == table.GetFields().end()
               ? 0
               : static_cast<const TLog::Literal&>(*field->second).GetInt();
}

class TreeKeeperTest : public testing::Test {
protected:
    void Begins(const KeepRules& rules) { m_keeper.SetRules(rules, m_written); }

    void Take(const TLog::Event& line) { m_keeper.Take(line, m_written); }

    /// A root with one child, and what it is judged by.
    void TakeTree(const TestActivity& root, double elapsed = 0, const std::string& result = "ok") {
        const TestActivity child{root.id + "-child", root.id, "child"};
        Take(Begin(root));
        Take(Begin(child));
        Take(End(child, elapsed / 2));
        Take(End(root, elapsed, result));
    }

    /// What has been written since it was asked last.
    std::string Written() { return NamesOf(std::exchange(m_written, {})); }

    int64 LeftOut(const char* field) {
        return IntegerOf(*m_keeper.GetLeftOut().ToEvent().GetBody(), field);
    }

    TreeKeeper& Keeper() { return m_keeper; }

    TreeKeeper::Lines& Lines() { return m_written; }

private:
    TreeKeeper m_keeper;
    TreeKeeper::Lines m_written;
};

KeepRules Slow(std::chrono::microseconds slow) {
    KeepRules rules;
    rules.slow = slow;
    return rules;
}

KeepRules Failed() {
    KeepRules rules;
    rules.failed = true;
    return rules;
}

KeepRules Named(const std::string& name) {
    KeepRules rules;
    rules.names = {name};
    return rules;
}

TEST_F(TreeKeeperTest, WithoutConditionsEachLineIsWrittenAtOnce) {
    Begins(KeepRules());

    Take(Begin({"r"}));

    EXPECT_EQ(Written(), "begin-work");
    EXPECT_EQ(Keeper().CountTrees(), 0U);
}

TEST_F(TreeKeeperTest, ATreeIsWrittenAsAWholeAndInOrderWhenItsRootWasSlow) {
    Begins(Slow(50ms));
    const TestActivity root{"r", "", "load"};
    const TestActivity child{"c", "r", "parse"};

    Take(Begin(root));
    Take(Begin(child));
    Take(End(child));
    EXPECT_EQ(Written(), "");
    Take(End(root, 0.05));

    EXPECT_EQ(Written(), "begin-load begin-parse end-parse end-load");
    EXPECT_EQ(Keeper().CountWaitingBytes(), 0U);
    EXPECT_TRUE(Keeper().GetLeftOut().IsEmpty());
}

TEST_F(TreeKeeperTest, AFastTreeIsLeftOutAndCountedByName) {
    Begins(Slow(50ms));

    TakeTree({"r", "", "load"}, 0.04);
    TakeTree({"s", "", "load"}, 0.02, "error");

    EXPECT_EQ(Written(), "");
    EXPECT_EQ(Keeper().CountWaitingBytes(), 0U);
    EXPECT_EQ(LeftOut("trees"), 2);
    EXPECT_EQ(LeftOut("lines"), 8);
    const TLog::Event event = Keeper().GetLeftOut().ToEvent();
    const auto& activities =
        static_cast<const TLog::Object&>(*event.GetBody()->GetFields().at(TString("activities")));
    const auto& load =
        static_cast<const TLog::Object&>(*activities.GetFields().at(TString("load")));
    EXPECT_EQ(IntegerOf(load, "count"), 2);
    EXPECT_EQ(IntegerOf(load, "failed"), 1);
    const auto real = [&load](const char* name) {
        return static_cast<const TLog::Literal&>(*load.GetFields().at(TString(name))).GetDouble();
    };
    EXPECT_NEAR(real("elapsed"), 0.06, 1e-9);
    EXPECT_NEAR(real("exclusive"), 0.03, 1e-9);
}

TEST_F(TreeKeeperTest, AFailedRootKeepsItsTreeAndAnEarlyTerminationDoesNot) {
    Begins(Failed());

    TakeTree({"r", "", "load"}, 0, "error");
    EXPECT_EQ(Written(), "begin-load begin-child end-child end-load");

    TakeTree({"s", "", "load"}, 0, "early-termination");
    EXPECT_EQ(Written(), "");
}

TEST_F(TreeKeeperTest, ATreeThatIsKeptFromItsBeginDoesNotWait) {
    Begins(Named("pay"));

    Take(Begin({"r", "", "pay"}));
    EXPECT_EQ(Written(), "begin-pay");
    Take(Begin({"c", "r", "child"}));
    EXPECT_EQ(Written(), "begin-child");
    Take(Begin({"s", "", "load"}));
    Take(Begin({"d", "s", "pay"}));  // only roots are named
    EXPECT_EQ(Written(), "");
}

TEST_F(TreeKeeperTest, ASampledCallerKeepsTheTreeOnlyIfTheRulesSaySo) {
    KeepRules rules;
    rules.sampled = true;
    Begins(rules);
    Take(Begin({"a", "elsewhere", "serve", true}));
    EXPECT_EQ(Written(), "begin-serve");
    Take(Begin({"b", "other", "serve", false}));
    EXPECT_EQ(Written(), "");

    Begins(Failed());
    Take(Begin({"c", "third", "serve", true}));
    EXPECT_EQ(Written(), "");
}

TEST_F(TreeKeeperTest, AFractionIsChosenByTheRootsIdAlikeInEachProcess) {
    KeepRules rules;
    rules.fraction = 0.25;
    TreeKeeper another;
    TreeKeeper::Lines others;
    another.SetRules(rules, others);
    Begins(rules);

    for (int i = 0; i < 2000; ++i) {
        const std::string root = "root-" + std::to_string(i);
        Take(Begin({root}));
        Take(End({root}));
        another.Take(Begin({"entry", root}), others);
        another.Take(End({"entry", root}), others);
    }

    EXPECT_NEAR(static_cast<double>(Lines().size()) / 4000, 0.25, 0.04);
    EXPECT_EQ(others.size(), Lines().size());
}

TEST_F(TreeKeeperTest, LateLinesFollowTheirTree) {
    Begins(Slow(50ms));

    Take(Begin({"r", "", "load"}));
    Take(Begin({"late", "r", "late"}));
    Take(End({"r", "", "load"}));
    EXPECT_EQ(LeftOut("lines"), 3);
    Take(End({"late", "r", "late"}, 60));
    Take(Begin({"later", "r", "later"}));
    EXPECT_EQ(LeftOut("lines"), 5);
    EXPECT_EQ(Written(), "");

    Take(Begin({"s", "", "load"}));
    Take(End({"s", "", "load"}, 1));
    Written();
    Take(Begin({"later", "s", "later"}));
    EXPECT_EQ(Written(), "begin-later");
}

TEST_F(TreeKeeperTest, RequestsOfARootElsewhereAreJudgedOneByOne) {
    Begins(Failed());
    const TestActivity first{"1", "elsewhere", "serve"};
    const TestActivity second{"2", "elsewhere", "serve"};

    Take(Begin(first));
    Take(End(first));
    EXPECT_EQ(Written(), "");
    Take(Begin(second));
    Take(End(second, 0, "error"));

    EXPECT_EQ(Written(), "begin-serve end-serve");
    EXPECT_EQ(LeftOut("lines"), 2);
}

TEST_F(TreeKeeperTest, AnEndWhoseBeginIsUnknownIsWritten) {
    Begins(Failed());

    Take(End({"c", "unknown"}));

    EXPECT_EQ(Written(), "end-work");
}

TEST_F(TreeKeeperTest, OfTooManyTreesTheOldestIsWrittenAndCounted) {
    KeepRules rules = Failed();
    rules.waitingTrees = 2;
    Begins(rules);

    Take(Begin({"a", "", "a"}));
    Take(Begin({"b", "", "b"}));
    EXPECT_EQ(Written(), "");
    Take(Begin({"c", "", "c"}));

    EXPECT_EQ(Written(), "begin-a");
    EXPECT_EQ(LeftOut("unjudged"), 1);
    Take(End({"a", "", "a"}));
    EXPECT_EQ(Written(), "end-a");
    EXPECT_EQ(Keeper().CountWaitingTrees(), 2U);
}

TEST_F(TreeKeeperTest, WhatWaitsStaysBelowItsBytes) {
    KeepRules rules = Failed();
    rules.waitingBytes = 100'000;
    Begins(rules);

    for (int i = 0; i < 50; ++i) {
        Take(Begin({"r" + std::to_string(i), "", "work", false, std::string(20'000, 'x')}));
        ASSERT_LE(Keeper().CountWaitingBytes(), rules.waitingBytes);
    }

    EXPECT_GT(Keeper().CountWaitingTrees(), 1U);
    EXPECT_LT(Keeper().CountWaitingTrees(), 6U);
    EXPECT_EQ(Lines().size() + Keeper().CountWaitingTrees(), 50U);
}

TEST_F(TreeKeeperTest, ATreeThatIsLargerThanTheRoomIsWrittenAsItGoesOn) {
    KeepRules rules = Failed();
    rules.waitingBytes = 10'000;
    Begins(rules);

    Take(Begin({"r"}));
    for (int i = 0; i < 20; ++i) {
        Take(Begin({"c" + std::to_string(i), "r"}));
    }

    EXPECT_EQ(Lines().size(), 21U);
    EXPECT_EQ(LeftOut("unjudged"), 1);
}

TEST_F(TreeKeeperTest, ASlowTreeIsWrittenBeforeItEnds) {
    Begins(Slow(50ms));

    Take(Begin({"r", "", "load"}, 0ms));
    Take(Begin({"c", "r", "child"}, 49ms));
    EXPECT_EQ(Written(), "");
    Take(Begin({"other", "", "other"}, 50ms));

    EXPECT_EQ(Written(), "begin-load begin-child");
    EXPECT_TRUE(Keeper().GetLeftOut().IsEmpty());
}

TEST_F(TreeKeeperTest, ATreeThatWaitsForTooLongIsWrittenAndCounted) {
    KeepRules rules = Failed();
    rules.waitingTime = 10s;
    Begins(rules);

    Take(Begin({"r", "", "hang"}, 0s));
    Take(Begin({"other", "", "other"}, 9s));
    EXPECT_EQ(Written(), "");
    Take(End({"other", "", "other"}, 1, "ok", 10s));

    EXPECT_EQ(Written(), "begin-hang");
    EXPECT_EQ(LeftOut("unjudged"), 1);
}

TEST_F(TreeKeeperTest, WhatIsOverdueComesBeforeTheLineThatShowsIt) {
    KeepRules rules = Named("pay");
    rules.waitingTime = 10s;
    Begins(rules);

    Take(Begin({"r", "", "hang"}, 0s));
    Take(Begin({"p", "", "pay"}, 60s));

    EXPECT_EQ(Written(), "begin-hang begin-pay");
}

TEST_F(TreeKeeperTest, ARootThatEndsLateIsJudgedByItsEnd) {
    KeepRules rules = Failed();
    rules.waitingTime = 10s;
    Begins(rules);

    Take(Begin({"r", "", "load"}, 0s));
    Take(End({"r", "", "load"}, 60, "ok", 60s));

    EXPECT_EQ(Written(), "");
    EXPECT_EQ(LeftOut("lines"), 2);
    EXPECT_EQ(LeftOut("unjudged"), 0);
}

TEST_F(TreeKeeperTest, LimitsMayBeAsLargeAsTheirTypes) {
    KeepRules rules = Slow(std::chrono::microseconds::max());
    rules.waitingTime = std::chrono::microseconds::max();
    rules.waitingBytes = rules.waitingTrees = std::numeric_limits<std::size_t>::max();
    Begins(rules);

    Take(Begin({"r"}, 0h));
    Take(Begin({"c", "r"}, 24h));
    EXPECT_EQ(Written(), "");
}

TEST_F(TreeKeeperTest, JudgedTreesAreRememberedWithinBoundsAndOpenOnesLongest) {
    KeepRules rules = Failed();
    rules.names = {"serve"};
    rules.waitingTrees = 10;
    Begins(rules);

    Take(Begin({"server", "", "serve"}));
    for (int i = 0; i < 2000; ++i) {
        TakeTree({"r" + std::to_string(i)});
    }
    EXPECT_LE(Keeper().CountTrees(), 1001U);

    Written();
    Take(Begin({"c", "server", "child"}));
    EXPECT_EQ(Written(), "begin-child");
}

TEST_F(TreeKeeperTest, NamesWithoutEndAreCountedTogether) {
    Begins(Failed());

    for (int i = 0; i < 1500; ++i) {
        const TestActivity root{"r" + std::to_string(i), "", "name-" + std::to_string(i)};
        Take(Begin(root));
        Take(End(root));
    }

    const TLog::Event event = Keeper().GetLeftOut().ToEvent();
    const auto& body = event.GetBody()->GetFields();
    EXPECT_EQ(static_cast<const TLog::Object&>(*body.at(TString("activities"))).GetFields().size(),
              LeftOut::mostNames);
    EXPECT_EQ(IntegerOf(static_cast<const TLog::Object&>(*body.at(TString("others"))), "count"),
              500);
}

TEST_F(TreeKeeperTest, RulesThatGoAwayWriteWhatWaits) {
    Begins(Failed());
    Take(Begin({"r", "", "load"}));

    Begins(KeepRules());

    EXPECT_EQ(Written(), "begin-load");
    EXPECT_TRUE(Keeper().GetLeftOut().IsEmpty());
}

TEST_F(TreeKeeperTest, WhatWaitsInTheEndIsWrittenAndCountedAsUnjudged) {
    Begins(Failed());
    Take(Begin({"r", "", "load"}));
    Take(Begin({"s", "", "store"}));

    Keeper().GiveUpWaiting(Lines());

    EXPECT_EQ(Written(), "begin-load begin-store");
    EXPECT_EQ(LeftOut("unjudged"), 2);
}

/// Activities in random order, some of which never end or end twice, under roots of here and of
/// elsewhere.
class RandomLines {
public:
    explicit RandomLines(unsigned seed) : m_random(seed) {}

    TLog::Event Next() {
        m_now += std::chrono::milliseconds(Draw(3));
        const std::string root = "root-" + std::to_string(Draw(10));
        const unsigned which = Draw(4);
        const TestActivity activity{which == 0 ? root : root + "-" + std::to_string(which),
                                    root,
                                    "n" + std::to_string(which)};
        return Draw(2) == 0
                   ? Begin(activity, m_now)
                   : End(activity, Draw(100) / 1000.0, Draw(10) == 0 ? "error" : "ok", m_now);
    }

    unsigned Draw(unsigned below) { return static_cast<unsigned>(m_random() % below); }

private:
    std::mt19937 m_random;
    std::chrono::microseconds m_now{0};
};

TEST_F(TreeKeeperTest, WhatIsWrittenAndWhatIsCountedAreTogetherAllLines) {
    for (unsigned seed = 0; seed < 10; ++seed) {
        RandomLines lines(seed);
        KeepRules rules;
        rules.slow = seed % 2 == 0 ? 90ms : 0ms;
        rules.failed = seed % 3 != 0 || rules.slow == 0ms;
        rules.fraction = seed % 5 == 0 ? 0.1 : 0;
        rules.waitingTrees = 5 + lines.Draw(40);
        rules.waitingBytes = 20'000 + lines.Draw(200'000);
        rules.waitingTime = 500ms;
        TreeKeeper keeper;
        TreeKeeper::Lines written;
        keeper.SetRules(rules, written);

        constexpr std::size_t count = 1000;
        for (std::size_t i = 0; i < count; ++i) {
            keeper.Take(lines.Next(), written);
        }
        keeper.GiveUpWaiting(written);

        const int64 leftOut = IntegerOf(*keeper.GetLeftOut().ToEvent().GetBody(), "lines");
        EXPECT_EQ(written.size() + static_cast<std::size_t>(leftOut), count) << "seed " << seed;
        EXPECT_GT(written.size(), 0U);
        EXPECT_GT(leftOut, 0);
        EXPECT_EQ(keeper.CountWaitingBytes(), 0U);
    }
}

}  // namespace
}  // namespace tarn::test
