#include "ChildProcess.h"
#include "Sanitizers.h"

#include "cvlsys/TReadWriteLock.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

using tarn::test::SucceedsInChild;
using namespace std::chrono_literals;

// Long enough for a thread to come as far as it can, short enough for a test.
constexpr auto moment = 50ms;
constexpr auto timeout = 20s;

/// Work on a thread of its own.
class Worker {
public:
    explicit Worker(const std::function<void()>& work)
        : m_done(std::async(std::launch::async, [this, work] {
              m_thread = gettid();
              work();
          })) {}

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    bool IsDone(std::chrono::milliseconds within) const {
        return m_done.wait_for(within) == std::future_status::ready;
    }

    /// Until the thread sleeps, which it does nowhere but in the lock. False if it is done instead.
    bool ComesToWait() const {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!IsDone(0ms) && std::chrono::steady_clock::now() < deadline) {
            if (Sleeps()) {
                return true;
            }
            std::this_thread::yield();
        }
        return false;
    }

private:
    bool Sleeps() const {
        std::ifstream file("/proc/self/task/" + std::to_string(m_thread.load()) + "/stat");
        const std::string stat((std::istreambuf_iterator<char>(file)), {});
        const std::size_t endOfName = stat.rfind(')');
        return endOfName != std::string::npos && stat.compare(endOfName, 3, ") S") == 0;
    }

    std::atomic<pid_t> m_thread{-1};
    std::future<void> m_done;
};

TEST(SysTReadWriteLockTest, ManyReadersAreInsideAtTheSameTime) {
    TReadWriteLock lock(0);
    std::promise<void> allInside;
    std::shared_future<void> leave = allInside.get_future().share();
    std::atomic<int> inside{0};
    constexpr int readers = 40;
    std::vector<std::future<void>> work;

    for (int i = 0; i < readers; ++i) {
        work.push_back(std::async(std::launch::async, [&] {
            const TReadWriteLock::ReadGuard guard(lock);
            ++inside;
            leave.wait();
        }));
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (inside != readers && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }

    EXPECT_EQ(inside, readers);
    allInside.set_value();
}

TEST(SysTReadWriteLockTest, AWriterWaitsForTheReadersInside) {
    TReadWriteLock lock(0);
    lock.LockRead();

    const Worker writer([&] { const TReadWriteLock::WriteGuard guard(lock); });
    EXPECT_FALSE(writer.IsDone(moment));
    lock.UnlockRead();

    EXPECT_TRUE(writer.IsDone(timeout));
}

TEST(SysTReadWriteLockTest, ReadersAndWritersWaitForTheWriterInside) {
    TReadWriteLock lock(0);
    lock.LockWrite();

    const Worker reader([&] { const TReadWriteLock::ReadGuard guard(lock); });
    const Worker writer([&] { const TReadWriteLock::WriteGuard guard(lock); });
    EXPECT_FALSE(reader.IsDone(moment));
    EXPECT_FALSE(writer.IsDone(moment));
    lock.UnlockWrite();

    EXPECT_TRUE(reader.IsDone(timeout));
    EXPECT_TRUE(writer.IsDone(timeout));
}

TEST(SysTReadWriteLockTest, AWaitingWriterKeepsNewReadersOutAndGoesFirst) {
    TReadWriteLock lock(0);
    std::string order;
    lock.LockRead();

    const Worker writer([&] {
        const TReadWriteLock::WriteGuard guard(lock);
        order += "writer ";
    });
    EXPECT_TRUE(writer.ComesToWait());
    const Worker lateReader([&] {
        const TReadWriteLock::ReadGuard guard(lock);
        order += "reader ";
    });
    EXPECT_TRUE(lateReader.ComesToWait()) << "the late reader got in before the writer";
    lock.UnlockRead();

    EXPECT_TRUE(writer.IsDone(timeout));
    EXPECT_TRUE(lateReader.IsDone(timeout));
    EXPECT_EQ(order, "writer reader ");
}

TEST(SysTReadWriteLockTest, ReadersThatWaitWhenAWriterLeavesGoBeforeTheNextOne) {
    TReadWriteLock lock(0);
    std::string order;
    lock.LockWrite();

    const Worker writer([&] {
        const TReadWriteLock::WriteGuard guard(lock);
        order += "writer ";
    });
    EXPECT_TRUE(writer.ComesToWait());
    const Worker reader([&] {
        const TReadWriteLock::ReadGuard guard(lock);
        order += "reader ";
    });
    EXPECT_TRUE(reader.ComesToWait());
    lock.UnlockWrite();

    EXPECT_TRUE(writer.IsDone(timeout));
    EXPECT_TRUE(reader.IsDone(timeout));
    EXPECT_EQ(order, "reader writer ");
}

TEST(SysTReadWriteLockTest, WritersWithoutAPauseDoNotShutAReaderOut) {
    constexpr int reads = 300;
    TReadWriteLock lock(0);
    std::atomic<bool> isOver{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 2; ++i) {
        writers.emplace_back([&] {
            while (!isOver) {
                const TReadWriteLock::WriteGuard guard(lock);
            }
        });
    }

    const Worker reader([&] {
        for (int i = 0; i < reads; ++i) {
            const TReadWriteLock::ReadGuard guard(lock);
        }
    });

    EXPECT_TRUE(reader.IsDone(timeout));
    isOver = true;
    for (std::thread& writer : writers) {
        writer.join();
    }
}

TEST(SysTReadWriteLockTest, ReadersWithoutAPauseDoNotShutAWriterOut) {
    constexpr int writes = 300;
    TReadWriteLock lock(0);
    std::atomic<bool> isOver{false};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!isOver) {
                const TReadWriteLock::ReadGuard guard(lock);
            }
        });
    }

    const Worker writer([&] {
        for (int i = 0; i < writes; ++i) {
            const TReadWriteLock::WriteGuard guard(lock);
        }
    });

    EXPECT_TRUE(writer.IsDone(timeout));
    isOver = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}

TEST(SysTReadWriteLockTest, WhoGetsInLastMayDestroyIt) {
    constexpr int rounds = 2000;

    for (int round = 0; round < rounds; ++round) {
        auto lock = std::make_unique<TReadWriteLock>(0);
        lock->LockRead();
        std::thread writer([&lock] {
            lock->LockWrite();
            lock->UnlockWrite();
            lock.reset();
        });
        lock->UnlockRead();
        writer.join();
    }
}

TEST(SysTReadWriteLockTest, ErrnoIsLeftAlone) {
    constexpr int hosts = 4711;
    TReadWriteLock lock(0);
    int seen = 0;
    lock.LockWrite();

    const Worker reader([&] {
        errno = hosts;
        { const TReadWriteLock::ReadGuard guard(lock); }
        seen = errno;
    });
    EXPECT_TRUE(reader.ComesToWait());
    lock.UnlockWrite();

    EXPECT_TRUE(reader.IsDone(timeout));
    EXPECT_EQ(seen, hosts);
}

void LockBothWays(TReadWriteLock& lock) {
    { const TReadWriteLock::WriteGuard guard(lock); }
    { const TReadWriteLock::ReadGuard guard(lock); }
}

TEST(SysTReadWriteLockForkTest, AChildFindsItFreeThoughAThreadHadItAndAWriterWaited) {
    TReadWriteLock lock(0);
    std::promise<void> leave;
    std::promise<void> isInside;
    const Worker reader([&] {
        const TReadWriteLock::ReadGuard guard(lock);
        isInside.set_value();
        leave.get_future().wait();
    });
    isInside.get_future().wait();
    const Worker writer([&] { const TReadWriteLock::WriteGuard guard(lock); });
    EXPECT_TRUE(writer.ComesToWait());

    const bool isFree = SucceedsInChild([&] {
        LockBothWays(lock);
        return true;
    });
    leave.set_value();

    EXPECT_TRUE(isFree);
    EXPECT_TRUE(writer.IsDone(timeout));
    LockBothWays(lock);
}

TEST(SysTReadWriteLockForkTest, WhatTheForkingThreadHoldsItHoldsInTheChildToo) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    TReadWriteLock read(0);
    TReadWriteLock written(0);
    read.LockRead();
    written.LockWrite();

    const bool isWell = SucceedsInChild([&] {
        const Worker readsToo([&] { const TReadWriteLock::ReadGuard guard(read); });
        const bool getsIn = readsToo.IsDone(timeout);
        const Worker writer([&] { LockBothWays(read); });
        const Worker reader([&] { LockBothWays(written); });
        const bool areKeptOut = writer.ComesToWait() && reader.ComesToWait();
        read.UnlockRead();
        written.UnlockWrite();
        return areKeptOut && getsIn && writer.IsDone(timeout) && reader.IsDone(timeout);
    });
    read.UnlockRead();
    written.UnlockWrite();

    EXPECT_TRUE(isWell);
    LockBothWays(read);
    LockBothWays(written);
}

TEST(SysTReadWriteLockForkTest, ChildrenFindItFreeWithItsDataWholeWhileThreadsReadAndWrite) {
    constexpr int forks = 50;
    TReadWriteLock lock(0);
    std::string first;
    std::string second;
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&, i] {
            while (!isOver) {
                const TReadWriteLock::WriteGuard guard(lock);
                first.assign(static_cast<std::size_t>(100 * (i + 1)), 'x');
                second = first;
            }
        });
        threads.emplace_back([&] {
            while (!isOver) {
                const TReadWriteLock::ReadGuard guard(lock);
            }
        });
    }

    int failures = 0;
    for (int i = 0; i < forks; ++i) {
        const bool isWell = SucceedsInChild([&] {
            LockBothWays(lock);
            return first == second;
        });
        failures += isWell ? 0 : 1;
    }
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(failures, 0);
}

TEST(SysTReadWriteLockTest, ReadersNeverSeeAWritersWorkHalfDone) {
    // More threads than any machine has room to count apart, so that some share their place.
    constexpr int readers = 24;
    constexpr int writers = 4;
    constexpr int writes = 50;
    TReadWriteLock lock(0);
    int first = 0;
    int second = 0;
    std::atomic<int> torn{0};
    std::atomic<int> writersLeft{writers};
    std::vector<std::thread> threads;

    for (int i = 0; i < writers; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < writes; ++round) {
                const TReadWriteLock::WriteGuard guard(lock);
                ++first;
                ++second;
            }
            --writersLeft;
        });
    }
    for (int i = 0; i < readers; ++i) {
        threads.emplace_back([&] {
            do {
                const TReadWriteLock::ReadGuard guard(lock);
                if (first != second) {
                    ++torn;
                }
            } while (writersLeft != 0);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(torn, 0);
    EXPECT_EQ(first, writers * writes);
    EXPECT_EQ(second, writers * writes);
}

// More than a thread can note.
TEST(SysTReadWriteLockTest, AThreadMayReadUnderManyLocksAtATimeAndLeaveThemInAnyOrder) {
    constexpr std::size_t count = 7;
    std::vector<std::unique_ptr<TReadWriteLock>> locks;
    std::vector<std::unique_ptr<Worker>> writers;
    for (std::size_t i = 0; i < count; ++i) {
        locks.push_back(std::make_unique<TReadWriteLock>(0));
        locks.back()->LockRead();
    }
    for (const std::unique_ptr<TReadWriteLock>& lock : locks) {
        writers.push_back(std::make_unique<Worker>([&lock] { LockBothWays(*lock); }));
        EXPECT_TRUE(writers.back()->ComesToWait());
    }

    for (const std::size_t next : std::array<std::size_t, count>{5, 0, 6, 2, 1, 4, 3}) {
        EXPECT_FALSE(writers[next]->IsDone(0ms));
        locks[next]->UnlockRead();
        EXPECT_TRUE(writers[next]->IsDone(timeout));
    }
}

// Reads when its thread is torn down, later than everything that was made after it.
struct ReadsLate {
    ~ReadsLate() {
        const TReadWriteLock::ReadGuard guard(*lock);
        isInside->set_value();
        leave->wait();
    }

    TReadWriteLock* lock;
    std::promise<void>* isInside;
    const std::shared_future<void>* leave;
};

TEST(SysTReadWriteLockTest, AWriterWaitsForAThreadThatReadsAtItsEnd) {
    TReadWriteLock lock(0);
    std::promise<void> isInside;
    std::promise<void> leave;
    const std::shared_future<void> mayLeave = leave.get_future().share();
    std::thread reader([&] {
        thread_local const ReadsLate last{&lock, &isInside, &mayLeave};
        static_cast<void>(last);
        const TReadWriteLock::ReadGuard guard(lock);
    });
    isInside.get_future().wait();

    const Worker writer([&] { LockBothWays(lock); });
    EXPECT_TRUE(writer.ComesToWait());
    leave.set_value();
    reader.join();

    EXPECT_TRUE(writer.IsDone(timeout));
}

TEST(SysTReadWriteLockTest, AWriterWaitsForWhatIsReadByThreadsThatCameAfterOthersEnded) {
    constexpr int rounds = 50;
    TReadWriteLock lock(0);
    for (int i = 0; i < rounds; ++i) {
        std::thread([&] { const TReadWriteLock::ReadGuard guard(lock); }).join();
    }
    std::promise<void> isInside;
    std::promise<void> leave;
    std::thread reader([&] {
        const TReadWriteLock::ReadGuard guard(lock);
        isInside.set_value();
        leave.get_future().wait();
    });
    isInside.get_future().wait();

    const Worker writer([&] { LockBothWays(lock); });
    EXPECT_TRUE(writer.ComesToWait());
    leave.set_value();
    reader.join();

    EXPECT_TRUE(writer.IsDone(timeout));
}

// For the rest of the process: the kernel says that it has no such barrier.
bool RefuseBarriers() {
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_membarrier, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{static_cast<unsigned short>(std::size(code)), code};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0 &&
           syscall(SYS_membarrier, 0, 0, 0) == -1 && errno == ENOSYS;
}

TEST(SysTReadWriteLockSandboxTest, AWriterIsAloneThoughASandboxHasRefusedTheBarrierSince) {
    if (tarn::test::hasThreadSanitizer) {
        GTEST_SKIP() << tarn::test::noThreadsInForkedChildren;
    }
    constexpr int writes = 10;

    EXPECT_TRUE(SucceedsInChild([] {
        TReadWriteLock lock(0);
        int first = 0;
        int second = 0;
        int torn = 0;
        std::atomic<bool> isOver{false};
        const bool isRefused = RefuseBarriers();
        std::thread reader([&] {
            while (!isOver) {
                const TReadWriteLock::ReadGuard guard(lock);
                torn += first != second ? 1 : 0;
            }
        });
        for (int i = 0; i < writes; ++i) {
            const TReadWriteLock::WriteGuard guard(lock);
            ++first;
            ++second;
        }
        isOver = true;
        reader.join();
        return isRefused && torn == 0 && first == writes;
    }));
}

TEST(SysTReadWriteLockSandboxTest, AProcessThatNeverHadTheBarrierPassesTheTestsOfTheLock) {
    constexpr unsigned timeoutInSeconds = 120;

    const int code = tarn::test::ExitCodeOf(tarn::test::StartChild(
        [] {
            if (!RefuseBarriers()) {
                return EXIT_FAILURE;
            }
            execl("/proc/self/exe",
                  "tests",
                  "--gtest_brief=1",
                  "--gtest_filter=SysTReadWriteLockTest.*Waits*:SysTReadWriteLockTest.*Waiting*:"
                  "SysTReadWriteLockTest.WhoGetsInLast*:SysTReadWriteLockTest.*AtATime*:"
                  "SysTReadWriteLockForkTest.WhatTheForking*",
                  static_cast<char*>(nullptr));
            return EXIT_FAILURE;
        },
        timeoutInSeconds));

    EXPECT_EQ(code, EXIT_SUCCESS);
}

}  // namespace
