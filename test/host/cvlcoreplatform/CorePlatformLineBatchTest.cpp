#include "ChildProcess.h"
#include "CorePlatformTestSupport.h"
#include "Threads.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LineBatch.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using testing::ElementsAre;
using testing::IsEmpty;

class CorePlatformLineBatchLinesTest : public LogTest::LoggerTest {
protected:
    CorePlatformLineBatchLinesTest() { LogTo("log.jsonl"); }

    void LogTo(const std::string& name, std::uint64_t maxBytes = 0) {
        ReplaceBackEnd(
            MakeJsonFileBackEnd(m_folder.PathOf(name), {.maxBytes = maxBytes, .maxFiles = 99}));
    }

    std::vector<std::string> Messages(const std::string& name = "log.jsonl") const {
        std::vector<std::string> messages;
        std::istringstream lines(LogTest::ContentOf(m_folder.PathOf(name)));
        for (std::string line; std::getline(lines, line);) {
            messages.push_back(nlohmann::json::parse(line).at("message").get<std::string>());
        }
        return messages;
    }

    const LogTest::TemporaryFolder m_folder;
};

class CorePlatformLineBatchTest : public CorePlatformLineBatchLinesTest,
                                  public testing::WithParamInterface<LineBatch::Holds> {};

std::string NameOf(const testing::TestParamInfo<LineBatch::Holds>& batch) {
    return batch.param == LineBatch::Holds::Lines ? "OfLines" : "OfEvents";
}

INSTANTIATE_TEST_SUITE_P(,
                         CorePlatformLineBatchTest,
                         testing::Values(LineBatch::Holds::Lines, LineBatch::Holds::Events),
                         NameOf);

TEST_P(CorePlatformLineBatchTest, WhatIsLoggedStandsInTheFileWhenTheBatchEnds) {
    {
        const LineBatch batch(GetParam());
        LogMessage("one");
        LogMessage("two");

        EXPECT_THAT(Messages(), IsEmpty());
    }

    EXPECT_THAT(Messages(), ElementsAre("one", "two"));
    EXPECT_EQ(Increase(&LogStatistics::lines), 2U);
    EXPECT_EQ(Increase(&LogStatistics::bytes),
              std::filesystem::file_size(m_folder.PathOf("log.jsonl")));
}

TEST_P(CorePlatformLineBatchTest, ABatchWithinABatchDoesNothing) {
    {
        const LineBatch batch(GetParam());
        LogMessage("one");
        {
            const LineBatch inner(LineBatch::Holds::Lines);
            LogMessage("two");
        }
        EXPECT_THAT(Messages(), IsEmpty());
    }

    EXPECT_THAT(Messages(), ElementsAre("one", "two"));
}

TEST_P(CorePlatformLineBatchTest, OtherThreadsAreNotHeldBack) {
    const LineBatch batch(GetParam());
    LogMessage("mine");

    tarn::test::OnAnotherThread([] { LogMessage("its"); });

    EXPECT_THAT(Messages(), ElementsAre("its"));
}

TEST_P(CorePlatformLineBatchTest, AFlushWritesWhatIsHeld) {
    const LineBatch batch(GetParam());
    LogMessage("one");

    FlushLog();

    EXPECT_THAT(Messages(), ElementsAre("one"));
}

TEST_P(CorePlatformLineBatchTest, WhatIsHeldGoesToTheFileThatItWasLoggedTo) {
    {
        const LineBatch batch(GetParam());
        LogMessage("one");
        LogTo("next.jsonl");
        LogMessage("two");
    }

    EXPECT_THAT(Messages(), ElementsAre("one"));
    EXPECT_THAT(Messages("next.jsonl"), ElementsAre("two"));
}

TEST_P(CorePlatformLineBatchTest, AForkedChildDoesNotWriteWhatItsParentHolds) {
    {
        const LineBatch batch(GetParam());
        LogMessage("before");
        ASSERT_TRUE(tarn::test::SucceedsInChild([] {
            { const LineBatch own(GetParam()); }
            FlushLog();
            return true;
        }));
        LogMessage("after");
    }

    EXPECT_THAT(Messages(), ElementsAre("before", "after"));
}

TEST_P(CorePlatformLineBatchTest, FilesOfLimitedSizeKeepTheirLimit) {
    constexpr std::uint64_t limit = 2000;
    constexpr int count = 200;
    LogTo("limited.jsonl", limit);
    {
        const LineBatch batch(GetParam());
        for (int i = 0; i < count; ++i) {
            LogMessage("message " + std::to_string(i) +
                       std::string(static_cast<std::size_t>(i), '.'));
        }
    }

    std::size_t lines = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
        EXPECT_LE(entry.file_size(), limit) << entry.path();
        lines += Messages(entry.path().filename()).size();
    }
    EXPECT_EQ(lines, static_cast<std::size_t>(count));
}

TEST_P(CorePlatformLineBatchTest, LinesThatCannotBeWrittenAreCountedOneByOne) {
    ReplaceBackEnd(MakeJsonFileBackEnd("/dev/full", {.maxBytes = 0}));
    {
        const LineBatch batch(GetParam());
        LogMessage("one");
        LogMessage("two");
        LogMessage("three");
    }

    EXPECT_EQ(Increase(&LogStatistics::lines), 0U);
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 3U);
}

TEST_P(CorePlatformLineBatchTest, WhoReplacesTheBackEndWaitsForWhatOthersHold) {
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isReplaced{false};
    std::thread holder([&] {
        const LineBatch batch(GetParam());
        LogMessage("held");
        isHeld = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_FALSE(isReplaced);
    });
    while (!isHeld) {
        std::this_thread::yield();
    }

    LogTo("next.jsonl");
    isReplaced = true;

    EXPECT_THAT(Messages(), ElementsAre("held"));
    holder.join();
}

TEST_P(CorePlatformLineBatchTest, AForkedChildDoesNotWaitForWhatItsParentsThreadsHold) {
    std::atomic<bool> isHeld{false};
    std::atomic<bool> isOver{false};
    std::thread holder([&] {
        const LineBatch batch(GetParam());
        LogMessage("held");
        isHeld = true;
        isOver.wait(false);
    });
    while (!isHeld) {
        std::this_thread::yield();
    }

    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(tarn::test::SucceedsInChild([] {
        ReplaceBackEnd(nullptr);
        return true;
    }));
    const auto time = std::chrono::steady_clock::now() - begin;
    isOver = true;
    isOver.notify_all();
    holder.join();

    EXPECT_LT(time, std::chrono::seconds(4)) << "a batch that goes on is waited for five seconds";
    EXPECT_THAT(Messages(), ElementsAre("held"));
}

TEST_F(CorePlatformLineBatchLinesTest, LinesThatAStreamTookBeforeItWasStuckAreNotWrittenTwice) {
    constexpr int count = 30;
    const std::string path = m_folder.PathOf("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    LogTo("pipe");
    fcntl(reader, F_SETPIPE_SZ, 4096);
    testing::internal::CaptureStderr();
    {
        const LineBatch batch(LineBatch::Holds::Lines);
        for (int i = 0; i < count; ++i) {
            LogMessage(std::to_string(i) + std::string(300, '.'));
        }
    }
    testing::internal::GetCapturedStderr();

    std::vector<char> buffer(65536);
    const ssize_t length = read(reader, buffer.data(), buffer.size());
    close(reader);
    std::istringstream lines(std::string(buffer.data(), length > 0 ? std::size_t(length) : 0));
    std::vector<std::string> numbers;
    std::vector<std::string> expected;
    for (std::string line; std::getline(lines, line);) {
        const auto json = nlohmann::json::parse(line, nullptr, false);
        if (json.is_object()) {
            const auto message = json.at("message").get<std::string>();
            numbers.push_back(message.substr(0, message.find('.')));
            expected.push_back(std::to_string(expected.size()));
        }
    }
    EXPECT_GT(numbers.size(), 5U);
    EXPECT_EQ(numbers, expected);
    EXPECT_EQ(Increase(&LogStatistics::lines), numbers.size());
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), count - numbers.size());
}

TEST_F(CorePlatformLineBatchLinesTest, ManyLinesAreWrittenInBetween) {
    const LineBatch batch(LineBatch::Holds::Lines);
    for (int i = 0; i < 1000; ++i) {
        LogMessage(std::string(200, 'x'));
    }

    EXPECT_GT(Messages().size(), 500U);
}

}  // namespace
