#include "ChildProcess.h"
#include "CorePlatformLogFileTestSupport.h"
#include "Environment.h"
#include "Journal.h"
#include "JournalRecovery.h"
#include "Sanitizers.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using cvlcoreplatform::Journal;
using cvlcoreplatform::JournalLanding;
using cvlcoreplatform::RecoverJournals;
using tarn::test::SucceedsInChild;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

std::string Contents(const std::string& path) {
    return LogTest::ContentOf(path);
}

class CorePlatformJournalTest : public LogTest::LogFileTest {
protected:
    static TLog::LogFileLimits Journalled(uint64 maxBytes = 0) {
        TLog::LogFileLimits limits;
        limits.useJournal = true;
        limits.maxBytes = maxBytes;
        return limits;
    }

    /// Files beside the log and its full files.
    std::vector<std::string> Journals() const {
        std::vector<std::string> names;
        for (const std::string& name : FilesInFolder()) {
            if (name.ends_with(".journal")) {
                names.push_back(name);
            }
        }
        return names;
    }

    void AwaitMessages(std::size_t count) const {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (MessagesIn(m_path).size() < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(1ms);
        }
    }

    /// Runs `body` in a child that is killed at its end.
    template <class Body>
    static void InKilledChild(const Body& body) {
        const pid_t child = tarn::test::StartChild([&] {
            body();
            kill(getpid(), SIGKILL);
        });
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    }
};

TEST_F(CorePlatformJournalTest, ALineIsInTheLogAMomentLaterThoughNoOtherOneFollows) {
    LogTo(m_path, Journalled());
    LogMessage("alone");

    AwaitMessages(1);
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("alone"));
    EXPECT_THAT(Journals(), SizeIs(1));
}

TEST_F(CorePlatformJournalTest, FlushingBringsAllLinesIntoTheLogInTheirOrder) {
    LogTo(m_path, Journalled());
    std::vector<std::string> expected;
    for (int number = 0; number < 1000; ++number) {
        expected.push_back(std::to_string(number));
        LogMessage(expected.back());
    }
    TLog::FlushLog();

    EXPECT_EQ(MessagesIn(m_path), expected);
    EXPECT_EQ(Increase(&TLog::LogStatistics::lines), 1000U);
    EXPECT_EQ(Increase(&TLog::LogStatistics::bytes), std::filesystem::file_size(m_path));
}

TEST_F(CorePlatformJournalTest, ALongLineComesBehindTheShortOnesBeforeIt) {
    LogTo(m_path, Journalled());
    LogMessage("short");
    LogMessage(std::string(100'000, 'x'));
    LogMessage("after");
    TLog::FlushLog();

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("short", std::string(100'000, 'x'), "after"));
}

TEST_F(CorePlatformJournalTest, AReplacedBackEndLeavesNothingButTheLog) {
    LogTo(m_path, Journalled());
    LogMessage("one");
    TLog::ReplaceBackEnd(nullptr);

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one"));
    EXPECT_THAT(Journals(), IsEmpty());
}

// The keeper's thread looks at a journal when it has got its first line.
TEST_F(CorePlatformJournalTest, ABackEndIsReplacedWhileItsJournalIsLookedAt) {
    for (std::size_t round = 1; round <= 300; ++round) {
        LogTo(m_path, Journalled());
        LogMessage("one");
        TLog::ReplaceBackEnd(nullptr);

        ASSERT_THAT(Journals(), IsEmpty());
        ASSERT_EQ(static_cast<std::size_t>(std::ranges::count(Contents(m_path), '\n')), round);
    }
}

TEST_F(CorePlatformJournalTest, RotationFindsTheLinesBeforeItInTheFullFile) {
    LogTo(m_path, Journalled());
    LogMessage("before");
    ASSERT_TRUE(TLog::RotateLog());
    LogMessage("after");
    TLog::FlushLog();

    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("before"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("after"));
}

TEST_F(CorePlatformJournalTest, AReopenedLogHasItsJournalBesideIt) {
    std::filesystem::create_directory(m_folder.PathOf("new"));
    const std::string link = m_folder.PathOf("link");
    std::filesystem::create_symlink(m_path, link);
    LogTo(link, Journalled());
    LogMessage("before");
    TLog::FlushLog();
    std::filesystem::remove(link);
    std::filesystem::create_symlink(m_folder.PathOf("new/b.log"), link);
    ASSERT_TRUE(TLog::ReopenLog());
    LogMessage("after");

    EXPECT_THAT(Journals(), IsEmpty());
    EXPECT_TRUE(std::filesystem::exists(
        m_folder.PathOf("new/b.log." + std::to_string(getpid()) + ".journal")));
    TLog::FlushLog();
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("before"));
    EXPECT_THAT(MessagesIn(m_folder.PathOf("new/b.log")), ElementsAre("after"));
    TLog::ReplaceBackEnd(nullptr);
}

TEST_F(CorePlatformJournalTest, FullFilesTogetherHaveEachLineOnce) {
    LogTo(m_path, Journalled(200'000));
    std::vector<std::string> expected;
    for (int number = 0; number < 10'000; ++number) {
        expected.push_back(std::to_string(number));
        LogMessage(expected.back());
    }
    TLog::ReplaceBackEnd(nullptr);

    std::vector<std::string> messages;
    for (int number = 8; number > 0; --number) {
        EXPECT_LE(Contents(PathOfFullFile(number)).size(), 200'000U);
        for (std::string& message : MessagesIn(PathOfFullFile(number))) {
            messages.push_back(std::move(message));
        }
    }
    for (std::string& message : MessagesIn(m_path)) {
        messages.push_back(std::move(message));
    }
    EXPECT_EQ(messages, expected);
}

TEST_F(CorePlatformJournalTest, TwoLogsOfOneFileHaveAJournalEach) {
    const auto one = TLog::MakeJsonFileBackEnd(m_path, Journalled());
    const auto two = TLog::MakeJsonFileBackEnd(m_path, Journalled());
    one->WriteMessage(TLog::Info, TString("one"));
    two->WriteMessage(TLog::Info, TString("two"));

    EXPECT_THAT(Journals(), SizeIs(2));
    one->Flush();
    two->Flush();
    EXPECT_THAT(MessagesIn(m_path), UnorderedElementsAre("one", "two"));
}

TEST_F(CorePlatformJournalTest, WithoutRoomForAJournalLinesAreWrittenAtOnce) {
    const std::string said = m_folder.PathOf("said");
    EXPECT_TRUE(SucceedsInChild([&] {
        dup2(open(said.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDERR_FILENO);
        LogTest::LimitFileSize(20'000);
        LogTo(m_path, Journalled());
        LogMessage("at once");
        LogMessage("and again");
        return MessagesIn(m_path).size() == 2 && Journals().empty();
    }));

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("at once", "and again"));
    EXPECT_THAT(LogTest::LinesIn(Contents(said)),
                ElementsAre(testing::StartsWith("log: lines are written without a journal: ")));
}

// The journal takes what it has room for, and the rest is counted.
TEST_F(CorePlatformJournalTest, ABlockThatFindsNoRoomWaitsAndTheLinesThatFindNoneAreCounted) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    constexpr std::size_t logged = 2000;
    EXPECT_TRUE(SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        LogTo(m_path, Journalled());
        LogMessage("before");
        TLog::FlushLog();
        LogTest::LimitFileSize(std::filesystem::file_size(m_path));
        for (std::size_t number = 0; number < logged; ++number) {
            LogMessage(std::to_string(number));
        }
        const bool isAsBefore = MessagesIn(m_path).size() == 1;
        LogTest::LimitFileSize(RLIM_INFINITY);
        LogMessage("after");
        TLog::FlushLog();
        return isAsBefore;
    }));

    const std::vector<std::string> messages = MessagesIn(m_path);
    ASSERT_GT(messages.size(), 3U);
    const std::size_t kept = messages.size() - 3;
    ASSERT_LT(kept, logged);
    for (std::size_t number = 0; number < kept; ++number) {
        EXPECT_EQ(messages[1 + number], std::to_string(number));
    }
    EXPECT_EQ(messages[kept + 1], LogTest::Missing(static_cast<int>(logged - kept)));
    EXPECT_EQ(messages.back(), "after");
}

TEST_F(CorePlatformJournalTest, AForkedChildRepeatsNothingAndHasAJournalOfItsOwn) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    LogTo(m_path, Journalled());
    LogMessage("parent");
    EXPECT_TRUE(SucceedsInChild([&] {
        LogMessage("child");
        const bool hasOwn = Journals().size() == 2;
        TLog::FlushLog();
        return hasOwn;
    }));
    LogMessage("parent again");
    TLog::FlushLog();

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("parent", "child", "parent again"));
}

TEST_F(CorePlatformJournalTest, ForksAmongLoggingThreadsLoseAndRepeatNothing) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    LogTo(m_path, Journalled());
    std::atomic<bool> isOver{false};
    std::size_t logged = 0;
    std::thread logging([&] {
        for (; !isOver; ++logged) {
            LogMessage("thread " + std::to_string(logged));
        }
    });
    constexpr std::size_t forks = 20;
    for (std::size_t number = 0; number < forks; ++number) {
        EXPECT_TRUE(SucceedsInChild([&] {
            LogMessage("child " + std::to_string(number));
            TLog::FlushLog();
            return true;
        }));
    }
    isOver = true;
    logging.join();
    TLog::FlushLog();

    std::vector<std::string> expected;
    for (std::size_t number = 0; number < logged; ++number) {
        expected.push_back("thread " + std::to_string(number));
    }
    for (std::size_t number = 0; number < forks; ++number) {
        expected.push_back("child " + std::to_string(number));
    }
    std::vector<std::string> messages = MessagesIn(m_path);
    std::sort(messages.begin(), messages.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(messages, expected);
}

TEST_F(CorePlatformJournalTest, AProcessThatReturnsFromMainLeavesNothingInAJournal) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    EXPECT_TRUE(SucceedsInChild([&]() -> bool {
        LogTo(m_path, Journalled());
        LogMessage("last");
        exit(EXIT_SUCCESS);
    }));

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("last"));
    EXPECT_THAT(Journals(), IsEmpty());
}

TEST_F(CorePlatformJournalTest, TheNextOneWhoOpensTheLogFindsTheLinesOfAKilledProcess) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    InKilledChild([&] {
        LogTo(m_path, Journalled());
        LogMessage("one");
        TLog::FlushLog();
        LogMessage("two");
        LogMessage("three");
    });
    LogTo(m_path);
    LogMessage("next");

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one", "two", "three", "next"));
    EXPECT_THAT(Journals(), IsEmpty());
}

TEST_F(CorePlatformJournalTest, NoLineWhoseCallHasReturnedIsMissingOrDoubledAfterAKill) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    constexpr std::size_t threads = 3;
    const auto kills = tarn::test::NumberFromEnvironment("TARN_KILLS").value_or(20);
    const auto given = tarn::test::NumberFromEnvironment("TARN_KILL_SEED");
    const auto seed = given ? static_cast<unsigned>(*given) : std::random_device()();
    SCOPED_TRACE("TARN_KILL_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> moments(0, 8'000);
    void* const shared =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    auto* const returned = static_cast<std::atomic<uint64>*>(shared);

    std::size_t missing = 0;
    std::size_t doubled = 0;
    std::size_t lines = 0;
    for (std::uint64_t round = 0; round < kills && missing == 0 && doubled == 0; ++round) {
        for (std::size_t thread = 0; thread < threads; ++thread) {
            returned[thread] = 0;
        }
        const bool rotates = round % 2 == 1;
        const pid_t child = tarn::test::StartChild([&] {
            TLog::LogFileLimits limits = Journalled(rotates ? 300'000 : 0);
            limits.maxFiles = 1000;
            LogTo(m_path, limits);
            std::vector<std::thread> running;
            for (std::size_t thread = 0; thread < threads; ++thread) {
                running.emplace_back([&, thread] {
                    for (;;) {
                        LogMessage(std::to_string(thread) + '/' +
                                   std::to_string(returned[thread].load()));
                        ++returned[thread];
                    }
                });
            }
            running.front().join();
        });
        while (returned[0] == 0) {
            std::this_thread::sleep_for(100us);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(moments(random)));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        LogTo(m_path);
        TLog::ReplaceBackEnd(nullptr);
        EXPECT_THAT(Journals(), IsEmpty());

        std::vector<std::vector<std::size_t>> found(threads);
        for (const std::string& name : FilesInFolder()) {
            for (const std::string& message : MessagesIn(m_folder.PathOf(name))) {
                const std::size_t thread = static_cast<std::size_t>(message[0] - '0');
                ASSERT_LT(thread, threads) << message << " in " << name;
                const std::size_t number = std::stoul(message.substr(2));
                found[thread].resize(std::max(found[thread].size(), number + 1));
                ++found[thread][number];
                ++lines;
            }
            std::filesystem::remove(m_folder.PathOf(name));
        }
        for (std::size_t thread = 0; thread < threads; ++thread) {
            found[thread].resize(std::max<std::size_t>(found[thread].size(), returned[thread]));
            missing += static_cast<std::size_t>(
                std::count(found[thread].begin(),
                           found[thread].begin() + static_cast<std::ptrdiff_t>(returned[thread]),
                           0U));
            doubled += static_cast<std::size_t>(
                std::count_if(found[thread].begin(), found[thread].end(), [](std::size_t times) {
                    return times > 1;
                }));
        }
        EXPECT_EQ(missing, 0U) << "round " << round;
        EXPECT_EQ(doubled, 0U) << "round " << round;
    }
    EXPECT_GT(lines, kills);
    munmap(shared, 4096);
}

/// A journal as a killed process leaves it, with the lines "first", "second" and "third".
class CorePlatformJournalRecoveryTest : public CorePlatformJournalTest {
protected:
    static constexpr std::string_view lines = "first\nsecond\nthird\n";

    /// `landed` of the lines are in the log that it had begun to write to.
    void Leave(const std::string& log, std::string_view landed, bool lands = true) {
        InKilledChild([&] {
            Journal journal(log, 0600);
            journal.Append("first");
            journal.Append("second");
            journal.Append("third");
            if (lands) {
                struct stat status {};

                stat(log.c_str(), &status);
                journal.AnnounceLanding(
                    {status.st_dev, status.st_ino, static_cast<uint64>(status.st_size)});
            }
            Append(log, landed);
            kill(getpid(), SIGKILL);
        });
    }

    static void Append(const std::string& path, std::string_view text) {
        std::ofstream(path, std::ios::binary | std::ios::app) << text;
    }

    std::string Recovered() const {
        RecoverJournals(m_path, 0600);
        EXPECT_THAT(Journals(), IsEmpty());
        return Contents(m_path);
    }
};

TEST_F(CorePlatformJournalRecoveryTest, LinesThatWereNotBegunAreAppended) {
    Append(m_path, "before\n");
    Leave(m_path, "", false);

    EXPECT_EQ(Recovered(), "before\nfirst\nsecond\nthird\n");
}

TEST_F(CorePlatformJournalRecoveryTest, ALogThatIsGoneIsMadeAgain) {
    Leave(m_path, "", false);

    EXPECT_EQ(Recovered(), lines);
}

TEST_F(CorePlatformJournalRecoveryTest, ABlockThatWasWrittenInPartIsCompletedAtEachLength) {
    for (std::size_t length = 0; length <= lines.size(); ++length) {
        LogTest::SetContentOf(m_path, "before\n");
        Leave(m_path, lines.substr(0, length));

        EXPECT_EQ(Recovered(), "before\n" + std::string(lines)) << length;
    }
}

TEST_F(CorePlatformJournalRecoveryTest, BehindALineOfOthersABrokenOneIsWrittenAgain) {
    LogTest::SetContentOf(m_path, "before\n");
    Leave(m_path, "first\nsec");
    Append(m_path, "\nother\n");

    EXPECT_EQ(Recovered(), "before\nfirst\nsec\nother\nsecond\nthird\n");
}

TEST_F(CorePlatformJournalRecoveryTest, AnotherLineThatEndsTheLogOpenIsNotContinued) {
    LogTest::SetContentOf(m_path, "before\n");
    Leave(m_path, "", true);
    Append(m_path, "other");

    EXPECT_EQ(Recovered(), "before\nother\nfirst\nsecond\nthird\n");
}

TEST_F(CorePlatformJournalRecoveryTest, ABlockIsFoundInTheFileThatWasBegunMeanwhile) {
    LogTest::SetContentOf(m_path, "before\n");
    InKilledChild([&] {
        Journal journal(m_path, 0600);
        journal.Append("first");
        journal.Append("second");
        struct stat status {};

        stat(m_path.c_str(), &status);
        journal.AnnounceLanding(
            {status.st_dev, status.st_ino, static_cast<uint64>(status.st_size)});
        std::filesystem::rename(m_path, PathOfFullFile(1));
        Append(m_path, "first\nse");
        kill(getpid(), SIGKILL);
    });

    EXPECT_EQ(Recovered(), "first\nsecond\n");
    EXPECT_EQ(Contents(PathOfFullFile(1)), "before\n");
}

TEST_F(CorePlatformJournalRecoveryTest, ABlockIsFoundInAFullFile) {
    LogTest::SetContentOf(m_path, "before\n");
    Leave(m_path, "first\nsecond\nthird\n");
    std::filesystem::rename(m_path, PathOfFullFile(1));
    Append(m_path, "other\n");

    EXPECT_EQ(Recovered(), "other\n");
}

TEST_F(CorePlatformJournalRecoveryTest, TheSameTextBeforeTheLandingIsNotTakenForTheBlock) {
    LogTest::SetContentOf(m_path, lines.data());
    Leave(m_path, "");

    EXPECT_EQ(Recovered(), std::string(lines) + std::string(lines));
}

TEST_F(CorePlatformJournalRecoveryTest, WhoIsKilledWhileRecoveringLeavesItToTheNext) {
    // Longer than the head of a journal, which the limit below is not for.
    const std::string before = std::string(200, 'b') + '\n';
    LogTest::SetContentOf(m_path, before);
    Leave(m_path, "first\nsec");
    const std::size_t size = std::filesystem::file_size(m_path);
    InKilledChild([&] {
        // As on a disk that is full after three more bytes.
        LogTest::LimitFileSize(size + 3);
        RecoverJournals(m_path, 0600);
    });
    EXPECT_EQ(Contents(m_path), before + "first\nsecond");

    EXPECT_EQ(Recovered(), before + std::string(lines));
}

TEST_F(CorePlatformJournalRecoveryTest, TheJournalOfALivingProcessStaysAsItIs) {
    const Journal journal(m_path, 0600);
    EXPECT_TRUE(SucceedsInChild([&] {
        RecoverJournals(m_path, 0600);
        return Journals().size() == 1;
    }));
    RecoverJournals(m_path, 0600);
    EXPECT_THAT(Journals(), SizeIs(1));
}

TEST_F(CorePlatformJournalRecoveryTest, WhatIsNoJournalStaysAsItIs) {
    const std::vector<std::string> strange = {
        "a.log.1.journal", "a.log.x.journal", "a.log.journal", "b.log.1.journal"};
    for (const std::string& name : strange) {
        LogTest::SetContentOf(m_folder.PathOf(name), "tarnjrnl");
    }
    std::string hostile(cvlcoreplatform::journalHeadBytes + cvlcoreplatform::journalCapacity,
                        '\xff');
    LogTest::SetContentOf(m_folder.PathOf("a.log.2.journal"), hostile);
    hostile.replace(0, 12, std::string("tarnjrnl\1\0\0\0", 12));
    LogTest::SetContentOf(m_folder.PathOf("a.log.3.journal"), hostile);
    std::filesystem::create_symlink(m_folder.PathOf("a.log.2.journal"),
                                    m_folder.PathOf("a.log.4.journal"));
    RecoverJournals(m_path, 0600);

    EXPECT_THAT(Journals(), SizeIs(strange.size() + 3));
    EXPECT_FALSE(std::filesystem::exists(m_path));
}

}  // namespace
