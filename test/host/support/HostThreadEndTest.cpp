#include "ThreadEnd.h"

#include <thread>

#include <gtest/gtest.h>

namespace {

struct Kept {
    static inline int calls = 0;
    static inline bool wasOverInCall = false;

    static void AtThreadEnd() noexcept {
        ++calls;
        wasOverInCall = host::ThreadEnd<Kept>::IsOver();
    }
};

struct Other {
    static void AtThreadEnd() noexcept {}
};

using End = host::ThreadEnd<Kept>;

// Asks when its thread is torn down, after everything that was made later.
struct AsksLate {
    explicit AsksLate(bool& result) : couldWatch(result) {}

    AsksLate(const AsksLate&) = delete;
    AsksLate& operator=(const AsksLate&) = delete;

    ~AsksLate() { couldWatch = End::Watch(); }

    bool& couldWatch;
};

class HostThreadEndTest : public testing::Test {
protected:
    HostThreadEndTest() {
        Kept::calls = 0;
        Kept::wasOverInCall = false;
    }
};

TEST_F(HostThreadEndTest, AThreadThatKeepsSomethingGivesItBackOnceAtItsEnd) {
    int callsBefore = -1;

    std::thread([&] {
        EXPECT_TRUE(End::Watch());
        EXPECT_TRUE(End::Watch());
        callsBefore = Kept::calls;
    }).join();

    EXPECT_EQ(callsBefore, 0);
    EXPECT_EQ(Kept::calls, 1);
}

TEST_F(HostThreadEndTest, AThreadThatNeverKeptAnythingHasNothingToGiveBack) {
    std::thread([] { EXPECT_FALSE(End::IsOver()); }).join();

    EXPECT_EQ(Kept::calls, 0);
}

TEST_F(HostThreadEndTest, WhatIsKeptIsOverWhileItIsGivenBackAndFromThenOn) {
    bool couldWatch = true;

    std::thread([&] {
        thread_local const AsksLate last(couldWatch);
        static_cast<void>(last);
        EXPECT_TRUE(End::Watch());
    }).join();

    EXPECT_TRUE(Kept::wasOverInCall);
    EXPECT_FALSE(couldWatch);
    EXPECT_EQ(Kept::calls, 1);
}

TEST_F(HostThreadEndTest, TwoKindsOfKeptThingsDoNotKnowEachOther) {
    std::thread([] { EXPECT_TRUE(host::ThreadEnd<Other>::Watch()); }).join();

    EXPECT_EQ(Kept::calls, 0);
}

TEST_F(HostThreadEndTest, EachThreadHasAnEndOfItsOwn) {
    std::thread([] { EXPECT_TRUE(End::Watch()); }).join();
    std::thread([] {
        EXPECT_FALSE(End::IsOver());
        EXPECT_TRUE(End::Watch());
    }).join();

    EXPECT_EQ(Kept::calls, 2);
}

}  // namespace
