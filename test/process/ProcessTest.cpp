#include "ProcessTest.h"

#include "Progress.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

namespace ProcessTest {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::minutes timeout{2};

}  // namespace

ProcessTest::~ProcessTest() {
    if (m_pid > 0) {
        Kill();
        waitpid(m_pid, nullptr, 0);
    }
    if (HasFailure()) {
        std::fprintf(stderr, "what the process left behind stays in %s\n", m_folder.Path().c_str());
        m_folder.Keep();
    }
}

void ProcessTest::Start(const std::string& scenario, const SubjectOptions& options) {
    m_log = m_folder.PathOf("log" + std::to_string(++m_logs) + ".jsonl");
    std::vector<std::string> texts{TARN_PROCESS_SUBJECT,
                                   scenario,
                                   m_log,
                                   GetParam(),
                                   std::to_string(options.count),
                                   std::to_string(options.pausePerLine.count()),
                                   std::to_string(options.linesUntilHang),
                                   std::to_string(options.exitDeadline.value_or(-1ms).count()),
                                   std::to_string(options.limitBytes)};
    std::vector<char*> arguments;
    for (std::string& text : texts) {
        arguments.push_back(text.data());
    }
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (options.isExpectedToComplain) {
        posix_spawn_file_actions_addopen(&actions,
                                         STDERR_FILENO,
                                         m_folder.PathOf("complaints").c_str(),
                                         O_WRONLY | O_CREAT,
                                         0600);
    }
    if (!options.hasStandardError) {
        posix_spawn_file_actions_addclose(&actions, STDERR_FILENO);
    }
    m_begin = Clock::now();
    const int error =
        posix_spawn(&m_pid, TARN_PROCESS_SUBJECT, &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ASSERT_EQ(error, 0) << "cannot start " TARN_PROCESS_SUBJECT;
}

int ProcessTest::Wait() {
    int status = 0;
    pid_t ended = 0;
    bool isKilled = false;
    while ((ended = waitpid(m_pid, &status, WNOHANG)) == 0) {
        if (!isKilled && Clock::now() - m_begin > timeout) {
            ADD_FAILURE() << "the process does not end";
            Kill();
            isKilled = true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    m_time = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_begin);
    EXPECT_EQ(ended, m_pid);
    m_pid = -1;
    return status;
}

void ProcessTest::Run(const std::string& scenario, int status, const SubjectOptions& options) {
    Start(scenario, options);
    const int found = Wait();
    ASSERT_TRUE(WIFEXITED(found)) << scenario << " ended by signal " << WTERMSIG(found);
    ASSERT_EQ(WEXITSTATUS(found), status) << scenario;
}

bool ProcessTest::WaitForLog(std::uintmax_t bytes) {
    std::error_code missing;
    while (std::filesystem::file_size(m_log, missing) < bytes || missing) {
        int status = 0;
        if (m_pid <= 0 || waitpid(m_pid, &status, WNOHANG) != 0) {
            ADD_FAILURE() << "the process has ended before it had logged " << bytes
                          << " bytes; its status is " << status;
            m_pid = -1;
            return false;
        }
        if (Clock::now() - m_begin > timeout) {
            ADD_FAILURE() << "the process does not log " << bytes << " bytes";
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

void ProcessTest::Kill() const {
    // -1 would be all processes.
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
    }
}

std::uint64_t ProcessTest::Ended(std::size_t thread) const {
    return Progress(m_log + ".progress").Ended(thread);
}

void ProcessTest::ExpectSoundLog(const ProcessLog& log) const {
    EXPECT_THAT(log.BrokenLines(), testing::IsEmpty());
    ExpectSoundLogUpToTheLastLine(log);
}

void ProcessTest::ExpectSoundLogUpToTheLastLine(const ProcessLog& log) const {
    EXPECT_THAT(log.BrokenLines(), testing::SizeIs(log.EndsInsideLine() ? 1 : 0));
    EXPECT_THAT(log.Faults(), testing::IsEmpty());
    EXPECT_THAT(log.Messages(), testing::Not(testing::Contains(testing::HasSubstr("Missing"))));
}

std::string DeliveryName(const testing::TestParamInfo<const char*>& info) {
    return std::string(info.param) == "async" ? "Asynchronously" : "Synchronously";
}

}  // namespace ProcessTest
