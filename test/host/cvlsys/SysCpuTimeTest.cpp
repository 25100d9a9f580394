#include "ChildProcess.h"

#include "cvlsys/CpuTime.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/resource.h>
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

int64 Microseconds(const timeval& time) {
    return time.tv_sec * 1'000'000 + time.tv_usec;
}

// The thread's time in the program and in the kernel, as the kernel splits it.
rusage SplitOfTheThread() {
    rusage usage{};
    // The kernel's totals are brought up to date by the clock, not by getrusage.
    ThreadMicroseconds();
    getrusage(RUSAGE_THREAD, &usage);
    return usage;
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

// Work that asks for no time: a clock that is read brings the kernel's totals up to date.
void Loop(int64 rounds) {
    volatile unsigned sum = 0;
    for (int64 i = 0; i < rounds; ++i) {
        sum = sum + static_cast<unsigned>(i);
    }
}

// As many rounds as take about this time, by the quickest of some tries.
int64 RoundsFor(int64 microseconds) {
    constexpr int64 rounds = 1'000'000;
    int64 quickest = std::numeric_limits<int64>::max();
    for (int i = 0; i < 5; ++i) {
        const int64 start = ThreadMicroseconds();
        Loop(rounds);
        quickest = std::min(quickest, ThreadMicroseconds() - start);
    }
    return rounds * microseconds / std::max<int64>(quickest, 1);
}

// The kernel ends the process, with a signal, when it makes this call from here on.
bool Forbid(uint32 systemCall) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, systemCall, 0, 1),
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
    const rusage splitBefore = SplitOfTheThread();

    {
        const ThreadTimeScope scope(value);
        Compute(50'000);
    }

    const rusage splitAfter = SplitOfTheThread();
    const int64 used = ThreadMicroseconds() - before;
    const int64 measured = int64{value.kernel} + value.user;
    EXPECT_GE(measured, 49'990);
    // What does not fill a microsecond is cut off, of four figures.
    EXPECT_LE(measured, used + 4);
    // How much of it was the program's is the kernel's estimate, from the ticks of its clock: it
    // is held against the kernel's own figures around the scope.
    EXPECT_LE(value.user, Microseconds(splitAfter.ru_utime) - Microseconds(splitBefore.ru_utime));
    EXPECT_LE(value.kernel, Microseconds(splitAfter.ru_stime) - Microseconds(splitBefore.ru_stime));
}

// Load does not matter: another thread's time is in none of these figures.
TEST_F(SysCpuTimeTest, ShortScopesGetTheTimeThatTheyUsed) {
    constexpr int64 scopes = 200;
    const int64 rounds = RoundsFor(200);
    SetCpuTrackingEnabled(true);
    int64 sum = 0;
    int withoutTime = 0;

    const int64 before = ThreadMicroseconds();
    for (int64 i = 0; i < scopes; ++i) {
        ThreadTimeValue value;
        {
            const ThreadTimeScope scope(value);
            Loop(rounds);
        }
        const int64 measured = int64{value.kernel} + value.user;
        sum += measured;
        withoutTime += measured == 0 ? 1 : 0;
    }
    const int64 used = ThreadMicroseconds() - before;

    EXPECT_EQ(withoutTime, 0);
    EXPECT_GE(sum * 100, used * 97) << sum << " of " << used << " microseconds";
    EXPECT_LE(sum * 100, used * 103) << sum << " of " << used << " microseconds";
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
    if (!tarn::test::SucceedsInChild([] { return Forbid(SYS_getrusage); })) {
        GTEST_SKIP() << "this system does not let a process restrict its system calls";
    }

    for (const uint32 systemCall : {uint32{SYS_clock_gettime}, uint32{SYS_getrusage}}) {
        const auto survives = [systemCall](bool enabled) {
            return tarn::test::SucceedsInChild([systemCall, enabled] {
                SetCpuTrackingEnabled(enabled);
                Forbid(systemCall);
                ThreadTimeValue value;
                const ThreadTimeScope scope(value);
                return true;
            });
        };

        EXPECT_TRUE(survives(false)) << systemCall;
        EXPECT_FALSE(survives(true)) << systemCall << ": the restriction restricts nothing";
    }
}

TEST_F(SysCpuTimeTest, AScopeAcrossAForkMeasuresNothingImpossibleInTheChild) {
    SetCpuTrackingEnabled(true);
    Compute(30'000);
    ThreadTimeValue value;
    bool plausible = false;

    {
        auto scope = std::make_unique<ThreadTimeScope>(value);
        plausible = tarn::test::SucceedsInChild([&] {
            // The child's clocks start again from 0, far below the scope's start.
            scope.reset();
            return value.kernel < 1'000'000 && value.user < 1'000'000;
        });
    }

    EXPECT_TRUE(plausible);
}

}  // namespace
