#include "ChildProcess.h"

#include "cvlsys/TSystem.h"

#include <set>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

namespace {

TEST(SysTSystemTest, TheIdsAreTheKernels) {
    EXPECT_EQ(TSystem::ProcessID(), static_cast<uint32>(getpid()));
    EXPECT_EQ(TSystem::ThreadID(), static_cast<uint64>(gettid()));
    EXPECT_EQ(TSystem::ThreadID(), TSystem::ThreadID());
}

TEST(SysTSystemTest, EachThreadHasItsOwnId) {
    constexpr std::size_t count = 8;
    std::vector<uint64> ids(count);
    std::vector<uint64> kernelIds(count);
    std::vector<std::thread> threads;

    for (std::size_t i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            ids[i] = TSystem::ThreadID();
            kernelIds[i] = static_cast<uint64>(gettid());
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(ids, kernelIds);
    EXPECT_EQ(std::set<uint64>(ids.begin(), ids.end()).count(TSystem::ThreadID()), 0u);
}

TEST(SysTSystemTest, BothIdsAreRightInAForkedChild) {
    const uint64 parentThread = TSystem::ThreadID();
    const uint32 parentProcess = TSystem::ProcessID();

    const bool rightInChild = tarn::test::SucceedsInChild([&] {
        return TSystem::ThreadID() == static_cast<uint64>(gettid()) &&
               TSystem::ProcessID() == static_cast<uint32>(getpid()) &&
               TSystem::ThreadID() != parentThread && TSystem::ProcessID() != parentProcess;
    });

    EXPECT_TRUE(rightInChild);
    EXPECT_EQ(TSystem::ThreadID(), parentThread);
    EXPECT_EQ(TSystem::ProcessID(), parentProcess);
}

TEST(SysTSystemTest, BothIdsAreRightInAChildOfAChild) {
    const bool rightInGrandchild = tarn::test::SucceedsInChild([] {
        static_cast<void>(TSystem::ThreadID());
        return tarn::test::SucceedsInChild([] {
            return TSystem::ThreadID() == static_cast<uint64>(gettid()) &&
                   TSystem::ProcessID() == static_cast<uint32>(getpid());
        });
    });

    EXPECT_TRUE(rightInGrandchild);
}

TEST(SysTSystemTest, AForkFromASecondThreadLeavesThatThreadsIdRight) {
    bool rightInChild = false;

    std::thread([&] {
        static_cast<void>(TSystem::ThreadID());
        rightInChild = tarn::test::SucceedsInChild(
            [] { return TSystem::ThreadID() == static_cast<uint64>(gettid()); });
    }).join();

    EXPECT_TRUE(rightInChild);
}

}  // namespace
