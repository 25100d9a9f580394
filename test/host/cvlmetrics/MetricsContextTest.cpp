#include "MetricsTestSupport.h"

#include "cvlmetrics/Context.h"
#include "cvlsys/TSystem.h"

#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::Context;
using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using MetricsTest::CurrentContext;
using MetricsTest::CurrentContextId;
using MetricsTest::Subscription;
using MetricsTest::Work;
using tarn::test::AnnouncesThread;
using tarn::test::Closes;
using tarn::test::ClosesContext;
using tarn::test::CreatesContext;
using tarn::test::EventContent;
using tarn::test::OpensContext;
using tarn::test::SendsValue;
using testing::ElementsAre;
using testing::IsEmpty;

class MetricsContextTest : public MetricsTest::MetricsBusTest {
protected:
    static EventContent ThreadAnnouncement() { return AnnouncesThread(TSystem::ThreadID()); }

    const Subscription m_subscription{*m_listener, flagTracing, false};
};

TEST_F(MetricsContextTest, IdsAreNeverZeroAndNeverRepeat) {
    const uint64 first = Context::Create(true);
    const uint64 second = Context::Create(true);

    EXPECT_GE(first, 1U);
    EXPECT_EQ(second, first + 1);
}

TEST_F(MetricsContextTest, ARootHasNoParent) {
    const CurrentContext current;
    m_listener->Clear();

    const uint64 id = Context::Create(true);

    ASSERT_THAT(m_listener->Contents(), ElementsAre(CreatesContext()));
    EXPECT_EQ(m_listener->Events()[0].id, id);
    EXPECT_EQ(m_listener->Events()[0].contextId, 0U);
    EXPECT_EQ(m_listener->Events()[0].flags, 0U);
}

TEST_F(MetricsContextTest, AChildNamesTheCurrentContextAsItsParent) {
    const CurrentContext parent;
    m_listener->Clear();

    {
        Context child(0, Context::Create(false));
        child.OpenScope();
    }

    ASSERT_THAT(
        m_listener->Contents(),
        ElementsAre(CreatesContext(), OpensContext(), ThreadAnnouncement(), ClosesContext()));
    EXPECT_EQ(m_listener->Events()[0].contextId, parent.Id());
    EXPECT_EQ(m_listener->Events()[1].contextId, parent.Id());
    EXPECT_EQ(m_listener->Events()[3].contextId, parent.Id());
}

TEST_F(MetricsContextTest, AChildWithoutACurrentContextIsARoot) {
    Context::Create(false);

    EXPECT_EQ(m_listener->Last().contextId, 0U);
}

TEST_F(MetricsContextTest, ItsFlagsTravelWithItsOwnEvents) {
    const uint64 id = Context::Create(true);
    {
        Context context(0x4, id);
        context.OpenScope();
    }

    ASSERT_EQ(m_listener->Count(), 4U);
    EXPECT_EQ(m_listener->Events()[0].flags, 0U);
    EXPECT_EQ(m_listener->Events()[1].flags, 0x4U);
    EXPECT_EQ(m_listener->Events()[3].flags, 0x4U);
}

TEST_F(MetricsContextTest, TellsItsThreadRightAfterItsOpening) {
    const CurrentContext context;

    ASSERT_THAT(m_listener->Contents(),
                ElementsAre(CreatesContext(), OpensContext(), ThreadAnnouncement()));
    const MetricsEvent& announcement = m_listener->Last();
    EXPECT_EQ(announcement.type, MetricsEventType::Attribute);
    EXPECT_EQ(announcement.contextId, context.Id());
    EXPECT_EQ(announcement.flags, flagTracing);
    EXPECT_EQ(announcement.name.type, Metrics::MetricsValue::MV_Utf16String);
    EXPECT_EQ(announcement.value.type, Metrics::MetricsValue::MV_Int64);
}

TEST_F(MetricsContextTest, TellsItsThreadBeforeAnyScopeCanOpenInIt) {
    m_listener->CallOnEach([](const MetricsEvent& event) {
        if (event.type == MetricsEventType::OpenContext) {
            Work("too early");
        }
    });

    const CurrentContext context;

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(CreatesContext(), OpensContext(), ThreadAnnouncement()));
}

TEST_F(MetricsContextTest, TellsItsThreadAgainOnlyWhenItHasChanged) {
    CurrentContext context;
    m_listener->Clear();

    context.Get().DetachFromThread();
    context.Get().AttachToThread();
    EXPECT_THAT(m_listener->Events(), IsEmpty());

    context.Get().DetachFromThread();
    EventContent elsewhere;
    std::thread([&] {
        elsewhere = ThreadAnnouncement();
        context.Get().AttachToThread();
        context.Get().DetachFromThread();
        context.Get().AttachToThread();
        context.Get().DetachFromThread();
    }).join();
    context.Get().AttachToThread();

    EXPECT_THAT(m_listener->Contents(), ElementsAre(elsewhere, ThreadAnnouncement()));
}

TEST_F(MetricsContextTest, TellsItsThreadAtTheNextAttachmentWhenNobodyHeardItBefore) {
    m_bus.RemoveConsumer(m_listener);
    CurrentContext context;
    const Subscription late(*m_listener, flagTracing, false);

    context.Get().AttachToThread();

    EXPECT_THAT(m_listener->Contents(), ElementsAre(ThreadAnnouncement()));
}

TEST_F(MetricsContextTest, IsCurrentFromItsOpeningToItsEnd) {
    EXPECT_EQ(CurrentContextId(), 0U);
    {
        Context context(0, Context::Create(true));
        EXPECT_EQ(CurrentContextId(), 0U);

        context.OpenScope();
        EXPECT_EQ(CurrentContextId(), context.GetId());
    }
    EXPECT_EQ(CurrentContextId(), 0U);
}

TEST_F(MetricsContextTest, NestedContextsEndInReverseOrder) {
    const CurrentContext outer;
    {
        const CurrentContext inner;
        EXPECT_EQ(CurrentContextId(), inner.Id());
    }
    EXPECT_EQ(CurrentContextId(), outer.Id());
}

TEST_F(MetricsContextTest, EndingTheOuterContextFirstKeepsTheInnerCurrent) {
    auto outer = std::make_unique<CurrentContext>();
    std::optional<CurrentContext> inner(std::in_place);

    outer.reset();
    EXPECT_EQ(CurrentContextId(), inner->Id());

    inner.reset();
    EXPECT_EQ(CurrentContextId(), 0U);
}

TEST_F(MetricsContextTest, DetachingUncoversTheContextBelow) {
    CurrentContext outer;
    CurrentContext inner;

    inner.Get().DetachFromThread();
    EXPECT_EQ(CurrentContextId(), outer.Id());

    inner.Get().DetachFromThread();
    EXPECT_EQ(CurrentContextId(), outer.Id());

    inner.Get().AttachToThread();
    EXPECT_EQ(CurrentContextId(), inner.Id());
}

TEST_F(MetricsContextTest, AttachingAgainMovesTheContextToTheTop) {
    CurrentContext outer;
    CurrentContext inner;

    outer.Get().AttachToThread();
    EXPECT_EQ(CurrentContextId(), outer.Id());

    outer.Get().DetachFromThread();
    EXPECT_EQ(CurrentContextId(), inner.Id());

    inner.Get().DetachFromThread();
    EXPECT_EQ(CurrentContextId(), 0U);
}

TEST_F(MetricsContextTest, IsCurrentOnTheThreadItIsHandedTo) {
    CurrentContext context;
    context.Get().DetachFromThread();
    m_listener->Clear();

    std::thread([&] {
        EXPECT_EQ(CurrentContextId(), 0U);
        context.Get().AttachToThread();
        EXPECT_EQ(CurrentContextId(), context.Id());
        Work("elsewhere");
        context.Get().DetachFromThread();
        EXPECT_EQ(CurrentContextId(), 0U);
    }).join();

    EXPECT_EQ(CurrentContextId(), 0U);
    EXPECT_EQ(m_listener->ContentsOf(context.Id()).size(), 3U);
}

TEST_F(MetricsContextTest, EndedOnAnotherThreadIsNoLongerCurrentHere) {
    auto outer = std::make_unique<CurrentContext>();
    auto inner = std::make_unique<CurrentContext>();
    m_listener->Clear();

    std::thread([&] { inner.reset(); }).join();
    EXPECT_THAT(m_listener->Contents(), ElementsAre(ClosesContext()));
    EXPECT_EQ(CurrentContextId(), outer->Id());

    std::thread([&] { outer.reset(); }).join();
    EXPECT_EQ(CurrentContextId(), 0U);
    EXPECT_FALSE(Metrics::TestBitsAndContext(flagTracing));
}

TEST_F(MetricsContextTest, SeveralThatEndedElsewhereUncoverTheOneBelowThem) {
    const CurrentContext below;
    auto first = std::make_unique<CurrentContext>();
    auto second = std::make_unique<CurrentContext>();

    std::thread([&] {
        first.reset();
        second.reset();
    }).join();

    EXPECT_EQ(CurrentContextId(), below.Id());
}

TEST_F(MetricsContextTest, EndedElsewhereFromBelowIsNotUncoveredLater) {
    auto outer = std::make_unique<CurrentContext>();
    CurrentContext inner;

    std::thread([&] { outer.reset(); }).join();
    inner.Get().DetachFromThread();

    EXPECT_EQ(CurrentContextId(), 0U);
}

TEST_F(MetricsContextTest, ItsEndLeavesItsScopesToTheirOwners) {
    auto context = std::make_unique<CurrentContext>();
    auto scope = std::make_unique<Metrics::Scope>(flagTracing);
    scope->OpenImpl("query");
    const uint64 id = context->Id();
    m_listener->Clear();

    context.reset();
    scope->EmitImpl(MetricsEventType::NameValue, "rows", 3);
    scope.reset();

    EXPECT_THAT(m_listener->ContentsOf(id),
                ElementsAre(ClosesContext(), SendsValue("rows", 3), Closes("query")));
}

TEST_F(MetricsContextTest, IsNoLongerCurrentWhenItsEndIsDelivered) {
    auto context = std::make_unique<CurrentContext>();
    uint64 currentAtTheEnd = 1;
    m_listener->CallOnEach([&](const MetricsEvent& event) {
        if (event.type == MetricsEventType::CloseContext) {
            currentAtTheEnd = CurrentContextId();
        }
    });

    context.reset();

    EXPECT_EQ(currentAtTheEnd, 0U);
}

TEST_F(MetricsContextTest, ADeleterEndsAnOwnedContext) {
    std::unique_ptr<Context, Metrics::Context_deleter> owned(new Context(0, Context::Create(true)));
    owned->OpenScope();
    m_listener->Clear();

    owned.reset();

    EXPECT_THAT(m_listener->Contents(), ElementsAre(ClosesContext()));
    EXPECT_EQ(CurrentContextId(), 0U);
}

TEST_F(MetricsContextTest, WorksUnheard) {
    m_bus.RemoveConsumer(m_listener);

    {
        const CurrentContext context;
        EXPECT_EQ(CurrentContextId(), context.Id());
        Work("unheard");
    }

    EXPECT_EQ(CurrentContextId(), 0U);
    EXPECT_THAT(m_listener->Events(), IsEmpty());
}

}  // namespace
