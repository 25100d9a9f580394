#include "AllocationCounter.h"
#include "CountingListener.h"
#include "MetricsTestSupport.h"

#include "cvlmetrics/host/Statistics.h"

#include <memory>
#include <new>
#include <optional>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
using tarn::test::AllocationCounter;
using tarn::test::Closes;
using tarn::test::CountingListener;
using tarn::test::MemoryThatRunsOut;
using tarn::test::Opens;
using testing::ElementsAre;

class MetricsAllocationTest : public MetricsTest::MetricsBusTest {
protected:
    MetricsValue m_name{"a name that is too long for any small buffer"};

    template <class Action>
    static uint64 AllocationsOf(Action action) {
        const AllocationCounter counter;
        action();
        return counter.Allocations();
    }

    void OpenEmitAndClose() const {
        Scope scope(flagTracing);
        scope.OpenImpl(MetricsValue(m_name));
        scope.EmitImpl(MetricsEventType::NameValue, m_name, 3);
    }
};

TEST_F(MetricsAllocationTest, TheProgramCountsAllocations) {
    EXPECT_EQ(AllocationsOf([] { ::operator delete(::operator new(1)); }), 1U);
}

TEST_F(MetricsAllocationTest, DeliveringAllocatesNothing) {
    const RefCntPtr<CountingListener> listener = new CountingListener;
    const Subscription subscription(*listener, flagTracing, false);
    const CurrentContext context;
    listener->Clear();

    EXPECT_EQ(AllocationsOf([this] { OpenEmitAndClose(); }), 0U);

    EXPECT_EQ(listener->Count(), 3);
}

TEST_F(MetricsAllocationTest, NothingIsAllocatedWhenNobodyListens) {
    const CurrentContext context;

    EXPECT_EQ(AllocationsOf([this] { OpenEmitAndClose(); }), 0U);
}

TEST_F(MetricsAllocationTest, AttachingAContextAgainAndAgainTakesNoMoreRoom) {
    CurrentContext context;

    const uint64 allocations = AllocationsOf([&] {
        for (int repeat = 0; repeat < 1000; ++repeat) {
            context.Get().AttachToThread();
        }
    });

    EXPECT_EQ(allocations, 0U);
}

TEST_F(MetricsAllocationTest, ContextsThatEndElsewhereTakeNoRoomOnAThreadThatNeverLooks) {
    const auto endOneElsewhere = [] {
        auto context = std::make_unique<CurrentContext>();
        std::thread([&] { context.reset(); }).join();
    };
    endOneElsewhere();
    const uint64 allocationsOfOne = AllocationsOf(endOneElsewhere);

    const uint64 allocations = AllocationsOf([&] {
        for (int repeat = 0; repeat < 100; ++repeat) {
            endOneElsewhere();
        }
    });

    EXPECT_EQ(allocations, 100 * allocationsOfOne);
}

TEST_F(MetricsAllocationTest, AnEventThatFindsNoMemoryToWaitInIsLostAndCounted) {
    bool hasThrown = false;
    bool isOpen = true;
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 before = Metrics::GetBusStatistics().lostEvents;
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            Scope inner(flagTracing);
            const MemoryThatRunsOut memory(0);
            try {
                inner.OpenImpl(MetricsValue(m_name));
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
            isOpen = inner.IsOpen();
        }
    });

    MetricsTest::Work("outer");

    EXPECT_TRUE(hasThrown);
    EXPECT_FALSE(isOpen) << "it would send an end without a beginning";
    EXPECT_EQ(Metrics::GetBusStatistics().lostEvents, before + 1);
    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("outer"), Closes("outer")));
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
    m_listener->Clear();
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            const MemoryThatRunsOut memory(0);
            scope.reset();
            other.reset();
        }
    });

    MetricsTest::Work("outer");

    EXPECT_EQ(Metrics::GetBusStatistics().lostEvents, before + 3);
    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("outer"), Closes("outer")));
}

TEST_F(MetricsAllocationTest, WhereverOpeningAContextRunsOutOfMemoryItsEndIsClean) {
    const RefCntPtr<CountingListener> listener = new CountingListener;
    const Subscription subscription(*listener, flagTracing, false);
    const uint64 outside = CurrentContextId();

    bool succeeded = false;
    int failures = 0;
    for (uint64 allocation = 0; !succeeded; ++allocation) {
        ASSERT_LT(allocation, 100U);
        try {
            std::optional<Context> context;
            const MemoryThatRunsOut memory(allocation);
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
        const MemoryThatRunsOut memory(0);
        EXPECT_THROW(m_bus.AddConsumer(m_listener, flagTracing, true), std::bad_alloc);
    }

    EXPECT_EQ(m_bus.GetConsumerCount(), 0U);
    EXPECT_FALSE(Metrics::TestBits(flagTracing));
    EXPECT_EQ(m_listener->GetRefCount(), 1);
}

TEST_F(MetricsAllocationTest, RemovingAConsumerNeedsNoMemory) {
    m_bus.AddConsumer(m_listener, flagTracing, true);
    const MemoryThatRunsOut memory(0);

    EXPECT_TRUE(m_bus.RemoveConsumer(m_listener));
}

TEST_F(MetricsAllocationTest, AConsumerThatRunsOutOfMemoryIsCountedAsAnException) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;
    m_listener->CallOnEach([](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenScope) {
            throw std::bad_alloc();
        }
    });

    EXPECT_NO_THROW(MetricsTest::Work("query"));

    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions, before + 1);
}

}  // namespace
