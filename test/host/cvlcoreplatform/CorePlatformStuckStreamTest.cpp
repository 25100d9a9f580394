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
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using LogTest::LinesIn;
using LogTest::Missing;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

/// The ways in which a line can reach a stream without waiting for it.
enum class Kernel {
    AsItIs,
    WithoutNoWait,   ///< it cannot be asked not to wait
    WithoutReopens,  ///< and what is open cannot be opened once more
};

/// A substitute for an older kernel, or one with fewer rights.
bool Behave(Kernel kernel) {
    const auto refuse = [](unsigned call, unsigned error) {
        return std::array<sock_filter, 2>{
            sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
            sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error)};
    };
    if (kernel == Kernel::AsItIs) {
        return true;
    }
    std::vector<sock_filter> program{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const auto& statement : refuse(SYS_pwritev2, EOPNOTSUPP)) {
        program.push_back(statement);
    }
    if (kernel == Kernel::WithoutReopens) {
        for (const auto& statement : refuse(SYS_openat, EACCES)) {
            program.push_back(statement);
        }
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

/// Two ends of a stream, of which the second is written to. Both block.
struct Stream {
    std::array<int, 2> ends{-1, -1};

    static Stream Pipe() {
        Stream stream;
        EXPECT_EQ(pipe(stream.ends.data()), 0);
        return stream;
    }

    static Stream Socket() {
        Stream stream;
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, stream.ends.data()), 0);
        return stream;
    }

    static Stream Terminal() {
        Stream stream;
        stream.ends[0] = posix_openpt(O_RDWR | O_NOCTTY);
        EXPECT_EQ(grantpt(stream.ends[0]), 0);
        EXPECT_EQ(unlockpt(stream.ends[0]), 0);
        stream.ends[1] = open(ptsname(stream.ends[0]), O_WRONLY | O_NOCTTY);
        return stream;
    }

    bool Blocks() const { return (fcntl(ends[1], F_GETFL) & O_NONBLOCK) == 0; }

    /// What is in it at the moment.
    std::string Read() const {
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        std::string text;
        std::vector<char> buffer(65536);
        for (ssize_t count = 0; (count = read(ends[0], buffer.data(), buffer.size())) > 0;) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return text;
    }
};

struct Case {
    const char* name;
    Stream (*make)();
    Kernel kernel;
};

// Children do the logging: they bend their standard output.
class CorePlatformStuckStreamTest : public LogTest::LogFileTest,
                                    public testing::WithParamInterface<Case> {
protected:
    /// Logs to standard output, which is connected with the stream.
    static bool LogTo(const Stream& stream) {
        LogTest::SilenceStandardError();
        dup2(stream.ends[1], STDOUT_FILENO);
        ReplaceBackEnd(MakeJsonStdoutBackEnd());
        return Behave(GetParam().kernel);
    }

    static Clock::duration TimeOf(int lines, const std::string& text) {
        const auto begin = Clock::now();
        for (int i = 0; i < lines; ++i) {
            LogMessage(text);
        }
        return Clock::now() - begin;
    }
};

std::string NameOf(const testing::TestParamInfo<Case>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    ,
    CorePlatformStuckStreamTest,
    testing::Values(Case{"Pipe", Stream::Pipe, Kernel::AsItIs},
                    Case{"PipeOfAnOlderKernel", Stream::Pipe, Kernel::WithoutNoWait},
                    Case{"PipeThatCannotBeReopened", Stream::Pipe, Kernel::WithoutReopens},
                    Case{"Socket", Stream::Socket, Kernel::AsItIs},
                    Case{"Terminal", Stream::Terminal, Kernel::AsItIs}),
    NameOf);

TEST_P(CorePlatformStuckStreamTest, IsWaitedForOnceThoughItBlocksAndLosesWholeLines) {
    const bool isTerminal = GetParam().make == &Stream::Terminal;
    for (const std::size_t length : {std::size_t{100}, std::size_t{100'000}}) {
        const bool succeeded = tarn::test::SucceedsInChild([&] {
            const Stream stream = GetParam().make();
            if (!LogTo(stream)) {
                return false;
            }
            const int lines = length == 100 ? 3000 : 20;

            const auto time = TimeOf(lines, std::string(length, 'x'));

            const uint64 lost = Increase(&LogStatistics::writeErrors);
            const bool isLimited = time > milliseconds(900) && time < seconds(20);
            const bool isCounted =
                lost > 0 && Increase(&LogStatistics::lines) + lost == static_cast<uint64>(lines);
            if (!isLimited || !isCounted || !stream.Blocks()) {
                return false;
            }
            if (isTerminal) {
                return true;  // it changes line ends, and holds some back
            }
            std::string text = stream.Read();
            LogMessage("next");
            text += stream.Read();
            std::size_t whole = 0;
            const auto found = LinesIn(text);
            for (const std::string& line : found) {
                whole += nlohmann::json::accept(line) ? 1U : 0U;
            }
            // A line that was begun is closed; it is one of those that are lost.
            return whole == static_cast<std::size_t>(lines) - lost + 2 &&
                   found.size() <= whole + 1 &&
                   found[found.size() - 2].find(Missing(static_cast<int>(lost))) !=
                       std::string::npos &&
                   found.back().find("\"next\"") != std::string::npos;
        });

        EXPECT_TRUE(succeeded) << length;
    }
}

TEST_P(CorePlatformStuckStreamTest, IsWaitedForAgainOnlyWhenItHasTakenALine) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        const Stream stream = GetParam().make();
        if (!LogTo(stream)) {
            return false;
        }
        const std::string text(1000, 'x');
        TimeOf(2000, text);

        // A second each would be too much.
        const auto whileStuck = TimeOf(100, text);
        stream.Read();
        LogMessage("taken");
        const auto afterwards = TimeOf(2000, text);

        return whileStuck < seconds(10) && afterwards > milliseconds(900) &&
               afterwards < seconds(20);
    });

    EXPECT_TRUE(succeeded);
}

TEST_P(CorePlatformStuckStreamTest, TimersOfTheHostDoNotCostLines) {
    if (GetParam().make == &Stream::Terminal) {
        return;  // it cannot be read line by line
    }
    constexpr int lines = 600;
    const Stream stream = GetParam().make();
    std::atomic<bool> isOver{false};
    std::string text;
    std::thread reader([&] {
        while (!isOver) {
            std::this_thread::sleep_for(milliseconds(10));
            text += stream.Read();
        }
        text += stream.Read();
    });

    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTo(stream);
        struct sigaction action {};

        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        const itimerval timer{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &timer, nullptr);
        TimeOf(lines, std::string(2000, 'x'));
        return Increase(&LogStatistics::writeErrors) == 0;
    });
    isOver = true;
    reader.join();

    EXPECT_TRUE(succeeded);
    EXPECT_EQ(LinesIn(text).size(), static_cast<std::size_t>(lines));
}

class CorePlatformNamedPipeTest : public LogTest::LogFileTest {
protected:
    CorePlatformNamedPipeTest() { EXPECT_EQ(mkfifo(m_path.c_str(), 0600), 0); }

    int OpenReader() const { return open(m_path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }

    static std::string Read(int reader) { return Stream{{reader, -1}}.Read(); }
};

TEST_F(CorePlatformNamedPipeTest, NeedsNoReaderToBeginWith) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        LogTo(m_path);
        LogMessage("lost");
        const uint64 lost = Increase(&LogStatistics::writeErrors);
        const int reader = OpenReader();

        std::this_thread::sleep_for(milliseconds(1100));
        LogMessage("here");

        const auto lines = LinesIn(Read(reader));
        return lost == 1 && lines.size() == 2 && lines[0].find(Missing(1)) != std::string::npos &&
               lines[1].find("\"here\"") != std::string::npos;
    });

    EXPECT_TRUE(succeeded);
}

TEST_F(CorePlatformNamedPipeTest, IsWaitedForAsAStandardStreamIs) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        const int reader = OpenReader();
        LogTo(m_path);
        const auto begin = Clock::now();

        for (int i = 0; i < 200; ++i) {
            LogMessage(std::string(1000, 'x'));
        }

        const auto time = Clock::now() - begin;
        return reader >= 0 && time > milliseconds(900) && time < seconds(20) &&
               Increase(&LogStatistics::writeErrors) > 100;
    });

    EXPECT_TRUE(succeeded);
}

}  // namespace
