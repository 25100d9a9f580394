#include "SysChildProcess.h"

#include "cvlsys/CpuTime.h"

#include <cstddef>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>

#include <gtest/gtest.h>

namespace {

using namespace corvala::cputime;

int64 ThreadMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1'000'000 + now.tv_nsec / 1000;
}

// Uses the processor for a while in the program itself.
void Compute(int64 microseconds) {
    volatile unsigned sum = 0;
    for (const int64 start = ThreadMicroseconds(); ThreadMicroseconds() - start < microseconds;) {
        for (unsigned i = 0; i < 20000; ++i) {
            sum = sum + i;
        }
    }
}

// The kernel ends the process, with a signal, when it asks for resource usage from here on.
bool ForbidGetrusage() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_getrusage, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{4, program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

class SysCpuTimeTest : public testing::Test {
protected:
    ~SysCpuTimeTest() override { SetCpuTrackingEnabled(m_before); }

private:
    bool m_before = GetCpuTrackingEnabled();
};

TEST_F(SysCpuTimeTest, TheTimeThatTheThreadUsedIsMeasured) {
    SetCpuTrackingEnabled(true);
    ThreadTimeValue value{1, 1};
    const int64 before = ThreadMicroseconds();

    {
        const ThreadTimeScope scope(value);
        Compute(50'000);
    }

    const int64 used = ThreadMicroseconds() - before;
    const int64 measured = int64{value.kernel} + value.user;
    EXPECT_GE(measured, 45'000);
    EXPECT_LE(measured, used + 15'000) << "the kernel's accounting is coarser than its clock";
    EXPECT_GT(value.user, 20'000u);
}

TEST_F(SysCpuTimeTest, SleepingUsesNoTime) {
    SetCpuTrackingEnabled(true);
    ThreadTimeValue value;

    {
        const ThreadTimeScope scope(value);
        const timespec nap{0, 100'000'000};
        nanosleep(&nap, nullptr);
    }

    EXPECT_LT(int64{value.kernel} + value.user, 50'000);
}

TEST_F(SysCpuTimeTest, WithTrackingOffTheValueIsLeftAlone) {
    SetCpuTrackingEnabled(false);
    ThreadTimeValue value{11, 22};

    {
        const ThreadTimeScope scope(value);
        Compute(5'000);
    }

    EXPECT_EQ(value.kernel, 11u);
    EXPECT_EQ(value.user, 22u);
}

TEST_F(SysCpuTimeTest, AScopeThatStartedWithTrackingOffStaysOff) {
    SetCpuTrackingEnabled(false);
    ThreadTimeValue value{11, 22};

    {
        const ThreadTimeScope scope(value);
        SetCpuTrackingEnabled(true);
    }

    EXPECT_EQ(value.kernel, 11u);
    EXPECT_EQ(value.user, 22u);
}

TEST_F(SysCpuTimeTest, WithTrackingOffNoSystemCallIsMade) {
    if (!HostTest::SucceedsInChild([] { return ForbidGetrusage(); })) {
        GTEST_SKIP() << "this system does not let a process restrict its system calls";
    }

    const auto survives = [](bool enabled) {
        return HostTest::SucceedsInChild([enabled] {
            SetCpuTrackingEnabled(enabled);
            ForbidGetrusage();
            ThreadTimeValue value;
            const ThreadTimeScope scope(value);
            return true;
        });
    };

    EXPECT_TRUE(survives(false));
    EXPECT_FALSE(survives(true)) << "the restriction restricts nothing";
}

TEST_F(SysCpuTimeTest, AScopeAcrossAForkMeasuresNothingImpossibleInTheChild) {
    SetCpuTrackingEnabled(true);
    Compute(30'000);
    ThreadTimeValue value;
    bool plausible = false;

    {
        auto scope = std::make_unique<ThreadTimeScope>(value);
        plausible = HostTest::SucceedsInChild([&] {
            // The child's clocks start again from 0, far below the scope's start.
            scope.reset();
            return value.kernel < 1'000'000 && value.user < 1'000'000;
        });
    }

    EXPECT_TRUE(plausible);
}

}  // namespace
