#include "Interleavings.h"

#include <array>
#include <compare>
#include <cstddef>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::RunAllInterleavings;
using tarn::test::Step;
using testing::ElementsAre;
using testing::IsEmpty;

/// Two threads count the same number up, by loading and storing it or in one step.
struct Counting {
    bool isAtomic = false;
    int number = 0;
    std::array<int, 2> loaded{};
    std::array<std::size_t, 2> at{};

    std::size_t ThreadCount() const { return 2; }

    Step Take(std::size_t thread) {
        std::size_t& place = at.at(thread);
        if (place == 2) {
            return Step::Idle;
        }
        if (isAtomic) {
            ++number;
            place = 2;
        } else if (place == 0) {
            loaded.at(thread) = number;
            place = 1;
        } else {
            number = loaded.at(thread) + 1;
            place = 2;
        }
        return Step::Taken;
    }

    std::string NameOfNextStep(std::size_t thread) const {
        return at.at(thread) == 0 ? "load" : "store";
    }

    std::string Error() const {
        return at[0] == 2 && at[1] == 2 && number != 2 ? "an addition is lost" : "";
    }

    auto operator<=>(const Counting&) const = default;
};

/// Two threads that take two locks, in the same order or each in its own.
struct TwoLocks {
    bool isOrdered = false;
    std::array<bool, 2> isLocked{};
    std::array<std::size_t, 2> at{};

    std::size_t ThreadCount() const { return 2; }

    Step Take(std::size_t thread) {
        std::size_t& place = at.at(thread);
        if (place == 3) {
            return Step::Idle;
        }
        if (place == 2) {
            isLocked = {};
            place = 3;
            return Step::Taken;
        }
        bool& lock = isLocked.at(isOrdered || thread == 0 ? place : 1 - place);
        if (lock) {
            return Step::Waits;
        }
        lock = true;
        ++place;
        return Step::Taken;
    }

    std::string NameOfNextStep(std::size_t thread) const {
        return at.at(thread) == 2 ? "unlock" : "lock " + std::to_string(at.at(thread));
    }

    static std::string Error() { return ""; }

    auto operator<=>(const TwoLocks&) const = default;
};

TEST(InterleavingsTest, AnErrorIsFoundWithTheShortestWayToIt) {
    const auto found = RunAllInterleavings(Counting{});

    EXPECT_EQ(found.error, "an addition is lost");
    EXPECT_THAT(
        found.schedule,
        ElementsAre("thread 0: load", "thread 1: load", "thread 0: store", "thread 1: store"));
}

TEST(InterleavingsTest, AllStatesOfWhatIsRightAreSeen) {
    const auto found = RunAllInterleavings(Counting{.isAtomic = true});

    EXPECT_THAT(found.error, IsEmpty());
    EXPECT_EQ(found.states, 4u);
}

TEST(InterleavingsTest, ThreadsThatWaitForEachOtherAreFound) {
    const auto found = RunAllInterleavings(TwoLocks{});

    EXPECT_EQ(found.error, "from here on the threads never come to their ends");
    EXPECT_THAT(found.schedule, ElementsAre("thread 0: lock 0", "thread 1: lock 0"));
}

TEST(InterleavingsTest, ThreadsThatKeepTheOrderOfLocksComeToTheirEnds) {
    EXPECT_THAT(RunAllInterleavings(TwoLocks{.isOrdered = true}).error, IsEmpty());
}

}  // namespace
