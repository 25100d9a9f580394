#include "ThreadObject.h"

#include <thread>

#include <gtest/gtest.h>

namespace tarn {
namespace {

/// What a thread's object says of itself, and sees of itself, when it is torn down.
struct Witness {
    int made = 0;
    int destroyed = 0;
    bool wasThereInItsDestructor = true;
    bool wasThereAfterwards = true;
};

Witness* t_witness = nullptr;

struct Noted {
    Noted() { ++t_witness->made; }

    Noted(const Noted&) = delete;
    Noted& operator=(const Noted&) = delete;
    ~Noted();
};

constinit thread_local ThreadObject<Noted> t_noted;

Noted::~Noted() {
    ++t_witness->destroyed;
    t_witness->wasThereInItsDestructor = t_noted.Get() != nullptr;
}

/// Made before the object, hence destroyed behind it.
struct LateUser {
    LateUser() = default;
    LateUser(const LateUser&) = delete;
    LateUser& operator=(const LateUser&) = delete;

    ~LateUser() { t_witness->wasThereAfterwards = t_noted.Get() != nullptr; }

    void Touch() const noexcept {}
};

class ThreadObjectTest : public testing::Test {
protected:
    ThreadObjectTest() { t_witness = &m_witness; }

    ~ThreadObjectTest() override { t_witness = nullptr; }

    Witness m_witness;
};

TEST_F(ThreadObjectTest, EachThreadMakesOneOnFirstUse) {
    for (int round = 0; round < 2; ++round) {
        std::thread([] {
            EXPECT_EQ(t_noted.Peek(), nullptr);
            const Noted* const object = t_noted.Get();
            EXPECT_NE(object, nullptr);
            EXPECT_EQ(t_noted.Get(), object);
            EXPECT_EQ(t_noted.Peek(), object);
        }).join();
    }

    EXPECT_EQ(m_witness.made, 2);
    EXPECT_EQ(m_witness.destroyed, 2);
}

TEST_F(ThreadObjectTest, AThreadThatHasTornItDownHasNoneAndMakesNone) {
    std::thread([] {
        thread_local const LateUser user;
        user.Touch();
        t_noted.Get();
    }).join();

    EXPECT_FALSE(m_witness.wasThereInItsDestructor);
    EXPECT_FALSE(m_witness.wasThereAfterwards);
    EXPECT_EQ(m_witness.made, 1);
    EXPECT_EQ(m_witness.destroyed, 1);
}

}  // namespace
}  // namespace tarn
