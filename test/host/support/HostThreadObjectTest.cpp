#include "ThreadLocalObject.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

namespace {

using host::ThreadObject;

std::atomic<int> s_alive{0};
std::atomic<int> s_made{0};

struct Counted {
    Counted() {
        ++s_alive;
        ++s_made;
    }

    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    ~Counted() { --s_alive; }
};

using Object = ThreadObject<Counted>;

// Asks for the object when its thread is torn down, after everything that was made later.
struct AsksLate {
    explicit AsksLate(bool& result) : gotOne(result) {}

    AsksLate(const AsksLate&) = delete;
    AsksLate& operator=(const AsksLate&) = delete;

    ~AsksLate() { gotOne = Object::Get() != nullptr || Object::Peek() != nullptr; }

    bool& gotOne;
};

class HostThreadObjectTest : public testing::Test {
protected:
    HostThreadObjectTest() {
        s_made = 0;
        s_alive = 0;
    }
};

TEST_F(HostThreadObjectTest, EachThreadMakesItsObjectWhenItFirstAsks) {
    const Counted* first = nullptr;
    const Counted* again = nullptr;
    const Counted* before = nullptr;

    std::thread([&] {
        before = Object::Peek();
        first = Object::Get();
        again = Object::Get();
    }).join();
    std::thread([] { static_cast<void>(Object::Peek()); }).join();

    EXPECT_EQ(before, nullptr);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(first, again);
    EXPECT_EQ(s_made, 1);
}

TEST_F(HostThreadObjectTest, TheObjectGoesWithItsThread) {
    int whileAlive = 0;

    std::thread([&] {
        static_cast<void>(Object::Get());
        whileAlive = s_alive;
    }).join();

    EXPECT_EQ(whileAlive, 1);
    EXPECT_EQ(s_alive, 0);
}

TEST_F(HostThreadObjectTest, DuringTheTeardownThereIsNoneAnyMore) {
    bool gotOne = true;

    std::thread([&] {
        thread_local const AsksLate last(gotOne);
        static_cast<void>(last);
        static_cast<void>(Object::Get());
    }).join();

    EXPECT_FALSE(gotOne);
    EXPECT_EQ(s_made, 1);
    EXPECT_EQ(s_alive, 0);
}

}  // namespace
