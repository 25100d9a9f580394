#include "MetricsAsynchronousTest.h"

#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Statistics.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using Metrics::WhenQueueIsFull;
using MetricsTest::CurrentContext;
using MetricsTest::MetricsAsynchronousTest;
using MetricsTest::Subscription;
using MetricsTest::Work;
using tarn::test::Closes;
using tarn::test::ClosesContext;
using tarn::test::CreatesContext;
using tarn::test::IsOfType;
using tarn::test::LogCapture;
using tarn::test::OnAnotherThread;
using tarn::test::Opens;
using tarn::test::OpensContext;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class MetricsRefusalTest : public MetricsAsynchronousTest {
protected:
    MetricsRefusalTest() { Choose(WhenQueueIsFull::Refuse); }

    /// How often an event of a kind arrived.
    std::size_t Count(MetricsEventType type) const { return m_listener->Count(type); }

    /// Scopes that have left the thread's queue no room but that of the ends.
    static std::list<Scope> FillAllButTheRoomOfEnds() {
        Metrics::Context context(0, Metrics::Context::Create(true));
        std::list<Scope> scopes;
        while (scopes.empty() || scopes.back().IsOpen()) {
            scopes.emplace_back(flagTracing).OpenImpl("filler");
        }
        for (int i = 0; i < 500; ++i) {
            scopes.front().EmitImpl(MetricsEventType::NameValue, "rows", i);
        }
        // Of the smallest event: where it finds no room, no other does.
        for (int i = 0; i < 10; ++i) {
            context.OpenScope();
        }
        return scopes;
    }
};

TEST_F(MetricsRefusalTest, WholeScopesAreMissingAndEachIsCounted) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 refusedBefore = Metrics::GetBusStatistics().refusedScopes;
    HoldConsumer();
    constexpr int scopes = 2000;
    OnAnotherThread([] {
        const CurrentContext context;
        for (int i = 0; i < scopes; ++i) {
            Scope scope(flagTracing);
            scope.OpenImpl("query");
            scope.EmitImpl(MetricsEventType::NameValue, "rows", i);
        }
    });
    m_gate.Open();
    FlushAll();

    const auto refused =
        static_cast<std::ptrdiff_t>(Metrics::GetBusStatistics().refusedScopes - refusedBefore);
    EXPECT_GT(refused, 0);
    EXPECT_EQ(Count(MetricsEventType::OpenScope), scopes - refused);
    EXPECT_EQ(Count(MetricsEventType::CloseScope), scopes - refused);
    EXPECT_EQ(Count(MetricsEventType::NameValue), scopes - refused);
}

TEST_F(MetricsRefusalTest, AScopeThatIsOpenFindsRoomForItsEnd) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 waitsBefore = Metrics::GetBusStatistics().waits;
    HoldConsumer();
    OnAnotherThread([] {
        const CurrentContext context;
        std::list<Scope> scopes;
        while (scopes.empty() || scopes.back().IsOpen()) {
            scopes.emplace_back(flagTracing).OpenImpl("query");
        }
        while (!scopes.empty()) {
            scopes.pop_back();
        }
    });
    const uint64 waitsAfter = Metrics::GetBusStatistics().waits;
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(waitsAfter, waitsBefore);
    EXPECT_GT(Count(MetricsEventType::OpenScope), 10);
    EXPECT_EQ(Count(MetricsEventType::OpenScope), Count(MetricsEventType::CloseScope));
}

TEST_F(MetricsRefusalTest, WhatARefusedScopeHasAddedToItsContextIsTakenBack) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    OnAnotherThread([] {
        const CurrentContext context;
        while (true) {
            Scope filler(flagTracing);
            filler.OpenImpl("filler");
            if (!filler.IsOpen()) {
                break;
            }
        }
        Scope scope(flagTracing);
        Metrics::MultiAttributeImpl("layer", {{"user", "ann"}}, flagTracing);
        scope.OpenImpl("refused");
        EXPECT_FALSE(scope.IsOpen());
        scope.SetPostScopeCloseEvents(
            {Metrics::MetricsCloseScopeActions::PopRequestContextAttributes});
    });
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(Count(MetricsEventType::AttributePairs), 1);
    EXPECT_EQ(Count(MetricsEventType::PostCloseScope), 1);
    EXPECT_THAT(m_listener->Contents(), testing::Not(Contains(Opens("refused"))));
}

TEST_F(MetricsRefusalTest, ThreadsThatMakeContextsDoNotWaitEither) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 waitsBefore = Metrics::GetBusStatistics().waits;
    HoldConsumer();
    OnAnotherThread([] {
        for (int i = 0; i < 2000; ++i) {
            const CurrentContext context;
            Work("query");
        }
    });
    const uint64 waitsAfter = Metrics::GetBusStatistics().waits;
    m_gate.Open();
    FlushAll();

    EXPECT_EQ(waitsAfter, waitsBefore);
    EXPECT_EQ(Count(MetricsEventType::CreateContext), Count(MetricsEventType::CloseContext));
    EXPECT_EQ(Count(MetricsEventType::OpenScope), Count(MetricsEventType::CloseScope));
}

TEST_F(MetricsRefusalTest, AContextThatFoundNoRoomIsAnnouncedWithTheFirstScopeThatDoes) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    uint64 lateId = 0;
    OnAnotherThread([&] {
        std::list<CurrentContext> fillers;
        std::optional<CurrentContext> late;
        for (int i = 0; i < 500; ++i) {
            fillers.emplace_back();
        }
        late.emplace();
        lateId = late->Id();
        Work("too early");
        m_gate.Open();
        FlushAll();
        Work("query");
    });
    FlushAll();

    EXPECT_THAT(m_listener->ContentsOf(lateId),
                ElementsAre(CreatesContext(),
                            OpensContext(),
                            IsOfType(MetricsEventType::Attribute),
                            Opens("query"),
                            Closes("query"),
                            ClosesContext()));
    EXPECT_EQ(Count(MetricsEventType::CreateContext), Count(MetricsEventType::CloseContext));
}

TEST_F(MetricsRefusalTest, AContextIsOpenedWithoutTheRoomOfEndsAndSaidWithAScopeThatFindsRoom) {
    const Subscription subscription(*m_listener, flagTracing, false);
    HoldConsumer();
    uint64 lateId = 0;
    OnAnotherThread([&] {
        const CurrentContext context;
        lateId = Metrics::Context::Create(true);
        Metrics::Context late(0, lateId);
        std::list<Scope> fillers = FillAllButTheRoomOfEnds();
        late.OpenScope();
        Work("too early");
        fillers.pop_front();  // an end that finds room
        m_gate.Open();
        FlushAll();
        Work("query");
    });
    FlushAll();

    EXPECT_THAT(m_listener->ContentsOf(lateId),
                ElementsAre(CreatesContext(),
                            OpensContext(),
                            IsOfType(MetricsEventType::Attribute),
                            Opens("query"),
                            Closes("query"),
                            ClosesContext()));
    const auto isAbout = [lateId](MetricsEventType type) {
        return [=](const MetricsEvent& event) { return event.type == type && event.id == lateId; };
    };
    const std::vector<MetricsEvent> events = m_listener->Events();
    const auto opened =
        std::find_if(events.begin(), events.end(), isAbout(MetricsEventType::OpenContext));
    EXPECT_TRUE(std::any_of(events.begin(), opened, [](const MetricsEvent& event) {
        return event.type == MetricsEventType::CloseScope;
    })) << "the ends that came later were there first";
}

TEST_F(MetricsRefusalTest, AListOfAContextThatHasComeToAFullThreadArrives) {
    const Subscription subscription(*m_listener, flagTracing, false);
    CurrentContext wandering;
    Scope scope(flagTracing);
    scope.OpenImpl("outer");
    HoldConsumer();
    OnAnotherThread([&] {
        const CurrentContext context;
        const std::list<Scope> fillers = FillAllButTheRoomOfEnds();
        wandering.Get().AttachToThread();
        Metrics::MultiAttributeImpl("layer", {{"user", "ann"}}, flagTracing);
        wandering.Get().DetachFromThread();
        m_gate.Open();
    });
    FlushAll();

    EXPECT_EQ(Count(MetricsEventType::AttributePairs), 1) << "its scope's end takes it back";
}

TEST_F(MetricsRefusalTest, AContextThatHasLostAttributesStaysUnknownWithItsScopes) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const uint64 refusedBefore = Metrics::GetBusStatistics().refusedAttributes;
    HoldConsumer();
    uint64 lateId = 0;
    OnAnotherThread([&] {
        std::list<CurrentContext> fillers;
        for (int i = 0; i < 500; ++i) {
            fillers.emplace_back();
        }
        const CurrentContext late;
        lateId = late.Id();
        Metrics::AttributeImpl("user", "ann", flagTracing);
        m_gate.Open();
        FlushAll();
        Work("query");
    });
    FlushAll();

    EXPECT_THAT(m_listener->ContentsOf(lateId), IsEmpty());
    EXPECT_EQ(Metrics::GetBusStatistics().refusedAttributes - refusedBefore, 1U);
    EXPECT_EQ(Count(MetricsEventType::CreateContext), Count(MetricsEventType::CloseContext))
        << "the last one may be there without its opening";
}

TEST_F(MetricsRefusalTest, TheLogSaysWhatIsMissingInIt) {
    const LogCapture log;
    {
        const Subscription subscription(*m_listener, flagTracing, false);
        HoldConsumer();
        OnAnotherThread([] {
            const CurrentContext context;
            for (int i = 0; i < 2000; ++i) {
                Work("query");
            }
        });
        m_gate.Open();
        FlushAll();
    }

    EXPECT_THAT(log->MessageTexts(), Contains(HasSubstr("scopes refused for want of room")));
    EXPECT_GT(log->Flushes(), 0);
}

}  // namespace
