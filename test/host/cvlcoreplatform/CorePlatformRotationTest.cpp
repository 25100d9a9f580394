#include "ChildProcess.h"
#include "CorePlatformLogFileTestSupport.h"
#include "FileDescriptor.h"
#include "RotationLock.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using cvlcoreplatform::FileDescriptor;
using cvlcoreplatform::RotationLock;
using LogTest::ContentOf;
using LogTest::Missing;
using testing::ElementsAre;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

/// Another process that keeps a file locked for reading, as anybody who may read it can.
class LockingProcess {
public:
    explicit LockingProcess(const std::string& path) {
        std::array<int, 2> ready{};
        EXPECT_EQ(pipe(ready.data()), 0);
        m_pid = fork();
        if (m_pid == 0) {
            const int file = open(path.c_str(), O_RDONLY);

            struct flock lock {};

            lock.l_type = F_RDLCK;
            lock.l_whence = SEEK_SET;
            const char isLocked = fcntl(file, F_SETLK, &lock) == 0 ? 1 : 0;
            if (write(ready[1], &isLocked, 1) == 1) {
                alarm(60);
                pause();
            }
            _exit(0);
        }
        char isLocked = 0;
        EXPECT_EQ(read(ready[0], &isLocked, 1), 1);
        EXPECT_EQ(isLocked, 1);
        close(ready[0]);
        close(ready[1]);
    }

    ~LockingProcess() {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }

    LockingProcess(const LockingProcess&) = delete;
    LockingProcess& operator=(const LockingProcess&) = delete;

private:
    pid_t m_pid = -1;
};

// Files among other processes, other users and links.
class CorePlatformRotationTest : public LogTest::LogFileTest {
protected:
    static void LetASecondPass() { std::this_thread::sleep_for(std::chrono::milliseconds(1100)); }

    std::string MakeFolder(const char* name) const {
        const std::string path = m_folder.PathOf(name);
        std::filesystem::create_directory(path);
        return path;
    }

    static mode_t ModeOf(const std::string& path) {
        struct stat status {};

        return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0;
    }
};

TEST_F(CorePlatformRotationTest, AFileThatAnotherProcessKeepsLockedGoesOnAndIsRotatedLater) {
    LogTo(m_path, LogFileLimits{LineLength(3), 3});
    LogMessage("001");
    testing::internal::CaptureStderr();
    {
        const LockingProcess other(m_path);
        const auto begin = Clock::now();

        LogMessage("002");
        LogMessage("003");

        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
        EXPECT_THAT(MessagesIn(m_path), ElementsAre("001", "002", "003"));
        EXPECT_EQ(Increase(&LogStatistics::rotationErrors), 1u);
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("locked by another process"));

    LetASecondPass();
    LogMessage("004");

    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("001", "002", "003"));
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("004"));
    EXPECT_EQ(Increase(&LogStatistics::writeErrors), 0u);
}

TEST_F(CorePlatformRotationTest, TheLockStaysWhenTheHostClosesAnotherDescriptorOfTheFile) {
    LogTest::SetContentOf(m_path, "line\n");
    const FileDescriptor file(open(m_path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    const RotationLock lock(file);
    close(open(m_path.c_str(), O_RDONLY));

    const bool isLockedForOthers = tarn::test::SucceedsInChild([&] {
        const FileDescriptor own(open(m_path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
        return RotationLock(own).IsRefused();
    });

    EXPECT_FALSE(lock.IsRefused());
    EXPECT_TRUE(isLockedForOthers);
}

TEST_F(CorePlatformRotationTest, NothingIsCutOffWhileAnotherProcessHasLockedTheFile) {
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTest::SilenceStandardError();
        const std::size_t line = LineLength(3);
        LogTo(m_path);
        LogMessage("001");
        LogTest::LimitFileSize(line + line / 2);
        {
            const LockingProcess other(m_path);
            LogMessage("002");
        }
        LogTest::LimitFileSize(100 * line);
        LogMessage("003");
        return Increase(&LogStatistics::writeErrors) == 1;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_THAT(MessagesIn(m_path), ElementsAre("001", HasSubstr("<broken>"), Missing(1), "003"));
}

TEST_F(CorePlatformRotationTest, AHostWithTheRightsOfAnotherUserReplacesNoFullFile) {
    LogTest::SetContentOf(PathOfFullFile(1), "precious\n");
    ASSERT_EQ(chmod(m_folder.Path().c_str(), 0700), 0);
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTo(m_path, LogFileLimits{0, 2});
        LogMessage("one");
        // Only the administrator may play another user.
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0 && setresuid(nobody, 0, 0) != 0) {
            return false;
        }
        return RotateLog();
    });

    EXPECT_TRUE(succeeded);
    EXPECT_EQ(ContentOf(PathOfFullFile(2)), "precious\n");
    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("one"));
}

TEST_F(CorePlatformRotationTest, ARelativePathStaysInTheFolderItWasMeantFor) {
    const std::string first = MakeFolder("first");
    const std::string second = MakeFolder("second");
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        if (chdir(first.c_str()) != 0) {
            return false;
        }
        LogTo("a.log");
        LogMessage("one");
        if (chdir(second.c_str()) != 0) {
            return false;
        }
        LetASecondPass();
        LogMessage("two");
        const bool isRotated = RotateLog();
        LogMessage("three");
        return isRotated;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_THAT(MessagesIn(first + "/a.1.log"), ElementsAre("one", "two"));
    EXPECT_THAT(MessagesIn(first + "/a.log"), ElementsAre("three"));
    EXPECT_TRUE(std::filesystem::is_empty(second));
}

TEST_F(CorePlatformRotationTest, FullFilesLieBesideTheRealFileAndALinkStaysWhatItIs) {
    const std::string volume = MakeFolder("volume");
    std::filesystem::create_symlink(volume + "/real.log", m_path);
    LogTo(m_path, LogFileLimits{LineLength(3), 3});

    for (const char* text : {"001", "002", "003"}) {
        LogMessage(text);
    }

    EXPECT_TRUE(std::filesystem::is_symlink(m_path));
    EXPECT_THAT(MessagesIn(volume + "/real.2.log"), ElementsAre("001"));
    EXPECT_THAT(MessagesIn(volume + "/real.1.log"), ElementsAre("002"));
    EXPECT_THAT(MessagesIn(volume + "/real.log"), ElementsAre("003"));
    EXPECT_THAT(FilesInFolder(), ElementsAre("a.log", "volume"));
    EXPECT_EQ(Increase(&LogStatistics::rotationErrors), 0u);
}

TEST_F(CorePlatformRotationTest, ALinkThatLeadsElsewhereIsFollowedAndNothingIsRenamed) {
    const std::string volume = MakeFolder("volume");
    std::filesystem::create_symlink(volume + "/one.log", m_path);
    LogTo(m_path, LogFileLimits{LineLength(3), 3});
    LogMessage("001");
    std::filesystem::remove(m_path);
    std::filesystem::create_symlink(volume + "/two.log", m_path);

    LogMessage("002");

    EXPECT_THAT(MessagesIn(volume + "/one.log"), ElementsAre("001"));
    EXPECT_THAT(MessagesIn(volume + "/two.log"), ElementsAre("002"));
    EXPECT_FALSE(std::filesystem::exists(volume + "/one.1.log"));
}

TEST_F(CorePlatformRotationTest, ALinkIsRefusedIfTheHostSaysSo) {
    LogFileLimits limits;
    limits.followSymlinks = false;
    const std::string target = m_folder.PathOf("target");
    std::filesystem::create_symlink(target, m_path);

    try {
        MakeJsonFileBackEnd(m_path, limits);
        ADD_FAILURE() << "it was opened";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ELOOP);
    }

    EXPECT_FALSE(std::filesystem::exists(target));
}

TEST_F(CorePlatformRotationTest, ALinkThatTakesTheFilesPlaceIsRefusedIfTheHostSaysSo) {
    LogFileLimits limits;
    limits.followSymlinks = false;
    LogTo(m_path, limits);
    LogMessage("one");
    const std::string moved = m_folder.PathOf("moved");
    std::filesystem::rename(m_path, moved);
    std::filesystem::create_symlink(m_folder.PathOf("target"), m_path);
    testing::internal::CaptureStderr();

    EXPECT_FALSE(ReopenLog());
    LetASecondPass();
    LogMessage("two");

    testing::internal::GetCapturedStderr();
    EXPECT_THAT(MessagesIn(moved), ElementsAre("one", "two"));
    EXPECT_FALSE(std::filesystem::exists(m_folder.PathOf("target")));
}

TEST_F(CorePlatformRotationTest, FilesHaveTheModeThatTheHostGives) {
    const mode_t before = umask(0);
    LogFileLimits limits{LineLength(3), 2};
    limits.mode = 0604;
    LogTo(m_path, limits);

    LogMessage("001");
    LogMessage("002");
    umask(before);

    EXPECT_EQ(ModeOf(PathOfFullFile(1)), 0604U);
    EXPECT_EQ(ModeOf(m_path), 0604U);
}

TEST_F(CorePlatformRotationTest, AFileThatTheHostOpensInThePlaceOfItsLogGetsNoLine) {
    const std::string other = m_folder.PathOf("other");
    const bool succeeded = tarn::test::SucceedsInChild([&] {
        LogTo(m_path);
        LogMessage("one");
        constexpr int many = 256;
        for (int descriptor = STDERR_FILENO + 1; descriptor < many; ++descriptor) {
            close(descriptor);
        }
        for (int opened = 0; opened < 8; ++opened) {
            open(other.c_str(), O_RDWR | O_CREAT | O_APPEND, 0600);
        }

        LogMessage("two");
        const bool isReopened = ReopenLog() && RotateLog();
        ReplaceBackEnd(nullptr);
        int stillOpen = 0;
        for (int descriptor = STDERR_FILENO + 1; descriptor < many; ++descriptor) {
            stillOpen += fcntl(descriptor, F_GETFD) >= 0 ? 1 : 0;
        }
        return isReopened && stillOpen == 8 && Increase(&LogStatistics::writeErrors) == 0;
    });

    EXPECT_TRUE(succeeded);
    EXPECT_EQ(ContentOf(other), "");
    EXPECT_THAT(MessagesIn(PathOfFullFile(1)), ElementsAre("one", "two"));
}

}  // namespace
