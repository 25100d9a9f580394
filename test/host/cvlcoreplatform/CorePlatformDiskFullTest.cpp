#include "ChildProcess.h"
#include "CorePlatformLogFileTestSupport.h"
#include "Threads.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace TLog;
using LogTest::ContentOf;
using LogTest::LinesIn;

constexpr int cannotMount = 77;

// A real file system without room, mounted where the child alone sees it. What the child has found
// out it leaves in the test's folder, outside of the small file system.
class CorePlatformDiskFullTest : public LogTest::LogFileTest {
protected:
    const std::string m_disk = m_folder.PathOf("disk");
    const std::string m_log = m_disk + "/a.log";
    const std::string m_ballast = m_disk + "/ballast";
    const std::string m_copy = m_folder.PathOf("copy");

    // Runs `body` with a disk of 64 KiB. Whether it returned true; skips the test where nobody may
    // mount anything.
    template <class Body>
    void WithSmallDisk(const Body& body) {
        std::filesystem::create_directory(m_disk);
        constexpr unsigned timeoutInSeconds = 60;
        const int code = tarn::test::ExitCodeOf(tarn::test::StartChild(
            [this, &body] {
                if (!MountSmallDisk()) {
                    return cannotMount;
                }
                return body() ? EXIT_SUCCESS : EXIT_FAILURE;
            },
            timeoutInSeconds));
        if (code == cannotMount) {
            GTEST_SKIP() << "no file system can be mounted here";
        }
        EXPECT_EQ(code, EXIT_SUCCESS);
    }

    // Takes all the room there is.
    void FillDisk() const {
        const int file = open(m_ballast.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        const std::string page(4096, 'x');
        while (write(file, page.data(), page.size()) > 0) {
        }
        close(file);
    }

    void FreeDisk() const { std::filesystem::remove(m_ballast); }

    bool KeepLog() const {
        std::error_code error;
        std::filesystem::copy(m_log, m_copy, error);
        return !error;
    }

private:
    bool MountSmallDisk() const {
        const uid_t user = geteuid();
        const gid_t group = getegid();
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            return false;
        }
        // The disk is the child's own; files have to belong to somebody there.
        LogTest::SetContentOf("/proc/self/setgroups", "deny");
        LogTest::SetContentOf("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        LogTest::SetContentOf("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
        return mount("tmpfs", m_disk.c_str(), "tmpfs", 0, "size=64k") == 0;
    }
};

TEST_F(CorePlatformDiskFullTest, WhatIsThereStaysWholeAndTheRestIsCountedAndMentioned) {
    WithSmallDisk([&] {
        LogTest::SilenceStandardError();
        LogTo(m_log);
        for (int i = 0; i < 2000; ++i) {
            LogMessage("before " + std::to_string(i));
        }
        const uint64 lost = Increase(&LogStatistics::writeErrors);
        std::filesystem::resize_file(m_log, 0);
        LogMessage("afterwards");
        return KeepLog() && lost > 500 && lost < 1500 &&
               Increase(&LogStatistics::writeErrors) == lost &&
               MessagesIn(m_copy) ==
                   std::vector<std::string>{LogTest::Missing(static_cast<int>(lost)), "afterwards"};
    });
}

TEST_F(CorePlatformDiskFullTest, LinesOfEverySizeAreWholeWhenTheDiskFillsUpAndIsFreedAgain) {
    constexpr int rounds = 8;
    WithSmallDisk([&] {
        LogTest::SilenceStandardError();
        LogTo(m_log);
        int logged = 0;
        for (int round = 0; round < rounds; ++round) {
            FillDisk();
            // The last page that the log has got already is used up first.
            for (int i = 0; i < 30; ++i) {
                LogMessage(std::to_string(logged++) + " " +
                           std::string(static_cast<std::size_t>(17 * i), 'x'));
            }
            FreeDisk();
            LogMessage(std::to_string(logged++));
        }
        return KeepLog() && Increase(&LogStatistics::writeErrors) != 0;
    });
    if (IsSkipped()) {
        return;
    }

    int written = 0;
    int missing = 0;
    int last = -1;
    const std::string before = LogTest::Missing(0).substr(0, LogTest::Missing(0).size() - 1);
    for (const std::string& message : MessagesIn(m_copy)) {
        ASSERT_EQ(message.find("<broken>"), std::string::npos) << message;
        if (message.rfind(before, 0) == 0) {
            missing += std::stoi(message.substr(before.size()));
            continue;
        }
        const int number = std::stoi(message);
        EXPECT_EQ(number, written + missing) << "a gap is not where the log says it is";
        EXPECT_GT(number, last);
        last = number;
        ++written;
    }
    EXPECT_EQ(written + missing, 31 * rounds);
    EXPECT_GT(written, 2 * rounds);
    EXPECT_GT(missing, rounds);
}

TEST_F(CorePlatformDiskFullTest, ManyThreadsOnAFullDiskLeaveWholeLinesOnly) {
    constexpr int threadCount = 4;
    constexpr int each = 2000;
    WithSmallDisk([&] {
        LogTest::SilenceStandardError();
        LogTo(m_log);
        tarn::test::OnThreadsAtOnce(threadCount, [](int thread) {
            for (int n = 0; n < each; ++n) {
                LogMessage(std::to_string(thread) + "/" + std::to_string(n));
            }
        });
        const std::size_t lines = LinesIn(ContentOf(m_log)).size();
        return KeepLog() && lines == Increase(&LogStatistics::lines) &&
               Increase(&LogStatistics::writeErrors) != 0;
    });
    if (IsSkipped()) {
        return;
    }

    const auto messages = MessagesIn(m_copy);
    EXPECT_GT(messages.size(), 100u);
    EXPECT_EQ(std::count_if(messages.begin(),
                            messages.end(),
                            [](const std::string& message) {
                                return message.find("<broken>") != std::string::npos ||
                                       message.find("<open>") != std::string::npos;
                            }),
              0);
}

}  // namespace
