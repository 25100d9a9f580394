#include "ChildProcess.h"
#include "CorePlatformLogFileTestSupport.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using LogTest::LinesIn;
using LogTest::Missing;
using testing::ElementsAre;
using testing::HasSubstr;

struct Pipe {
    Pipe() { opened = pipe(ends.data()) == 0; }

    ~Pipe() {
        CloseReader();
        CloseWriter();
    }

    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void CloseReader() { CloseEnd(ends[0]); }

    void CloseWriter() { CloseEnd(ends[1]); }

    // What is in the pipe at the moment.
    std::string Read() const {
        fcntl(ends[0], F_SETFL, fcntl(ends[0], F_GETFL) | O_NONBLOCK);
        std::string text;
        std::vector<char> buffer(65536);
        for (ssize_t count = 0; (count = read(ends[0], buffer.data(), buffer.size())) > 0;) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

    bool opened = false;
    std::array<int, 2> ends{-1, -1};

private:
    static void CloseEnd(int& end) {
        if (end >= 0) {
            close(end);
        }
        end = -1;
    }
};

// The test runs in a child wherever it bends the standard streams or is about signals.
class CorePlatformLogStreamTest : public LogTest::LogFileTest {
protected:
    static void LogToStdout() { ReplaceBackEnd(MakeJsonStdoutBackEnd()); }

    static std::vector<std::string> MessagesOf(const std::string& text) {
        std::vector<std::string> messages;
        for (const std::string& line : LinesIn(text)) {
            const auto json = nlohmann::json::parse(line, nullptr, false);
            messages.push_back(json.is_object() ? json["message"].get<std::string>()
                                                : "<broken>" + line);
        }
        return messages;
    }

    static bool IsSignalPending() {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 1;
    }

    static bool IsSignalBlocked() {
        sigset_t blocked;
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        return sigismember(&blocked, SIGPIPE) == 1;
    }

    static void BlockSignal() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    // A pipe without a reader in the place of standard output.
    static void CloseStdoutPipe() {
        Pipe pipe;
        dup2(pipe.ends[1], STDOUT_FILENO);
    }
};

TEST_F(CorePlatformLogStreamTest, LinesGoToStandardOutput) {
    LogToStdout();
    testing::internal::CaptureStdout();

    LogMessage("one");
    LogMessage("two");

    EXPECT_THAT(MessagesOf(testing::internal::GetCapturedStdout()), ElementsAre("one", "two"));
    EXPECT_EQ(Increase(&LogStatistics::lines), 2u);
}

TEST_F(CorePlatformLogStreamTest, LinesGoToStandardError) {
    ReplaceBackEnd(MakeJsonStderrBackEnd());
    testing::internal::CaptureStderr();

    LogMessage("one");

    EXPECT_THAT(MessagesOf(testing::internal::GetCapturedStderr()), ElementsAre("one"));
}

TEST_F(CorePlatformLogStreamTest, APipeWithoutAReaderLosesLinesAndNotTheHost) {
    const std::string complaints = m_folder.PathOf("complaints");
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        signal(SIGPIPE, SIG_DFL);
        dup2(open(complaints.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        CloseStdoutPipe();
        LogToStdout();

        for (int i = 0; i < 10; ++i) {
            LogMessage("lost");
        }
        return Increase(&LogStatistics::writeErrors) == 10 &&
               Increase(&LogStatistics::lines) == 0 && !IsSignalBlocked() &&
               signal(SIGPIPE, SIG_DFL) == SIG_DFL;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_THAT(LinesIn(LogTest::ContentOf(complaints)),
                ElementsAre(HasSubstr("cannot write to standard output: Broken pipe, ")));
}

std::atomic<int> s_signals{0};

TEST_F(CorePlatformLogStreamTest, AHostsHandlerIsNotCalledForTheLog) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        signal(SIGPIPE, [](int) { ++s_signals; });
        CloseStdoutPipe();
        LogToStdout();
        LogMessage("lost");
        const int ofTheLog = s_signals;

        const bool failed = write(STDOUT_FILENO, "x", 1) < 0 && errno == EPIPE;
        return ofTheLog == 0 && failed && s_signals == 1;
    });

    EXPECT_TRUE(succeeded);
}

TEST_F(CorePlatformLogStreamTest, ASignalThatWaitsForTheHostIsLeftToIt) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        CloseStdoutPipe();
        BlockSignal();
        LogToStdout();

        LogMessage("lost");
        const bool isClean = !IsSignalPending() && IsSignalBlocked();
        pthread_kill(pthread_self(), SIGPIPE);
        LogMessage("lost");
        return isClean && IsSignalPending() && IsSignalBlocked();
    });

    EXPECT_TRUE(succeeded);
}

TEST_F(CorePlatformLogStreamTest, TheComplaintItselfMayFindAPipeWithoutAReader) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        signal(SIGPIPE, SIG_DFL);
        CloseStdoutPipe();
        dup2(STDOUT_FILENO, STDERR_FILENO);
        LogToStdout();

        LogMessage("lost");
        return Increase(&LogStatistics::writeErrors) == 1 && !IsSignalBlocked();
    });

    EXPECT_TRUE(succeeded);
}

TEST_F(CorePlatformLogStreamTest, TheComplaintDoesNotWaitForWhoeverReadsIt) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        const Pipe full;
        fcntl(full.ends[1], F_SETFL, O_NONBLOCK);
        const std::string page(4096, 'x');
        while (write(full.ends[1], page.data(), page.size()) > 0) {
        }
        fcntl(full.ends[1], F_SETFL, 0);
        dup2(full.ends[1], STDERR_FILENO);
        CloseStdoutPipe();
        LogToStdout();

        LogMessage("lost");
        return Increase(&LogStatistics::writeErrors) == 1;
    });

    EXPECT_TRUE(succeeded);
}

TEST_F(CorePlatformLogStreamTest, AStreamThatIsConnectedAgainTellsWhatIsMissing) {
    const std::string path = m_folder.PathOf("out");
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        CloseStdoutPipe();
        LogToStdout();
        LogMessage("lost");
        LogMessage("lost");

        dup2(open(path.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
        LogMessage("here");
        LogMessage("again");
        return Increase(&LogStatistics::writeErrors) == 2 && Increase(&LogStatistics::lines) == 3;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_THAT(MessagesIn(path), ElementsAre(Missing(2), "here", "again"));
}

TEST_F(CorePlatformLogStreamTest, LossesAtTheEndAreMentionedByAFlush) {
    const std::string path = m_folder.PathOf("out");
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        CloseStdoutPipe();
        LogToStdout();
        LogMessage("lost");
        FlushLog();

        dup2(open(path.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
        FlushLog();
        FlushLog();
        return Increase(&LogStatistics::writeErrors) == 1;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_THAT(MessagesIn(path), ElementsAre(Missing(1)));
}

TEST_F(CorePlatformLogStreamTest, AThresholdAboveWarningsKeepsTheRecordOfLossesOut) {
    const std::string path = m_folder.PathOf("out");
    tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        SetThreshold(Error);
        CloseStdoutPipe();
        LogToStdout();
        LogMessage("lost", Error);

        dup2(open(path.c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
        LogMessage("here", Error);
        return true;
    });

    EXPECT_THAT(MessagesIn(path), ElementsAre("here"));
}

TEST_F(CorePlatformLogStreamTest, APipeThatIsFullForAWhileLosesNothing) {
    std::string text;
    const Pipe pipe;
    ASSERT_TRUE(pipe.opened);
    const bool succeeded = [&] {
        bool result = false;
        std::atomic<bool> isOver{false};
        std::thread reader([&] {
            while (!isOver) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                text += pipe.Read();
            }
            text += pipe.Read();
        });
        result = tarn::test::SucceedsInChild([&] {
            fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK);
            dup2(pipe.ends[1], STDOUT_FILENO);
            LogToStdout();
            for (int i = 0; i < 1000; ++i) {
                LogMessage(std::to_string(i) + " " + std::string(1000, 'x'));
            }
            return Increase(&LogStatistics::writeErrors) == 0;
        });
        isOver = true;
        reader.join();
        return result;
    }();

    EXPECT_TRUE(succeeded);
    const auto messages = MessagesOf(text);
    ASSERT_EQ(messages.size(), 1000u);
    for (std::size_t i = 0; i < messages.size(); ++i) {
        EXPECT_EQ(messages[i].substr(0, messages[i].find(' ')), std::to_string(i));
    }
}

TEST_F(CorePlatformLogStreamTest, APipeThatStaysFullIsWaitedForOnceAndLosesLines) {
    using Clock = std::chrono::steady_clock;
    std::string rest;
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        const Pipe pipe;
        fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK);
        dup2(pipe.ends[1], STDOUT_FILENO);
        LogToStdout();
        LogMessage(std::string(100'000, 'x'));
        const auto begin = Clock::now();
        for (int i = 0; i < 1000; ++i) {
            LogMessage("lost");
        }
        const auto time = Clock::now() - begin;
        const std::string half = pipe.Read();
        LogMessage("next");
        const auto lines = LinesIn(half + pipe.Read());
        return time < std::chrono::seconds(5) && Increase(&LogStatistics::writeErrors) == 1001 &&
               lines.size() == 3 && lines[0].size() == half.size() &&
               lines[1].find(Missing(1001)) != std::string::npos &&
               lines[2].find("\"next\"") != std::string::npos;
    });

    EXPECT_TRUE(succeeded);
}

TEST_F(CorePlatformLogStreamTest, ANamedPipeWithoutAReaderLosesLinesAndFindsTheNextReader) {
    const std::string path = m_folder.PathOf("pipe");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        signal(SIGPIPE, SIG_DFL);
        int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        LogTo(path);
        close(reader);
        LogMessage("lost");

        reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        LogMessage("here");
        std::vector<char> buffer(65536);
        const ssize_t count = read(reader, buffer.data(), buffer.size());
        const auto messages =
            MessagesOf(std::string(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0));
        return messages == std::vector<std::string>{Missing(1), "here"};
    });

    EXPECT_TRUE(succeeded);
}

}  // namespace
