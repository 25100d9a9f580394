#pragma once

#include "ProcessLog.h"
#include "TemporaryFolder.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

#include <gtest/gtest.h>

namespace ProcessTest {

/// What the subject is told; see its usage.
struct SubjectOptions {
    std::size_t count = 200;
    std::chrono::microseconds pausePerLine{0};
    long linesUntilHang = -1;
    std::optional<std::chrono::milliseconds> exitDeadline{60'000};  ///< none: as it is by itself
    std::size_t limitBytes = 0;
    bool isExpectedToComplain = false;
    bool hasStandardError = true;
};

/// Starts the subject and looks at what it leaves behind, in a folder that goes with the test. The
/// parameter is the way of delivery.
class ProcessTest : public testing::TestWithParam<const char*> {
protected:
    ~ProcessTest() override;

    bool IsAsynchronous() const { return std::string(GetParam()) == "async"; }

    /// Starts it with a log of its own.
    void Start(const std::string& scenario, const SubjectOptions& options = {});

    /// Waits for its end; its status as of waitpid. One that does not end is killed after two
    /// minutes and has failed.
    int Wait();

    /// Starts it and waits for it, and expects that it exits with `status`.
    void Run(const std::string& scenario, int status, const SubjectOptions& options = {});

    /// Waits until the log has grown to `bytes`. Fails, and is false, if the process ends before
    /// that or takes two minutes.
    bool WaitForLog(std::uintmax_t bytes);

    void Kill() const;

    pid_t Pid() const { return m_pid; }

    ProcessLog Log() const { return ProcessLog(m_log); }

    const std::string& LogPath() const { return m_log; }

    /// How many scopes of a thread had ended, destructor and all, when the process did.
    std::uint64_t Ended(std::size_t thread) const;

    std::chrono::milliseconds TimeOfLastRun() const { return m_time; }

    /// Expects whole lines, and each scope once, its beginning first, and no word of anything that
    /// is missing.
    void ExpectSoundLog(const ProcessLog& log) const;

    /// The same of a process whose threads were stopped wherever they were, by a signal or because
    /// the process ended without them: the last line may be cut off.
    void ExpectSoundLogUpToTheLastLine(const ProcessLog& log) const;

private:
    tarn::test::TemporaryFolder m_folder;
    std::string m_log;
    pid_t m_pid = -1;
    int m_logs = 0;
    std::chrono::steady_clock::time_point m_begin;
    std::chrono::milliseconds m_time{0};
};

/// For the names of tests.
std::string DeliveryName(const testing::TestParamInfo<const char*>& info);

}  // namespace ProcessTest
