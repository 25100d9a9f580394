#include "MetricsTestSupport.h"

#include "cvlmetrics/host/Statistics.h"

#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// A program of its own, because it replaces the global allocation functions: they count, and they
// fail when a test says so.

namespace {

constexpr int never = std::numeric_limits<int>::max();

thread_local int t_allocations = 0;
thread_local int t_allocationsUntilFailure = never;

void* Allocate(std::size_t bytes) {
    ++t_allocations;
    if (t_allocationsUntilFailure != never && t_allocationsUntilFailure-- <= 0) {
        return nullptr;
    }
    return std::malloc(bytes);
}

void* AllocateOrThrow(std::size_t bytes) {
    if (void* const block = Allocate(bytes)) {
        return block;
    }
    throw std::bad_alloc();
}

// Kept out of line: where both ends are inlined, the compiler sees free release what new returned.
[[gnu::noinline]] void Release(void* block) noexcept {
    std::free(block);
}

}  // namespace

void* operator new(std::size_t bytes) {
    return AllocateOrThrow(bytes);
}

void* operator new[](std::size_t bytes) {
    return AllocateOrThrow(bytes);
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return Allocate(bytes);
}

void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return Allocate(bytes);
}

void operator delete(void* block) noexcept {
    Release(block);
}

void operator delete[](void* block) noexcept {
    Release(block);
}

void operator delete(void* block, std::size_t) noexcept {
    Release(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    Release(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept {
    Release(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Release(block);
}

namespace {

using Metrics::Context;
using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::MetricsValue;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::CurrentContextId;
using MetricsTest::RecordingListener;
using MetricsTest::Subscription;
using testing::ElementsAre;

/// The calling thread's allocations fail from the `allocation`-th on, counted from 0.
class FailingAllocations {
public:
    explicit FailingAllocations(int allocation) { t_allocationsUntilFailure = allocation; }

    ~FailingAllocations() { t_allocationsUntilFailure = never; }

    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
};

/// Is called and keeps nothing.
class NullListener : public Metrics::IMetricsListener {
public:
    void OnMetricsEvent(const MetricsEvent&) override { ++calls; }

    int calls = 0;
};

class MetricsAllocationTest : public MetricsTest::MetricsBusTest {
protected:
    MetricsValue m_name{"a name that is too long for any small buffer"};

    template <class Action>
    static int AllocationsOf(Action action) {
        const int before = t_allocations;
        action();
        return t_allocations - before;
    }

    void OpenEmitAndClose() const {
        Scope scope(flagTracing);
        scope.OpenImpl(MetricsValue(m_name));
        scope.EmitImpl(MetricsEventType::NameValue, m_name, 3);
    }
};

TEST_F(MetricsAllocationTest, TheProgramCountsAllocations) {
    EXPECT_EQ(AllocationsOf([] { ::operator delete(::operator new(1)); }), 1);
}

TEST_F(MetricsAllocationTest, DeliveringAllocatesNothing) {
    const RefCntPtr<NullListener> listener = new NullListener;
    const Subscription subscription(*listener, flagTracing, false);
    const CurrentContext context;
    listener->calls = 0;

    EXPECT_EQ(AllocationsOf([this] { OpenEmitAndClose(); }), 0);

    EXPECT_EQ(listener->calls, 3);
}

TEST_F(MetricsAllocationTest, NothingIsAllocatedWhenNobodyListens) {
    const CurrentContext context;

    EXPECT_EQ(AllocationsOf([this] { OpenEmitAndClose(); }), 0);
}

TEST_F(MetricsAllocationTest, AttachingAContextAgainAndAgainTakesNoMoreRoom) {
    CurrentContext context;

    const int allocations = AllocationsOf([&] {
        for (int repeat = 0; repeat < 1000; ++repeat) {
            context.Get().AttachToThread();
        }
    });

    EXPECT_EQ(allocations, 0);
}

TEST_F(MetricsAllocationTest, ContextsThatEndElsewhereTakeNoRoomOnAThreadThatNeverLooks) {
    const auto endOneElsewhere = [] {
        auto context = std::make_unique<CurrentContext>();
        std::thread([&] { context.reset(); }).join();
    };
    endOneElsewhere();
    const int allocationsOfOne = AllocationsOf(endOneElsewhere);

    const int allocations = AllocationsOf([&] {
        for (int repeat = 0; repeat < 100; ++repeat) {
            endOneElsewhere();
        }
    });

    EXPECT_EQ(allocations, 100 * allocationsOfOne);
}

TEST_F(MetricsAllocationTest, AnEventThatFindsNoMemoryToWaitInIsLostAndCounted) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 before = Metrics::GetBusStatistics().lostEvents;
    bool hasThrown = false;
    bool isOpen = true;
    m_listener->reaction = [&](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            Scope inner(flagTracing);
            const FailingAllocations failing(0);
            try {
                inner.OpenImpl(MetricsValue(m_name));
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
            isOpen = inner.IsOpen();
        }
    };

    MetricsTest::Work("outer");

    EXPECT_TRUE(hasThrown);
    EXPECT_FALSE(isOpen) << "it would send an end without a beginning";
    EXPECT_EQ(Metrics::GetBusStatistics().lostEvents, before + 1);
    EXPECT_THAT(m_listener->Descriptions(), ElementsAre("open outer", "close outer"));
}

TEST_F(MetricsAllocationTest, ADestructorThatFindsNoMemoryCountsAndGoesOn) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 before = Metrics::GetBusStatistics().lostEvents;
    auto scope = std::make_unique<Scope>(flagTracing);
    scope->OpenImpl("inner");
    scope->SetPostScopeCloseEvents({Metrics::MetricsCloseScopeActions{0}});
    auto other = std::make_unique<CurrentContext>();
    other->Get().DetachFromThread();
    m_listener->events.clear();
    m_listener->reaction = [&](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            const FailingAllocations failing(0);
            scope.reset();
            other.reset();
        }
    };

    MetricsTest::Work("outer");

    EXPECT_EQ(Metrics::GetBusStatistics().lostEvents, before + 3);
    EXPECT_THAT(m_listener->Descriptions(), ElementsAre("open outer", "close outer"));
}

TEST_F(MetricsAllocationTest, WhereverOpeningAContextRunsOutOfMemoryItsEndIsClean) {
    const RefCntPtr<NullListener> listener = new NullListener;
    const Subscription subscription(*listener, flagTracing, false);
    const uint64 outside = CurrentContextId();

    bool succeeded = false;
    int failures = 0;
    for (int allocation = 0; !succeeded; ++allocation) {
        ASSERT_LT(allocation, 100);
        try {
            std::optional<Context> context;
            const FailingAllocations failing(allocation);
            context.emplace(0, Context::Create(true));
            context->OpenScope();
            succeeded = CurrentContextId() == context->GetId();
        } catch (const std::bad_alloc&) {
            ++failures;
        }
        EXPECT_EQ(CurrentContextId(), outside);
    }

    EXPECT_GE(failures, 1);
}

TEST_F(MetricsAllocationTest, AddingAConsumerWithoutMemoryChangesNothing) {
    {
        const FailingAllocations failing(0);
        EXPECT_THROW(m_bus.AddConsumer(m_listener, flagTracing, true), std::bad_alloc);
    }

    EXPECT_EQ(m_bus.GetConsumerCount(), 0U);
    EXPECT_FALSE(Metrics::TestBits(flagTracing));
    EXPECT_EQ(m_listener->GetRefCount(), 1);
}

TEST_F(MetricsAllocationTest, RemovingAConsumerNeedsNoMemory) {
    m_bus.AddConsumer(m_listener, flagTracing, true);
    const FailingAllocations failing(0);

    EXPECT_TRUE(m_bus.RemoveConsumer(m_listener));
}

TEST_F(MetricsAllocationTest, AConsumerThatRunsOutOfMemoryIsCountedAsAnException) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;
    m_listener->reaction = [](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            throw std::bad_alloc();
        }
    };

    EXPECT_NO_THROW(MetricsTest::Work("query"));

    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions, before + 1);
}

}  // namespace
