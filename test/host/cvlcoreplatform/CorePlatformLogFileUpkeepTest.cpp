#include "ChildProcess.h"
#include "CorePlatformLogFileTestSupport.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using LogTest::ContentOf;
using LogTest::LinesIn;
using LogTest::Missing;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// What becomes of a log file while it is written to: on request, and by other hands.
class CorePlatformLogFileUpkeepTest : public LogTest::LogFileTest {
protected:
    // Longer than a file is not looked after.
    static void LetASecondPass() { std::this_thread::sleep_for(std::chrono::milliseconds(1100)); }

    // The one that the back end has opened; -1 if there is none.
    int DescriptorOfLog() const {
        struct stat log {};

        constexpr int many = 256;
        for (int descriptor = STDERR_FILENO + 1; descriptor < many; ++descriptor) {
            struct stat status {};

            if (fstat(descriptor, &status) == 0 && stat(m_path.c_str(), &log) == 0 &&
                status.st_ino == log.st_ino && status.st_dev == log.st_dev) {
                return descriptor;
            }
        }
        return -1;
    }

    static std::vector<std::string> Numbers(int from, int to) {
        std::vector<std::string> numbers;
        for (int n = from; n < to; ++n) {
            numbers.push_back(std::to_string(n));
        }
        return numbers;
    }
};

TEST_F(CorePlatformLogFileUpkeepTest, ANewFileIsBegunOnRequest) {
    LogTo(m_path);
    LogMessage("one");

    EXPECT_TRUE(RotateLog());
    EXPECT_THAT(FilesInFolder(), ElementsAre("a.1.log", "a.log"));
    LogMessage("two");

    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("one"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("two"));
    EXPECT_EQ(Increase(&LogStatistics::rotations), 1u);
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 0u);
}

TEST_F(CorePlatformLogFileUpkeepTest, AnEmptyFileStaysWhatItIs) {
    LogTo(m_path);

    EXPECT_TRUE(RotateLog());
    EXPECT_TRUE(RotateLog());

    EXPECT_THAT(FilesInFolder(), ElementsAre("a.log"));
    EXPECT_EQ(Increase(&LogStatistics::rotations), 0u);
}

TEST_F(CorePlatformLogFileUpkeepTest, AFileWithoutALimitIsRotatedOnRequest) {
    LogTo(m_path, LogFileLimits{0, 2});

    for (const char* text : {"one", "two", "three"}) {
        LogMessage(text);
        EXPECT_TRUE(RotateLog());
    }

    EXPECT_THAT(MessagesIn(PathOfFullFile(2)), ElementsAre("two"));
    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("three"));
}

TEST_F(CorePlatformLogFileUpkeepTest, NothingIsReplacedWhereNoFullFileIsToBeKept) {
    LogTo(m_path, LogFileLimits{0, 0});
    LogTest::SetContentOf(PathOfFullFile(1), "precious\n");
    LogMessage("one");
    testing::internal::CaptureStderr();

    EXPECT_FALSE(RotateLog());

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("no full file is to be kept"));
    EXPECT_EQ(ContentOf(PathOfFullFile(1)), "precious\n");
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one"));
    EXPECT_EQ(Increase(&LogStatistics::rotationErrors), 1u);
}

TEST_F(CorePlatformLogFileUpkeepTest, ARotationThatFailedIsMadeUpForWhenItCan) {
    std::filesystem::create_directories(PathOfFullFile(1) + "/in the way");
    LogTo(m_path, LogFileLimits{0, 1});
    LogMessage("one");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(RotateLog());
    LogMessage("two");
    testing::internal::GetCapturedStderr();

    std::filesystem::remove_all(PathOfFullFile(1));
    LetASecondPass();
    LogMessage("three");

    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("one", "two"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("three"));
    EXPECT_EQ(Increase(&LogStatistics::rotations), 1u);
}

TEST_F(CorePlatformLogFileUpkeepTest, AfterReopeningNothingGoesIntoTheFileThatWasMoved) {
    LogTo(m_path);
    LogMessage("one");
    std::filesystem::rename(m_path, m_folder.PathOf("moved"));
    LogMessage("two");

    EXPECT_TRUE(ReopenLog());
    EXPECT_EQ(ContentOf(m_path), "");
    LogMessage("three");

    EXPECT_THAT(MessagesIn(m_folder.PathOf("moved")), ElementsAre("one", "two"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("three"));
    EXPECT_EQ(Increase(&LogStatistics::reopenings), 1u);
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 0u);
}

TEST_F(CorePlatformLogFileUpkeepTest, WhenReopeningFailsLinesGoOnIntoTheFileThatIsOpen) {
    const std::string folder = m_folder.PathOf("logs");
    std::filesystem::create_directory(folder);
    LogTo(folder + "/a.log");
    LogMessage("one");
    std::filesystem::rename(folder, m_folder.PathOf("moved"));
    testing::internal::CaptureStderr();

    EXPECT_FALSE(ReopenLog());
    LogMessage("two");

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("No such file or directory"));
    EXPECT_THAT(MessagesIn(m_folder.PathOf("moved/a.log")), ElementsAre("one", "two"));
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 0u);

    std::filesystem::create_directory(folder);
    LetASecondPass();
    LogMessage("three");
    EXPECT_THAT(MessagesIn(folder + "/a.log"), ElementsAre("three"));
}

TEST_F(CorePlatformLogFileUpkeepTest, ABackEndWithoutAFileRefuses) {
    ReplaceBackEnd(std::make_shared<tarn::test::CapturingLog>());
    EXPECT_FALSE(RotateLog());
    EXPECT_FALSE(ReopenLog());

    ReplaceBackEnd(nullptr);
    EXPECT_FALSE(RotateLog());

    LogTo("/dev/null");
    EXPECT_FALSE(RotateLog()) << "a device is not renamed";
}

TEST_F(CorePlatformLogFileUpkeepTest, ASignalHandlerLeavesANoteThatTheNextLineFollows) {
    LogTo(m_path);
    LogMessage("one");
    const auto before = signal(SIGHUP, [](int) { RequestLogRotation(); });

    raise(SIGHUP);
    EXPECT_THAT(FilesInFolder(), ElementsAre("a.log"));
    LogMessage("two");
    std::filesystem::rename(m_path, m_folder.PathOf("moved"));
    signal(SIGHUP, [](int) { RequestLogReopening(); });
    raise(SIGHUP);
    LogMessage("three");
    signal(SIGHUP, before);

    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("one"));
    EXPECT_THAT(MessagesIn(m_folder.PathOf("moved")), ElementsAre("two"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("three"));
}

TEST_F(CorePlatformLogFileUpkeepTest, ANoteIsFollowedOnceAndByAFlushToo) {
    LogTo(m_path);
    LogMessage("one");

    RequestLogRotation();
    FlushLog();
    EXPECT_THAT(FilesInFolder(), ElementsAre("a.1.log", "a.log"));
    LogMessage("two");
    LogMessage("three");

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("two", "three"));
}

TEST_F(CorePlatformLogFileUpkeepTest, ABackEndDoesNotFollowNotesFromBeforeItsTime) {
    RequestLogRotation();
    LogTo(m_path);

    LogMessage("one");
    LogMessage("two");

    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one", "two"));
}

TEST_F(CorePlatformLogFileUpkeepTest, NoLineIsLostOrDoubledWhileFilesChangeInEveryWay) {
    constexpr int threadCount = 3;
    constexpr int each = 3000;
    constexpr int moves = 2;
    LogTo(m_path, LogFileLimits{50'000, 1000});
    std::atomic<int> running{threadCount};
    std::atomic<int> moved{0};
    std::vector<int> counts(threadCount);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&, thread] {
            // On a busy machine the files may change late.
            for (int& n = counts[static_cast<std::size_t>(thread)];
                 n < each || (moved < moves && n < 100 * each);
                 ++n) {
                LogMessage(std::to_string(thread) + "/" + std::to_string(n));
            }
            --running;
        });
    }

    for (int round = 0; running != 0; ++round) {
        if (round % 4 == 0) {
            RotateLog();
        } else if (round % 4 == 1) {
            RequestLogRotation();
        } else {
            std::error_code none;
            std::filesystem::rename(m_path, m_folder.PathOf("moved" + std::to_string(round)), none);
            moved += none ? 0 : 1;
            round % 4 == 2 ? static_cast<void>(ReopenLog()) : RequestLogReopening();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    std::vector<std::string> all;
    for (const std::string& name : FilesInFolder()) {
        const auto messages = MessagesIn(m_folder.PathOf(name));
        all.insert(all.end(), messages.begin(), messages.end());
    }
    std::vector<std::string> expected;
    for (int thread = 0; thread < threadCount; ++thread) {
        for (const std::string& number : Numbers(0, counts[static_cast<std::size_t>(thread)])) {
            expected.push_back(std::to_string(thread) + "/" + number);
        }
    }
    std::sort(all.begin(), all.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(all, expected);
    EXPECT_GE(moved, moves);
    EXPECT_GT(Increase(&LogStatistics::rotations), 2u);
    EXPECT_EQ(Increase(&LogStatistics::rotationErrors), 0u);
}

TEST_F(CorePlatformLogFileUpkeepTest, AFileThatWasMovedAwayIsNoticedWithinASecond) {
    LogTo(m_path);
    LogMessage("one");
    std::filesystem::rename(m_path, m_folder.PathOf("moved"));
    LogMessage("two");

    LetASecondPass();
    LogMessage("three");

    EXPECT_THAT(MessagesIn(m_folder.PathOf("moved")), ElementsAre("one", "two"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("three"));
    EXPECT_EQ(Increase(&LogStatistics::reopenings), 1u);
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 0u) << "the lines are in the moved file";
}

TEST_F(CorePlatformLogFileUpkeepTest, LinesThatWentWithARemovedFileAreCountedAndMentioned) {
    LogTo(m_path);
    LogMessage("one");
    LetASecondPass();
    LogMessage("two");
    std::filesystem::remove(m_path);
    LogMessage("three");
    LogMessage("four");
    testing::internal::CaptureStderr();

    LetASecondPass();
    LogMessage("five");
    LogMessage("six");

    EXPECT_THAT(LinesIn(testing::internal::GetCapturedStderr()),
                ElementsAre(HasSubstr("lines are lost with a removed log file: " + m_path)));
    // The second line was written just after the file was seen at its path.
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("five", Missing(3), "six"));
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 3u);
    EXPECT_EQ(Increase(&LogStatistics::reopenings), 1u);
}

TEST_F(CorePlatformLogFileUpkeepTest, AFileThatWasReplacedIsLeftForTheOneAtThePath) {
    LogTo(m_path);
    LogMessage("one");
    const std::string other = m_folder.PathOf("other");
    LogTest::SetContentOf(other, "{\"message\":\"of others\"}\n");
    std::filesystem::create_hard_link(m_path, m_folder.PathOf("kept"));
    std::filesystem::rename(other, m_path);

    LetASecondPass();
    LogMessage("two");

    EXPECT_THAT(MessagesIn(m_folder.PathOf("kept")), ElementsAre("one"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("of others", "two"));
}

TEST_F(CorePlatformLogFileUpkeepTest, APipeThatTookTheFilesPlaceDoesNotStopTheHost) {
    LogTo(m_path);
    LogMessage("one");
    std::filesystem::rename(m_path, m_folder.PathOf("moved"));
    ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    testing::internal::CaptureStderr();

    LetASecondPass();
    LogMessage("two");

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("cannot begin a new log file"));
    EXPECT_THAT(MessagesIn(m_folder.PathOf("moved")), ElementsAre("one", "two"));
}

TEST_F(CorePlatformLogFileUpkeepTest, AHostThatClosesForeignDescriptorsLosesNoLine) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTo(m_path);
        LogMessage("one");
        constexpr int many = 256;
        for (int descriptor = STDERR_FILENO + 1; descriptor < many; ++descriptor) {
            close(descriptor);
        }
        LogMessage("two");
        return Increase(&LogStatistics::writeErrors) == 0;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one", "two"));
}

TEST_F(CorePlatformLogFileUpkeepTest, AForeignFileUnderTheDescriptorIsNoticedAndNotClosed) {
    const std::string other = m_folder.PathOf("other");
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTo(m_path);
        LogMessage("one");
        const int descriptor = DescriptorOfLog();
        dup2(open(other.c_str(), O_WRONLY | O_CREAT, 0600), descriptor);

        LetASecondPass();
        LogMessage("two");
        return fcntl(descriptor, F_GETFD) >= 0;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one", "two"));
    EXPECT_EQ(ContentOf(other), "");
}

// Shared with its child it would be after the child's line, and when the disk is full a process
// would take what the other has written for a part of its own line.
TEST_F(CorePlatformLogFileUpkeepTest, AForkedChildHasAPositionInTheFileOfItsOwn) {
    LogTo(m_path);
    LogMessage("one");
    const off_t position = lseek(DescriptorOfLog(), 0, SEEK_CUR);

    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogMessage("childs");
        return true;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_GT(position, 0);
    EXPECT_EQ(lseek(DescriptorOfLog(), 0, SEEK_CUR), position);
    LogMessage("two");
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("one", "childs", "two"));
}

TEST_F(CorePlatformLogFileUpkeepTest, AForkedChildDoesNotMentionItsParentsLosses) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        const std::size_t line = LineLength(3);
        LogTo(m_path);
        LogMessage("001");
        LogTest::LimitFileSize(line);
        LogMessage("002");
        LogTest::LimitFileSize(100 * line);
        const bool childSucceeded = tarn::test::SucceedsInChild([&] {
            LogMessage("003");
            return true;
        });
        LogMessage("004");
        return childSucceeded;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("001", "003", Missing(1), "004"));
}

}  // namespace
