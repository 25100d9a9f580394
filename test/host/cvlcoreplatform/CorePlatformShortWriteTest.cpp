#include "CorePlatformLogFileTestSupport.h"

#include "cvlcoreplatform/host/LineBatch.h"

#include <atomic>
#include <cstddef>
#include <fcntl.h>
#include <functional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

/// What the next write of a line is to take, and what happens before it returns.
struct ShortWrite {
    std::size_t bytes;
    std::function<void()> andThen;
};

std::atomic<ShortWrite*> s_shortWrite{nullptr};

ssize_t WriteAll(int descriptor, const void* text, std::size_t length) {
    return syscall(SYS_write, descriptor, text, length);
}

}  // namespace

// In place of the C library's, also for the library that is tested.
extern "C" [[gnu::visibility("default")]] ssize_t write(int descriptor,
                                                        const void* text,
                                                        size_t length) {
    ShortWrite* const shortWrite = s_shortWrite.exchange(nullptr);
    if (shortWrite == nullptr) {
        return WriteAll(descriptor, text, length);
    }
    const ssize_t written = WriteAll(descriptor, text, shortWrite->bytes);
    shortWrite->andThen();
    return written;
}

namespace {

using namespace TLog;
using testing::ElementsAre;
using testing::StartsWith;

// A write that takes a part of a line, as on a disk that is nearly full.
class CorePlatformShortWriteTest : public LogTest::LogFileTest {
protected:
    // The first line is written by a thread that looks after the file, alone.
    void SetUp() override {
        LogTo(m_path);
        LogMessage("first");
    }

    void LogWithShortWrite(
        const std::string& message, std::size_t bytes, std::function<void()> andThen = [] {}) {
        ShortWrite shortWrite{bytes, std::move(andThen)};
        s_shortWrite = &shortWrite;
        LogMessage(message);
        EXPECT_EQ(s_shortWrite.exchange(nullptr), nullptr) << "nothing was written";
    }

    // As a thread does that was about to write when the line was cut short.
    void AppendAsOthersDo() const {
        const int file = open(m_path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
        constexpr std::string_view line = "{\"message\":\"another thread's\"}\n";
        EXPECT_EQ(WriteAll(file, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        close(file);
    }
};

TEST_F(CorePlatformShortWriteTest, TheLineIsTakenBackAndWrittenAsAWhole) {
    for (const std::size_t bytes : {std::size_t{1}, std::size_t{20}, LineLength(6) - 1}) {
        LogTo(m_path);
        LogMessage("before");
        LogWithShortWrite("second", bytes);
        LogMessage("third");

        const auto messages = MessagesIn(m_path);
        ASSERT_GE(messages.size(), 3U);
        EXPECT_THAT(std::vector(messages.end() - 3, messages.end()),
                    ElementsAre("before", "second", "third"));
    }
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 0U);
}

TEST_F(CorePlatformShortWriteTest,
       WhereOthersHaveAppendedSinceTheLineComesOnceMoreAndTheirsIsLost) {
    LogWithShortWrite("second", 20, [this] { AppendAsOthersDo(); });
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 1U);
    LogMessage("third");

    EXPECT_THAT(
        MessagesIn(m_path),
        ElementsAre(
            "first", StartsWith("<broken>{\"time\":"), "second", LogTest::Missing(1), "third"));
}

TEST_F(CorePlatformShortWriteTest, OfABatchWholeLinesAreNotWrittenTwice) {
    const std::size_t length = LineLength(6);
    LogTo(m_path);
    LogMessage("before");
    ShortWrite shortWrite{2 * length + 20, [this] { AppendAsOthersDo(); }};
    {
        const LineBatch batch(LineBatch::Holds::Lines);
        for (const char* message : {"second", "third.", "fourth", "fifth.", "sixth."}) {
            LogMessage(message);
        }
        s_shortWrite = &shortWrite;
    }
    EXPECT_EQ(s_shortWrite.exchange(nullptr), nullptr) << "nothing was written";

    EXPECT_THAT(MessagesIn(m_path),
                ElementsAre("first",
                            "before",
                            "second",
                            "third.",
                            StartsWith("<broken>{\"time\":"),
                            LogTest::Missing(1),
                            "fourth",
                            "fifth.",
                            "sixth."));
}

TEST_F(CorePlatformShortWriteTest, NothingIsCutOffAFileThatHasTakenTheDescriptor) {
    const std::string precious = m_folder.PathOf("precious");
    LogTest::SetContentOf(precious, "precious, and longer than the part of the line\n");
    testing::internal::CaptureStderr();

    LogWithShortWrite("second", 20, [&] {
        const int other = open(precious.c_str(), O_WRONLY | O_CLOEXEC);
        for (int descriptor = STDERR_FILENO + 1; descriptor < 64; ++descriptor) {
            struct stat ours {};

            struct stat status {};

            if (stat(m_path.c_str(), &ours) == 0 && fstat(descriptor, &status) == 0 &&
                status.st_ino == ours.st_ino) {
                dup2(other, descriptor);
            }
        }
        close(other);
    });
    testing::internal::GetCapturedStderr();

    EXPECT_EQ(LogTest::ContentOf(precious), "precious, and longer than the part of the line\n");
}

}  // namespace
