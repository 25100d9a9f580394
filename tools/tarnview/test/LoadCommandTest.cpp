#include "commands/LoadCommand.h"

#include "FakeEngine.h"
#include "LogFixture.h"
#include "engine/BlockSender.h"
#include "engine/NativeBlock.h"

#include <chrono>
#include <set>
#include <string>

#include <gmock/gmock.h>

namespace tarnview {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::ThrowsMessage;

class LoadCommandTest : public LogFixture {
protected:
    LoadOptions OptionsFor(const FakeEngine& engine, milliseconds timeout) {
        LoadOptions options;
        options.input.files = {Write("a.log", {{}, {.phase = "end", .milliseconds = 3}})};
        options.to = engine.Address();
        options.timeout = timeout;
        return options;
    }
};

bool IsInsert(const std::string& statement) {
    return statement.rfind("INSERT", 0) == 0;
}

TEST_F(LoadCommandTest, AnEngineThatTakesNothingIsGivenUpAfterTheTimeout) {
    FakeEngine engine([](const std::string& statement, const std::string&) {
        return IsInsert(statement) ? Refused(243, "no space left") : Accepted();
    });
    const LoadOptions options = OptionsFor(engine, milliseconds(200));

    const auto load = [&] { RunLoad(options, Streams()); };

    EXPECT_THAT(load,
                ThrowsMessage<EngineError>(AllOf(HasSubstr("gave up after 0 s"),
                                                 HasSubstr("block 1, 1 rows of activities"),
                                                 HasSubstr("no space left"))));
    EXPECT_THAT(Errors(),
                AllOf(HasSubstr("no space left"),
                      HasSubstr("trying again, for 0 s now: block 1, 1 rows of activities")));
}

TEST_F(LoadCommandTest, AnEngineThatNeverAnswersIsGivenUpAfterTheTimeout) {
    FakeEngine engine([](const std::string&, const std::string&) {
        return FakeEngine::Reaction{.kind = FakeEngine::Reaction::Kind::Hang};
    });
    const LoadOptions options = OptionsFor(engine, milliseconds(100));

    const auto load = [&] { RunLoad(options, Streams()); };

    EXPECT_THAT(
        load,
        ThrowsMessage<EngineError>(AllOf(HasSubstr("CREATE DATABASE"), HasSubstr("no answer"))));
}

TEST_F(LoadCommandTest, AnEngineThatWillNotHaveItIsNotWaitedFor) {
    FakeEngine engine([](const std::string&, const std::string&) {
        return Refused(516, "authentication failed");
    });
    LoadOptions options = OptionsFor(engine, milliseconds(0));

    const auto load = [&] { RunLoad(options, Streams()); };

    EXPECT_THAT(load, ThrowsMessage<EngineError>(HasSubstr("authentication failed")));
    EXPECT_EQ(Errors(), "");
}

TEST_F(LoadCommandTest, WhatWasGivenUpIsLoadedByTheNextRun) {
    bool isFull = true;
    FakeEngine engine([&](const std::string& statement, const std::string&) {
        return IsInsert(statement) && isFull ? Refused(243, "no space left") : Accepted();
    });
    const LoadOptions options = OptionsFor(engine, milliseconds(100));
    EXPECT_THROW(RunLoad(options, Streams()), EngineError);

    isFull = false;
    const int status = RunLoad(options, Streams());

    EXPECT_EQ(status, exitSuccess);
    EXPECT_THAT(engine.Blocks("activities"), SizeIs(1));
}

TEST_F(LoadCommandTest, AFollowingLoadWaitsOnAndSaysThatItGoesOn) {
    int refusals = 3;
    FakeEngine engine([&](const std::string& statement, const std::string&) {
        return IsInsert(statement) && refusals-- > 0 ? Refused(243, "no space left") : Accepted();
    });
    LoadOptions options = OptionsFor(engine, milliseconds(0));
    options.timeout.reset();
    options.follow.isFollowing = true;
    options.follow.updates = 1;

    RunLoad(options, Streams());

    EXPECT_THAT(engine.Blocks("activities"), SizeIs(1));
    EXPECT_THAT(Errors(), AllOf(HasSubstr("no space left"), HasSubstr("goes on")));
}

TEST_F(LoadCommandTest, ABlockThatArrivedWithoutAnAnswerIsNotSentAgain) {
    FakeEngine engine([](const std::string&, const std::string&) { return Accepted(); });
    engine.BreakBehind(0);
    const LoadOptions options = OptionsFor(engine, milliseconds(10'000));

    RunLoad(options, Streams());

    EXPECT_EQ(engine.Inserts(), 1U);
    EXPECT_THAT(engine.Blocks("activities"), SizeIs(1));
}

// As an engine whose table does not take every row.
FakeEngine::Reaction RefusesPoison(const std::string& statement, const std::string& block) {
    const bool isRefused = statement.rfind("INSERT INTO activities", 0) == 0 &&
                           block.find("poison") != std::string::npos;
    return isRefused ? Refused(131, "too large") : Accepted();
}

class RefusedRowsTest : public LoadCommandTest {
protected:
    // A line that cannot be read, and ten activities, of which these have a name that is refused.
    LoadOptions OptionsFor(const FakeEngine& engine, const std::set<int>& poisoned) {
        std::string log = "no line\n";
        for (int number = 0; number < 10; ++number) {
            const std::string name = poisoned.count(number) != 0 ? "poison" : "load";
            const std::string id = "A" + std::to_string(number);
            log += LineText{.name = name, .id = id}.ToString() + "\n" +
                   LineText{.phase = "end", .name = name, .id = id}.ToString() + "\n";
        }
        LoadOptions options;
        options.input.files = {Write("a.log", log)};
        options.to = engine.Address();
        options.timeout = milliseconds(10'000);
        return options;
    }

    static std::string JsonOf(const std::vector<std::string>& blocks) {
        std::string json;
        for (const std::string& bytes : blocks) {
            const NativeBlock block(bytes);
            for (std::size_t row = 0; row < block.Rows(); ++row) {
                json += block.Json(row) + "\n";
            }
        }
        return json;
    }

    static std::size_t RowsIn(const std::vector<std::string>& blocks) {
        std::size_t rows = 0;
        for (const std::string& block : blocks) {
            rows += NativeBlock(block).Rows();
        }
        return rows;
    }
};

TEST_F(RefusedRowsTest, TheOthersOfTheBlockAreLoadedAndTheRefusedOnesKeptCountedAndNamed) {
    FakeEngine engine(RefusesPoison);

    const int status = RunLoad(OptionsFor(engine, {3, 8}), Streams());

    EXPECT_EQ(status, exitNegative);
    EXPECT_EQ(RowsIn(engine.Blocks("activities")), 8U);
    EXPECT_EQ(RowsIn(engine.Blocks("rejected_lines")), 3U);
    EXPECT_THAT(JsonOf(engine.Blocks("rejected_lines")),
                AllOf(HasSubstr("a.log"),
                      HasSubstr(R"("file_line":9)"),
                      HasSubstr("too large"),
                      HasSubstr(R"(\"name\":\"poison\")")));
    EXPECT_THAT(Errors(), AllOf(HasSubstr("a.log:9: refused"), HasSubstr("a.log:19: refused")));
    EXPECT_THAT(Output(), HasSubstr("loaded 8 activities, 0 messages; rejected 3 lines"));
}

TEST_F(RefusedRowsTest, APartThatArrivedWithoutAnAnswerIsNotSentAgain) {
    for (std::size_t broken = 0; broken < 17; ++broken) {
        FakeEngine engine(RefusesPoison);
        engine.BreakBehind(broken);
        LoadOptions options = OptionsFor(engine, {3, 8});
        options.checkpoint = PathOf("checkpoint" + std::to_string(broken));

        RunLoad(options, Streams());

        EXPECT_EQ(RowsIn(engine.Blocks("activities")), 8U) << broken;
        EXPECT_EQ(RowsIn(engine.Blocks("rejected_lines")), 3U) << broken;
    }
}

TEST_F(RefusedRowsTest, WhatWasEndedAmongThePartsIsGoneOnWith) {
    // From this insert on the engine is away, for the first run.
    for (std::size_t last = 0; last < 17; ++last) {
        std::size_t inserts = 0;
        bool isAway = true;
        FakeEngine engine([&](const std::string& statement, const std::string& block) {
            if (isAway && IsInsert(statement) && inserts++ >= last) {
                return Refused(497, "not enough privileges");
            }
            return RefusesPoison(statement, block);
        });
        LoadOptions options = OptionsFor(engine, {3, 8});
        options.checkpoint = PathOf("checkpoint" + std::to_string(last));
        EXPECT_THROW(RunLoad(options, Streams()), EngineError);

        isAway = false;
        RunLoad(options, Streams());

        EXPECT_EQ(RowsIn(engine.Blocks("activities")), 8U) << last;
        EXPECT_EQ(RowsIn(engine.Blocks("rejected_lines")), 3U) << last;
    }
}

TEST_F(RefusedRowsTest, ATableThatRefusesEveryRowEndsTheLoad) {
    FakeEngine engine([](const std::string& statement, const std::string&) {
        return IsInsert(statement) ? Refused(53, "type mismatch") : Accepted();
    });
    std::string log;
    for (int number = 0; number < 150; ++number) {
        const std::string id = "A" + std::to_string(number);
        log += LineText{.id = id}.ToString() + "\n" +
               LineText{.phase = "end", .id = id}.ToString() + "\n";
    }
    LoadOptions options;
    options.input.files = {Write("a.log", log)};
    options.to = engine.Address();

    const auto load = [&] { RunLoad(options, Streams()); };

    EXPECT_THAT(load, ThrowsMessage<EngineError>(HasSubstr("type mismatch")));
    EXPECT_THAT(engine.Blocks("rejected_lines"), SizeIs(0));
}

TEST_F(RefusedRowsTest, ReplicasRefuseTheWholeBlock) {
    FakeEngine engine(RefusesPoison);
    LoadOptions options = OptionsFor(engine, {3});
    options.cluster = "two";

    const auto load = [&] { RunLoad(options, Streams()); };

    EXPECT_THAT(load, ThrowsMessage<EngineError>(HasSubstr("too large")));
    EXPECT_THAT(engine.Blocks("activities"), SizeIs(0));
}

TEST(BlockSenderTest, SaysAtIntervalsWhatItWaitsFor) {
    int refusals = 3;
    FakeEngine engine([&](const std::string&, const std::string&) {
        return refusals-- > 0 ? Refused(209, "timeout") : Accepted();
    });
    EngineClient client(engine.Address());
    std::vector<std::string> news;

    BlockSender sender(client, {.newsInterval = milliseconds(0)}, [&](const std::string& text) {
        news.push_back(text);
    });
    sender.Create({"CREATE TABLE a (x Int8)"});

    const auto wait = HasSubstr("timeout; trying again, for 0 s now: CREATE TABLE a");
    EXPECT_THAT(news, testing::IsSupersetOf({wait, wait, wait}));
    EXPECT_EQ(news.back(), "goes on");
}

TEST(BlockSenderTest, SaysWhatItWaitsForOnceWithinAnInterval) {
    int refusals = 3;
    FakeEngine engine([&](const std::string&, const std::string&) {
        return refusals-- > 0 ? Refused(209, "timeout") : Accepted();
    });
    EngineClient client(engine.Address());
    std::vector<std::string> news;

    BlockSender sender(client,
                       {.newsInterval = milliseconds(60'000)},
                       [&](const std::string& text) { news.push_back(text); });
    sender.Create({"CREATE TABLE a (x Int8)"});

    EXPECT_THAT(news, ElementsAre(HasSubstr("CREATE TABLE a"), "goes on"));
}

TEST(BlockSenderTest, SaysThatARequestHasNoAnswerYet) {
    FakeEngine engine([](const std::string&, const std::string&) {
        return FakeEngine::Reaction{.kind = FakeEngine::Reaction::Kind::Hang};
    });
    EngineClient client(engine.Address());
    std::vector<std::string> news;

    BlockSender sender(client,
                       {.timeout = milliseconds(50), .newsInterval = milliseconds(1)},
                       [&](const std::string& text) { news.push_back(text); });
    const auto create = [&] { sender.Create({"CREATE TABLE a (x Int8)"}); };

    EXPECT_THAT(create, ThrowsMessage<EngineError>(Not(HasSubstr("x Int8"))));
    EXPECT_THAT(news, testing::Contains(HasSubstr("no answer yet, for 0 s now: CREATE TABLE a")));
}

}  // namespace
}  // namespace tarnview
