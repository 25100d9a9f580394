#include "cvlsys/MemoryTracking.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <vector>

#include <gtest/gtest.h>

// The sanitizers' allocators end the process when there is no memory, unless they are told to
// return null as the system's does. They look these functions up by name.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming): the sanitizers' names
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

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

TEST_F(CountedNewTest, EveryFormIsChargedAndAgreesWithEveryOtherFormOnTheSize) {
    static constexpr std::size_t bytes = 100;
    constexpr auto boundary = std::align_val_t{64};
    const std::vector<std::function<void*()>> plain = {
        [] { return ::operator new(bytes); },
        [] { return ::operator new[](bytes); },
        [] { return ::operator new(bytes, std::nothrow); },
        [] { return ::operator new[](bytes, std::nothrow); }};
    std::vector<std::function<void(void*)>> plainReleases = {
        [](void* block) { ::operator delete(block); },
        [](void* block) { ::operator delete[](block); },
        [](void* block) { ::operator delete(block, std::nothrow); },
        [](void* block) { ::operator delete[](block, std::nothrow); }};
    const std::vector<std::function<void*()>> aligned = {
        [] { return ::operator new(bytes, boundary); },
        [] { return ::operator new[](bytes, boundary); },
        [] { return ::operator new(bytes, boundary, std::nothrow); },
        [] { return ::operator new[](bytes, boundary, std::nothrow); }};
    std::vector<std::function<void(void*)>> alignedReleases = {
        [](void* block) { ::operator delete(block, boundary); },
        [](void* block) { ::operator delete[](block, boundary); },
        [](void* block) { ::operator delete(block, boundary, std::nothrow); },
        [](void* block) { ::operator delete[](block, boundary, std::nothrow); }};
#ifdef __cpp_sized_deallocation
    plainReleases.emplace_back([](void* block) { ::operator delete(block, bytes); });
    plainReleases.emplace_back([](void* block) { ::operator delete[](block, bytes); });
    alignedReleases.emplace_back([](void* block) { ::operator delete(block, bytes, boundary); });
    alignedReleases.emplace_back([](void* block) { ::operator delete[](block, bytes, boundary); });
#endif
    const auto expectPairs = [this](const auto& allocations, const auto& releases) {
        for (std::size_t i = 0; i < allocations.size(); ++i) {
            for (std::size_t j = 0; j < releases.size(); ++j) {
                void* block = nullptr;
                const MemoryCounter made = Count([&] { block = allocations[i](); });
                ASSERT_NE(block, nullptr);
                std::memset(block, 1, bytes);
                const MemoryCounter gone = Count([&] { releases[j](block); });

                EXPECT_EQ(made.AllocatedCount(), 1U) << "form " << i;
                EXPECT_GE(made.Allocated(), bytes) << "form " << i;
                EXPECT_EQ(gone.DeallocatedCount(), 1U) << "release " << j;
                EXPECT_EQ(gone.Deallocated(), made.Allocated()) << i << " and " << j;
            }
        }
    };

    expectPairs(plain, plainReleases);
    expectPairs(aligned, alignedReleases);
}

TEST_F(CountedNewTest, AlignmentsBelowThoseOfPointersAreServed) {
    const MemoryCounter counter = Count([] {
        void* const block = Keep(::operator new (3, std::align_val_t{1}));
        ::operator delete (block, std::align_val_t{1});
    });

    EXPECT_EQ(counter.AllocatedCount(), 1U);
    EXPECT_EQ(counter.Allocated(), counter.Deallocated());
}

TEST_F(CountedNewTest, TheNewHandlerIsAskedUntilItGivesUp) {
    static int asked = 0;
    asked = 0;
    const std::new_handler before = std::set_new_handler([] {
        if (++asked == 3) {
            std::set_new_handler(nullptr);
        }
    });
    constexpr std::size_t tooMuch = std::numeric_limits<std::ptrdiff_t>::max() - 4096;

    EXPECT_EQ(::operator new(tooMuch, std::nothrow), nullptr);

    std::set_new_handler(before);
    EXPECT_EQ(asked, 3);
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
    constexpr std::size_t tooMuch = std::numeric_limits<std::ptrdiff_t>::max() - 4096;

    const MemoryCounter counter = Count([&raised] {
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
