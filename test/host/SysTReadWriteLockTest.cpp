#include "cvlsys/TReadWriteLock.h"

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

// Long enough for a thread to come as far as it can, short enough for a test.
constexpr auto moment = 50ms;
constexpr auto patience = 20s;

bool IsDone(const std::future<void>& work, std::chrono::milliseconds within) {
    return work.wait_for(within) == std::future_status::ready;
}

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
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (inside != readers && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }

    EXPECT_EQ(inside, readers);
    allInside.set_value();
}

TEST(SysTReadWriteLockTest, AWriterWaitsForTheReadersInside) {
    TReadWriteLock lock(0);
    lock.LockRead();

    const auto writer =
        std::async(std::launch::async, [&] { const TReadWriteLock::WriteGuard guard(lock); });
    EXPECT_FALSE(IsDone(writer, moment));
    lock.UnlockRead();

    EXPECT_TRUE(IsDone(writer, patience));
}

TEST(SysTReadWriteLockTest, ReadersAndWritersWaitForTheWriterInside) {
    TReadWriteLock lock(0);
    lock.LockWrite();

    const auto reader =
        std::async(std::launch::async, [&] { const TReadWriteLock::ReadGuard guard(lock); });
    const auto writer =
        std::async(std::launch::async, [&] { const TReadWriteLock::WriteGuard guard(lock); });
    EXPECT_FALSE(IsDone(reader, moment));
    EXPECT_FALSE(IsDone(writer, moment));
    lock.UnlockWrite();

    EXPECT_TRUE(IsDone(reader, patience));
    EXPECT_TRUE(IsDone(writer, patience));
}

TEST(SysTReadWriteLockTest, AWaitingWriterKeepsNewReadersOutAndGoesFirst) {
    TReadWriteLock lock(0);
    std::string order;
    lock.LockRead();

    const auto writer = std::async(std::launch::async, [&] {
        const TReadWriteLock::WriteGuard guard(lock);
        order += "writer ";
    });
    EXPECT_FALSE(IsDone(writer, moment));
    const auto lateReader = std::async(std::launch::async, [&] {
        const TReadWriteLock::ReadGuard guard(lock);
        order += "reader ";
    });
    EXPECT_FALSE(IsDone(lateReader, moment)) << "the late reader got in before the writer";
    lock.UnlockRead();

    EXPECT_TRUE(IsDone(writer, patience));
    EXPECT_TRUE(IsDone(lateReader, patience));
    EXPECT_EQ(order, "writer reader ");
}

TEST(SysTReadWriteLockTest, ASecondWaitingWriterGoesBeforeTheReadersToo) {
    TReadWriteLock lock(0);
    std::string order;
    lock.LockWrite();

    const auto writer = std::async(std::launch::async, [&] {
        const TReadWriteLock::WriteGuard guard(lock);
        order += "writer ";
    });
    EXPECT_FALSE(IsDone(writer, moment));
    const auto reader = std::async(std::launch::async, [&] {
        const TReadWriteLock::ReadGuard guard(lock);
        order += "reader ";
    });
    EXPECT_FALSE(IsDone(reader, moment));
    lock.UnlockWrite();

    EXPECT_TRUE(IsDone(writer, patience));
    EXPECT_TRUE(IsDone(reader, patience));
    EXPECT_EQ(order, "writer reader ");
}

TEST(SysTReadWriteLockTest, ReadersNeverSeeAWritersWorkHalfDone) {
    // More threads than any machine has room to count apart, so that some share their place.
    constexpr int readers = 24;
    constexpr int writers = 4;
    constexpr int writes = 500;
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

}  // namespace
