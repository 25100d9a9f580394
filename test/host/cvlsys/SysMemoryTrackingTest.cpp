#include "ChildProcess.h"

#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"
#include "cvlsys/host/MemoryCharging.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <malloc.h>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

// The sanitizers' allocators end the process when there is no memory, unless they are told to
// return null as the system's does. They look these functions up by name.
// NOLINTBEGIN(bugprone-reserved-identifier): named by the sanitizers
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

// NOLINTEND(bugprone-reserved-identifier)

namespace {

using namespace corvala::memory;

// A measured span, as callers build it from the operations: a frame of its own, whose
// figures go to its counter and to those of all enclosing spans when it ends.
class Span {
public:
    Span() {
        m_frame.counter = &m_counter;
        m_frame.orderingId = GetNextOrderingId();
        m_frame.threadId = MemoryScope::GetCurrentThreadId();
        m_frame.parentThreadMemoryCounters = SwapPushMemoryCounters(&m_frame);
    }

    ~Span() { End(); }

    Span(const Span&) = delete;
    Span& operator=(const Span&) = delete;

    void End() {
        if (m_ended) {
            return;
        }
        m_ended = true;
        m_counter.Fold(m_frame, 0);
        uint64 base = 0;
        for (ThreadMemoryCounters* frame = m_frame.parentThreadMemoryCounters; frame != nullptr;
             frame = frame->parentThreadMemoryCounters) {
            base += frame->inUse;
            frame->counter->Fold(m_frame, base);
        }
        EXPECT_EQ(SwapPopMemoryCounters(m_frame.parentThreadMemoryCounters), &m_frame);
    }

    const MemoryCounter& Counter() const { return m_counter; }

    const ThreadMemoryCounters& Frame() const { return m_frame; }

private:
    MemoryCounter m_counter;
    ThreadMemoryCounters m_frame;
    bool m_ended = false;
};

class SysMemoryTrackingTest : public testing::Test {
protected:
    SysMemoryTrackingTest() { SetMemoryTrackingMode(MemoryTrackingAll); }

    ~SysMemoryTrackingTest() override {
        EXPECT_EQ(SwapPushMemoryCounters(nullptr), nullptr) << "a frame was left behind";
        SetMemoryTrackingMode(m_before);
    }

private:
    MemoryTrackingMode m_before = GetMemoryTrackingMode();
};

TEST_F(SysMemoryTrackingTest, AllocationsAndReleasesGoToTheCurrentFrame) {
    Span span;

    ChargeAllocation(100);
    ChargeAllocation(20);
    ChargeRelease(100);
    span.End();

    EXPECT_EQ(span.Counter().Allocated(), 120u);
    EXPECT_EQ(span.Counter().AllocatedCount(), 2u);
    EXPECT_EQ(span.Counter().Deallocated(), 100u);
    EXPECT_EQ(span.Counter().DeallocatedCount(), 1u);
    EXPECT_EQ(span.Counter().AllocatedPeakUsed(), 120u);
    EXPECT_EQ(span.Frame().inUse, 20u);
}

TEST_F(SysMemoryTrackingTest, WithoutAFrameNothingIsCharged) {
    ChargeAllocation(100);
    ChargeRelease(100);

    const Span span;

    EXPECT_EQ(span.Frame().allocated, 0u);
    EXPECT_EQ(span.Frame().deallocated, 0u);
}

TEST_F(SysMemoryTrackingTest, ReleasingAnOlderBlockMakesTheNetNegativeAndNotThePeak) {
    Span span;

    ChargeRelease(50);
    ChargeAllocation(20);
    span.End();

    EXPECT_EQ(static_cast<int64>(span.Frame().inUse), -30);
    EXPECT_EQ(span.Frame().peakInUse, 0);
    EXPECT_EQ(span.Counter().AllocatedPeakUsed(), 0u);
}

TEST_F(SysMemoryTrackingTest, APoppedFrameHandsItsNetToItsParentAndNothingElse) {
    Span outer;
    ChargeAllocation(10);

    {
        const Span inner;
        ChargeAllocation(100);
        ChargeRelease(30);
    }

    EXPECT_EQ(outer.Frame().inUse, 80u);
    EXPECT_EQ(outer.Frame().peakInUse, 80);
    EXPECT_EQ(outer.Frame().allocated, 10u);
    EXPECT_EQ(outer.Frame().allocatedCount, 1u);
    EXPECT_EQ(outer.Frame().deallocated, 0u);
    EXPECT_EQ(outer.Frame().deallocatedCount, 0u);
    outer.End();
    EXPECT_EQ(outer.Counter().Allocated(), 110u);
    EXPECT_EQ(outer.Counter().Deallocated(), 30u);
    EXPECT_EQ(outer.Counter().AllocatedPeakUsed(), 110u);
}

TEST_F(SysMemoryTrackingTest, FoldingTakesTheLargerOfThePeaksWithItsSign) {
    MemoryCounter counter;
    ThreadMemoryCounters frame;
    frame.peakInUse = 100;

    counter.Fold(frame, static_cast<uint64>(-150));
    EXPECT_EQ(counter.AllocatedPeakUsed(), 0u) << "50 below where the scope began";
    counter.Fold(frame, 7);
    EXPECT_EQ(counter.AllocatedPeakUsed(), 107u);
    counter.Fold(frame, 0);
    EXPECT_EQ(counter.AllocatedPeakUsed(), 107u);
}

TEST_F(SysMemoryTrackingTest, CountsStopAtTheirLargestValue) {
    MemoryCounter counter;
    ThreadMemoryCounters frame;
    frame.allocatedCount = uint64{1} << 33;
    frame.deallocatedCount = std::numeric_limits<uint32>::max();

    counter.Fold(frame, 0);
    counter.Fold(frame, 0);

    EXPECT_EQ(counter.AllocatedCount(), std::numeric_limits<uint32>::max());
    EXPECT_EQ(counter.DeallocatedCount(), std::numeric_limits<uint32>::max());
}

TEST_F(SysMemoryTrackingTest, ModeOffCountsNothing) {
    SetMemoryTrackingMode(MemoryTrackingOff);
    Span span;

    ChargeAllocation(100);
    ChargeRelease(10);
    TFree(TMalloc(100));
    span.End();

    EXPECT_EQ(span.Counter().Allocated(), 0u);
    EXPECT_EQ(span.Counter().AllocatedCount(), 0u);
    EXPECT_EQ(span.Counter().Deallocated(), 0u);
    EXPECT_EQ(span.Counter().AllocatedPeakUsed(), 0u);
}

TEST_F(SysMemoryTrackingTest, ModeAllocationsCountsNeitherReleasesNorAPeak) {
    SetMemoryTrackingMode(MemoryTrackingAllocations);
    Span span;

    ChargeAllocation(100);
    ChargeRelease(10);
    span.End();

    EXPECT_EQ(span.Counter().Allocated(), 100u);
    EXPECT_EQ(span.Counter().AllocatedCount(), 1u);
    EXPECT_EQ(span.Counter().Deallocated(), 0u);
    EXPECT_EQ(span.Counter().DeallocatedCount(), 0u);
    EXPECT_EQ(span.Counter().AllocatedPeakUsed(), 0u);
    EXPECT_EQ(span.Frame().inUse, 0u);
}

TEST_F(SysMemoryTrackingTest, TheModeIsWhatWasSet) {
    for (const auto mode : {MemoryTrackingOff, MemoryTrackingAllocations, MemoryTrackingAll}) {
        SetMemoryTrackingMode(mode);

        EXPECT_EQ(GetMemoryTrackingMode(), mode);
    }
}

TEST_F(SysMemoryTrackingTest, AnotherThreadsAllocationsAreNotCharged) {
    Span span;

    std::thread([] { ChargeAllocation(100); }).join();
    span.End();

    EXPECT_EQ(span.Counter().Allocated(), 0u);
}

TEST_F(SysMemoryTrackingTest, WhatIsDoneUnchargedLeavesNoTraceHoweverDeepItIsNested) {
    Span span;

    {
        const UnchargedAllocations outer;
        ChargeAllocation(1);
        {
            const UnchargedAllocations inner;
            ChargeAllocation(2);
        }
        ChargeRelease(4);
        const Span inside;
        ChargeAllocation(8);
        EXPECT_EQ(inside.Frame().allocated, 0u);
    }
    ChargeAllocation(16);
    span.End();

    EXPECT_EQ(span.Counter().Allocated(), 16u);
    EXPECT_EQ(span.Counter().Deallocated(), 0u);
}

TEST_F(SysMemoryTrackingTest, OneThreadsUnchargedWorkDoesNotConcernAnother) {
    const UnchargedAllocations uncharged;
    uint64 allocated = 0;

    std::thread([&] {
        const Span span;
        ChargeAllocation(3);
        allocated = span.Frame().allocated;
    }).join();

    EXPECT_EQ(allocated, 3u);
}

TEST_F(SysMemoryTrackingTest, AnAllocatedBlockIsChargedWithItsTrueSizeAndReleasedWithTheSame) {
    Span span;

    // No multiple of anything: the allocator gives more.
    void* const block = TMalloc(1001);
    const std::size_t size = malloc_usable_size(block);
    TFree(block);
    span.End();

    EXPECT_GE(size, 1001u);
    EXPECT_EQ(span.Counter().Allocated(), size);
    EXPECT_EQ(span.Counter().AllocatedCount(), 1u);
    EXPECT_EQ(span.Counter().Deallocated(), size);
    EXPECT_EQ(span.Counter().DeallocatedCount(), 1u);
    EXPECT_EQ(span.Counter().AllocatedPeakUsed(), size);
}

TEST_F(SysMemoryTrackingTest, ABlockIsReleasedOnTheThreadThatReleasesIt) {
    Span span;
    void* block = nullptr;

    std::thread([&] { block = TMalloc(100); }).join();
    TFree(block);
    span.End();

    EXPECT_EQ(span.Counter().Allocated(), 0u);
    EXPECT_GE(span.Counter().Deallocated(), 100u);
}

TEST_F(SysMemoryTrackingTest, ReleasingNullIsNoRelease) {
    Span span;

    TFree(nullptr);
    span.End();

    EXPECT_EQ(span.Counter().DeallocatedCount(), 0u);
}

TEST_F(SysMemoryTrackingTest, AnImpossibleAllocationGivesNullAndIsNotCharged) {
    Span span;

    // Through a variable, lest the compiler sees what is asked for.
    volatile std::size_t everything = std::numeric_limits<std::ptrdiff_t>::max();
    void* const block = TMalloc(everything);
    span.End();

    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(span.Counter().AllocatedCount(), 0u);
}

TEST_F(SysMemoryTrackingTest, PushingAndPoppingReturnTheFramesThatWereCurrent) {
    ThreadMemoryCounters outer;
    ThreadMemoryCounters inner;

    EXPECT_EQ(SwapPushMemoryCounters(&outer), nullptr);
    EXPECT_EQ(SwapPushMemoryCounters(&inner), &outer);
    EXPECT_EQ(SwapPopMemoryCounters(&outer), &inner);
    EXPECT_EQ(SwapPopMemoryCounters(nullptr), &outer);
    EXPECT_EQ(SwapPopMemoryCounters(nullptr), nullptr);
}

TEST_F(SysMemoryTrackingTest, OrderingIdsGrowOverAllThreads) {
    constexpr std::size_t each = 1000;
    std::vector<uint64> mine;
    std::vector<uint64> others;

    std::thread other([&] {
        for (std::size_t i = 0; i < each; ++i) {
            others.push_back(GetNextOrderingId());
        }
    });
    for (std::size_t i = 0; i < each; ++i) {
        mine.push_back(GetNextOrderingId());
    }
    other.join();

    EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
    EXPECT_TRUE(std::is_sorted(others.begin(), others.end()));
    std::set<uint64> all(mine.begin(), mine.end());
    all.insert(others.begin(), others.end());
    EXPECT_EQ(all.size(), 2 * each);
}

TEST_F(SysMemoryTrackingTest, AThreadsIdIsItsOwnAndOutlivesAFork) {
    const uint64 mine = MemoryScope::GetCurrentThreadId();
    uint64 others = 0;

    std::thread([&] { others = MemoryScope::GetCurrentThreadId(); }).join();
    const bool sameInChild =
        tarn::test::SucceedsInChild([&] { return MemoryScope::GetCurrentThreadId() == mine; });

    EXPECT_NE(mine, 0u);
    EXPECT_NE(mine, others);
    EXPECT_TRUE(sameInChild) << "a frame that is open across a fork could not be popped";
}

// Spans that end innermost first, whatever happens.
class SpanStack {
public:
    ~SpanStack() {
        while (!m_spans.empty()) {
            Pop();
        }
    }

    void Push() { m_spans.push_back(std::make_unique<Span>()); }

    void Pop() { m_spans.pop_back(); }

    Span& Top() { return *m_spans.back(); }

    std::size_t Size() const { return m_spans.size(); }

private:
    std::vector<std::unique_ptr<Span>> m_spans;
};

// What a span should find in the end, kept by hand.
struct Expected {
    int64 net = 0;
    int64 peak = 0;
    uint64 allocated = 0;
    uint64 released = 0;
    uint32 allocations = 0;
    uint32 releases = 0;
};

// Counts how often a frame was folded into it.
class FoldCounter : public MemoryCounter {
public:
    void Fold(const ThreadMemoryCounters& frame, uint64 base) noexcept override {
        ++folds;
        MemoryCounter::Fold(frame, base);
    }

    int folds = 0;
};

TEST_F(SysMemoryTrackingTest, WithTrackingOffTheEndOfAFrameTouchesNoneAround) {
    SetMemoryTrackingMode(MemoryTrackingOff);
    FoldCounter outer;
    FoldCounter inner;
    {
        const MemoryScope outerScope(&outer);
        { const MemoryScope innerScope(&inner); }

        EXPECT_EQ(inner.folds, 1);
        EXPECT_EQ(outer.folds, 0);
    }
    EXPECT_EQ(outer.folds, 1);
}

TEST_F(SysMemoryTrackingTest, WhatWasCountedBeforeTrackingWasSwitchedOffIsPassedOn) {
    SetMemoryTrackingMode(MemoryTrackingAll);
    MemoryCounter outer;
    MemoryCounter middle;
    MemoryCounter inner;
    {
        const MemoryScope outerScope(&outer);
        const MemoryScope middleScope(&middle);
        {
            const MemoryScope innerScope(&inner);
            ChargeAllocation(100);
            ChargeRelease(100);
            SetMemoryTrackingMode(MemoryTrackingOff);
        }
    }

    EXPECT_EQ(middle.Allocated(), 100u);
    EXPECT_EQ(middle.AllocatedPeakUsed(), 100u);
    EXPECT_EQ(outer.Allocated(), 100u);
    EXPECT_EQ(outer.AllocatedPeakUsed(), 100u);
    EXPECT_EQ(outer.DeallocatedCount(), 1u);
}

TEST_F(SysMemoryTrackingTest, FiguresOfRandomNestingsAreExact) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    SpanStack spans;
    std::vector<Expected> expected;
    std::vector<std::size_t> blocks;
    int ended = 0;
    int withInnerPeak = 0;

    for (int step = 0; step < 200000; ++step) {
        const auto action = random() % 100;
        if (action < 12 && spans.Size() < 12) {
            spans.Push();
            expected.emplace_back();
        } else if (action < 24 && spans.Size() != 0) {
            spans.Top().End();
            const MemoryCounter& counter = spans.Top().Counter();
            const Expected& figures = expected.back();
            ASSERT_EQ(counter.Allocated(), figures.allocated) << "step " << step;
            ASSERT_EQ(counter.AllocatedCount(), figures.allocations) << "step " << step;
            ASSERT_EQ(counter.Deallocated(), figures.released) << "step " << step;
            ASSERT_EQ(counter.DeallocatedCount(), figures.releases) << "step " << step;
            ASSERT_EQ(counter.AllocatedPeakUsed(), static_cast<uint64>(figures.peak))
                << "step " << step;
            ++ended;
            withInnerPeak += figures.peak > spans.Top().Frame().peakInUse ? 1 : 0;
            spans.Pop();
            expected.pop_back();
        } else if (action < 62 || blocks.empty()) {
            const std::size_t bytes = random() % 1000;
            ChargeAllocation(bytes);
            blocks.push_back(bytes);
            for (Expected& figures : expected) {
                figures.net += static_cast<int64>(bytes);
                figures.peak = std::max(figures.peak, figures.net);
                figures.allocated += bytes;
                ++figures.allocations;
            }
        } else {
            // Any block, those from before the innermost span or from before all spans as well.
            std::swap(blocks[random() % blocks.size()], blocks.back());
            const std::size_t bytes = blocks.back();
            blocks.pop_back();
            ChargeRelease(bytes);
            for (Expected& figures : expected) {
                figures.net -= static_cast<int64>(bytes);
                figures.released += bytes;
                ++figures.releases;
            }
        }
    }
    EXPECT_GT(ended, 10000);
    EXPECT_GT(withInnerPeak, 100) << "the interesting case, a peak inside an inner span, is rare";
}

}  // namespace
