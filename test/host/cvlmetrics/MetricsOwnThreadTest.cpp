#include "Backoff.h"
#include "ChildProcess.h"
#include "MetricsAsynchronousTest.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using MetricsTest::CurrentContext;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::Subscription;
using MetricsTest::timeout;
using MetricsTest::Work;
using tarn::test::OnAnotherThread;
using tarn::test::SucceedsInChild;

std::ptrdiff_t CountThreads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

/// What the thread that delivers takes from the host.
class MetricsOwnThreadTest : public MetricsAsynchronousTest {
protected:
    MetricsOwnThreadTest() {
        EXPECT_TRUE(Metrics::Shutdown(timeout));  // the next event starts a new thread
        Choose(Metrics::WhenQueueIsFull::Wait);
    }

    /// Calls `look` on the delivering thread, which a thread starts that has called `prepare`.
    void LookOnThreadStartedBy(const std::function<void()>& prepare,
                               const std::function<void()>& look) {
        const Subscription subscription(*m_listener, flagTracing, false);
        m_listener->CallOnEach([look](const MetricsEvent&) { look(); });
        EXPECT_TRUE(Metrics::Shutdown(timeout));
        Choose(Metrics::WhenQueueIsFull::Wait);
        OnAnotherThread([&prepare] {
            prepare();
            const CurrentContext context;
        });
        FlushAll();
        m_listener->CallOnEach({});
    }

    /// In a process of its own, in which no thread can be started.
    template <class Body>
    bool SucceedsWithoutThreads(const Body& body) {
        return SucceedsInChild([&] {
            // The limit is not for a privileged user.
            constexpr uid_t somebody = 65534;
            rlimit limit{};
            getrlimit(RLIMIT_NPROC, &limit);
            limit.rlim_cur = 0;
            if (setrlimit(RLIMIT_NPROC, &limit) != 0 || (geteuid() == 0 && setuid(somebody) != 0)) {
                return false;
            }
            pthread_t thread{};
            const int result = pthread_create(
                &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
            return result == EAGAIN && body();
        });
    }
};

TEST_F(MetricsOwnThreadTest, SignalsOfFaultsReachTheHostsHandlerAndItsOtherSignalsItsThreads) {
    sigset_t blocked;
    sigemptyset(&blocked);

    LookOnThreadStartedBy([] {}, [&] { pthread_sigmask(SIG_SETMASK, nullptr, &blocked); });

    for (const int open :
         {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT, SIGPROF, SIGTERM, SIGINT}) {
        EXPECT_EQ(sigismember(&blocked, open), 0) << "signal " << open;
    }
    for (const int hosts : {SIGUSR1, SIGUSR2, SIGALRM, SIGCHLD, SIGPIPE, SIGWINCH}) {
        EXPECT_EQ(sigismember(&blocked, hosts), 1) << "signal " << hosts;
    }
}

TEST_F(MetricsOwnThreadTest, AHostThatWaitsForTheSignalToEndKeepsItFromTheDeliveringThread) {
    sigset_t blocked;
    sigemptyset(&blocked);

    LookOnThreadStartedBy(
        [] {
            sigset_t end;
            sigemptyset(&end);
            sigaddset(&end, SIGTERM);
            pthread_sigmask(SIG_BLOCK, &end, nullptr);
        },
        [&] { pthread_sigmask(SIG_SETMASK, nullptr, &blocked); });

    EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
}

TEST_F(MetricsOwnThreadTest, ItRunsWhereTheProcessMayAndAsOrdinaryThreadsDo) {
    cpu_set_t processors;
    ASSERT_EQ(sched_getaffinity(0, sizeof processors, &processors), 0);
    cpu_set_t found;
    CPU_ZERO(&found);
    int policy = -1;

    LookOnThreadStartedBy(
        [] {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
            EXPECT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
            const sched_param none{};
            sched_param urgent{};
            urgent.sched_priority = sched_get_priority_min(SCHED_FIFO);
            if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &urgent) != 0) {
                EXPECT_EQ(pthread_setschedparam(pthread_self(), SCHED_BATCH, &none), 0);
            }
        },
        [&] {
            sched_getaffinity(0, sizeof found, &found);
            policy = sched_getscheduler(0);
        });

    EXPECT_TRUE(CPU_EQUAL(&found, &processors));
    EXPECT_EQ(policy, SCHED_OTHER);
}

TEST_F(MetricsOwnThreadTest, WhoWaitsForAnotherThreadsNextStepsSleepsAfterAWhile) {
    const auto sleeps = [] {
        rusage usage{};
        getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw;
    };
    Metrics::Backoff backoff;
    constexpr int pauses = 100;

    const long before = sleeps();
    for (int i = 0; i < pauses; ++i) {
        backoff.Pause();
    }

    EXPECT_GE(sleeps() - before, pauses / 4);
}

TEST_F(MetricsOwnThreadTest, WhereThereIsNoThreadToBeHadErrnoStaysAndEverythingIsDelivered) {
    std::atomic<int> closed{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        closed += event.type == MetricsEventType::CloseScope ? 1 : 0;
        errno = ENOTTY;
    });

    EXPECT_TRUE(SucceedsWithoutThreads([&] {
        constexpr int scopes = 200;
        errno = ERANGE;
        const CurrentContext context;  // whose making tries to start the thread
        int changes = errno != ERANGE ? 1 : 0;
        for (int i = 0; i < scopes; ++i) {
            Work("query");
            changes += errno != ERANGE ? 1 : 0;
        }
        return changes == 0 && Metrics::Flush(timeout) && closed == scopes &&
               Metrics::Shutdown(timeout);
    }));
}

TEST_F(MetricsOwnThreadTest, AStartThatFailedIsTriedAgainAfterASecond) {
    std::atomic<pid_t> deliverer{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent&) { deliverer = gettid(); });

    EXPECT_TRUE(SucceedsWithoutThreads([&] {
        const CurrentContext context;
        const bool isDeliveredHere = deliverer == gettid();
        rlimit limit{};
        getrlimit(RLIMIT_NPROC, &limit);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NPROC, &limit);
        Work("at once");
        Metrics::Flush(timeout);
        const bool isStillDeliveredHere = deliverer == gettid();
        std::this_thread::sleep_for(std::chrono::milliseconds{1100});
        Work("later");
        const bool isFlushed = Metrics::Flush(timeout);
        return isDeliveredHere && isStillDeliveredHere && isFlushed && deliverer != gettid();
    }));
}

TEST_F(MetricsOwnThreadTest, AListenerIsRemovedWhereThereIsNoThreadToBeHad) {
    const RefCntPtr<Metrics::IMetricsListener> listener(m_listener.Get());
    ASSERT_TRUE(m_bus.AddConsumer(listener, flagTracing, false));

    EXPECT_TRUE(SucceedsWithoutThreads([&] {
        const CurrentContext context;
        return m_bus.RemoveConsumer(listener) && m_bus.GetConsumerCount() == 0;
    }));
    EXPECT_TRUE(m_bus.RemoveConsumer(listener));
}

TEST_F(MetricsOwnThreadTest, ASynchronousFlushIsCarriedOutByTheCaller) {
    Metrics::SetDelivery({});
    ASSERT_TRUE(Metrics::Shutdown(timeout));
    const Subscription subscription(*m_listener, flagTracing, false);

    const bool isWell = SucceedsInChild([] {
        const std::ptrdiff_t before = CountThreads();
        const CurrentContext context;
        Work("query");
        return Metrics::Flush(timeout) && CountThreads() == before && Metrics::Shutdown(timeout) &&
               CountThreads() == before;
    });

    EXPECT_TRUE(isWell);
}

TEST_F(MetricsOwnThreadTest, WhatIsStillQueuedAfterAChangeOfModeIsDeliveredByWhoFlushes) {
    std::atomic<int> closed{0};
    const Subscription subscription(*m_listener, flagTracing, false);
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        closed += event.type == MetricsEventType::CloseScope ? 1 : 0;
    });

    EXPECT_TRUE(SucceedsWithoutThreads([&] {
        const CurrentContext context;
        Work("query");
        Metrics::SetDelivery({});
        return Metrics::Flush(timeout) && closed == 1;
    }));
}

}  // namespace
