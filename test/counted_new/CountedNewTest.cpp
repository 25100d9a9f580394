#include "cvlsys/MemoryTracking.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include <gtest/gtest.h>

using corvala::memory::MemoryCounter;
using corvala::memory::MemoryScope;

namespace {

class CountedNewTest : public ::testing::Test {
protected:
    void SetUp() override {
        corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
    }

    void TearDown() override {
        corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingOff);
    }

    /// What `work` allocates and releases, counted in a frame of its own.
    template <class Work>
    MemoryCounter Count(Work work) {
        MemoryCounter counter;
        {
            const MemoryScope scope(&counter);
            work();
        }
        return counter;
    }
};

struct alignas(64) Aligned {
    char bytes[192];
};

// The compiler may leave out a pair of new and delete that nobody looks at.
template <class T>
T* Keep(T* pointer) {
    asm volatile("" : "+r"(pointer) : : "memory");
    return pointer;
}

}  // namespace

TEST_F(CountedNewTest, NewAndDeleteOfAnObjectAreCharged) {
    const MemoryCounter counter = Count([] { delete Keep(new int64(7)); });

    EXPECT_EQ(counter.AllocatedCount(), 1U);
    EXPECT_EQ(counter.DeallocatedCount(), 1U);
    EXPECT_GE(counter.Allocated(), sizeof(int64));
    EXPECT_EQ(counter.Allocated(), counter.Deallocated());
}

TEST_F(CountedNewTest, NewAndDeleteOfAnArrayAreCharged) {
    const MemoryCounter counter = Count([] { delete[] Keep(new char[1000]); });

    EXPECT_EQ(counter.AllocatedCount(), 1U);
    EXPECT_GE(counter.AllocatedPeakUsed(), 1000U);
    EXPECT_EQ(counter.Allocated(), counter.Deallocated());
}

TEST_F(CountedNewTest, NothrowFormsAreCharged) {
    const MemoryCounter counter = Count([] {
        delete Keep(new (std::nothrow) int(1));
        delete[] Keep(new (std::nothrow) int[10]);
    });

    EXPECT_EQ(counter.AllocatedCount(), 2U);
    EXPECT_EQ(counter.DeallocatedCount(), 2U);
    EXPECT_EQ(counter.Allocated(), counter.Deallocated());
}

TEST_F(CountedNewTest, AlignedFormsAreChargedAndAligned) {
    std::uintptr_t address = 1;
    const MemoryCounter counter = Count([&address] {
        Aligned* const one = Keep(new Aligned());
        address = reinterpret_cast<std::uintptr_t>(one);
        delete one;
        delete[] Keep(new Aligned[3]);
        delete Keep(new (std::nothrow) Aligned());
    });

    EXPECT_EQ(address % alignof(Aligned), 0U);
    EXPECT_EQ(counter.AllocatedCount(), 3U);
    EXPECT_EQ(counter.DeallocatedCount(), 3U);
    EXPECT_EQ(counter.Allocated(), counter.Deallocated());
}

TEST_F(CountedNewTest, ContainersAreChargedWithoutKnowingIt) {
    const MemoryCounter counter = Count([] {
        std::vector<std::unique_ptr<int>> numbers;
        numbers.reserve(10);
        for (int number = 0; number < 10; ++number) {
            numbers.push_back(std::make_unique<int>(number));
        }
    });

    EXPECT_EQ(counter.AllocatedCount(), 11U);
    EXPECT_EQ(counter.DeallocatedCount(), 11U);
}

TEST_F(CountedNewTest, DeletingNothingIsNotCharged) {
    const MemoryCounter counter = Count([] { delete Keep(static_cast<int*>(nullptr)); });

    EXPECT_EQ(counter.DeallocatedCount(), 0U);
}

TEST_F(CountedNewTest, ABlockThatAnotherFrameAllocatedIsReleasedInThisOne) {
    int* const block = Keep(new int(5));

    const MemoryCounter counter = Count([block] { delete block; });

    EXPECT_EQ(counter.AllocatedCount(), 0U);
    EXPECT_EQ(counter.DeallocatedCount(), 1U);
    EXPECT_EQ(counter.AllocatedPeakUsed(), 0U);
}

TEST_F(CountedNewTest, MemoryThatIsNotThereRaisesBadAllocAndIsNotCharged) {
    bool raised = false;
    const std::size_t tooMuch = std::numeric_limits<std::ptrdiff_t>::max() - 4096;

    const MemoryCounter counter = Count([&raised, tooMuch] {
        try {
            ::operator delete(Keep(::operator new(tooMuch)));
        } catch (const std::bad_alloc&) {
            raised = true;
        }
        EXPECT_EQ(::operator new(tooMuch, std::nothrow), nullptr);
    });

    EXPECT_TRUE(raised);
    EXPECT_EQ(counter.AllocatedCount(), 0U);
}

TEST_F(CountedNewTest, WithTrackingOffNothingIsCharged) {
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingOff);

    const MemoryCounter counter = Count([] { delete Keep(new int(1)); });

    EXPECT_EQ(counter.AllocatedCount(), 0U);
    EXPECT_EQ(counter.DeallocatedCount(), 0U);
}
