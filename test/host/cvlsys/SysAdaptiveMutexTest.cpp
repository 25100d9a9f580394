#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/AdaptiveMutex.h"

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using cvlsys::AdaptiveMutex;

TEST(SysAdaptiveMutexTest, OneThreadAtATimeHoldsIt) {
    AdaptiveMutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int left = 20'000; left != 0; --left) {
                if (i == 0) {
                    mutex.LockNext();
                } else {
                    mutex.lock();
                }
                const std::lock_guard lock(mutex, std::adopt_lock);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(count, 80'000);
}

TEST(SysAdaptiveMutexTest, WhoLocksNextIsNotPassedByThreadsThatNeverRest) {
    AdaptiveMutex mutex;
    std::atomic<bool> isOver{false};
    std::atomic<uint64> turns{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            while (!isOver) {
                const std::lock_guard lock(mutex);
                ++turns;
            }
        });
    }
    while (turns < 1000) {
        std::this_thread::yield();
    }

    // Those that are about to lock it at that moment may still come first.
    constexpr uint64 mostTurns = 10'000;
    for (int round = 0; round < 100; ++round) {
        const uint64 before = turns;
        mutex.LockNext();
        const uint64 passed = turns - before;
        mutex.unlock();
        EXPECT_LE(passed, mostTurns);
    }
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
