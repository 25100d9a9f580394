#include "MetricsTestSupport.h"

#include "cvlmetrics/Scope.h"

#include <cstring>
#include <memory>
#include <optional>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::flagUntracked;
using Metrics::MetricsCloseScopeActions;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::Subscription;
using tarn::test::Closes;
using tarn::test::Opens;
using tarn::test::PostCloses;
using tarn::test::SendsPairs;
using tarn::test::SendsSupplement;
using tarn::test::SendsValue;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

class MetricsScopeTest : public MetricsTest::MetricsBusTest {
protected:
    const Subscription m_subscription{*m_listener, flagTracing, false};
};

bool FirstByteOf(const Scope& scope) {
    bool live = false;
    std::memcpy(&live, static_cast<const void*>(&scope), sizeof(live));
    return live;
}

TEST_F(MetricsScopeTest, StartsClosedAndSaysNothing) {
    const CurrentContext context;
    m_listener->Clear();

    {
        const Scope scope(flagTracing);

        scope.EmitImpl(MetricsEventType::NameValue, "rows", 3);
        scope.MultiEmitImpl(MetricsEventType::NameValuePairs, "list", {{"rows", 3}});

        EXPECT_FALSE(scope.IsOpen());
        EXPECT_FALSE(FirstByteOf(scope));
    }

    EXPECT_THAT(m_listener->Events(), IsEmpty());
}

TEST_F(MetricsScopeTest, ItsFirstByteSaysWhetherItIsOpen) {
    const CurrentContext context;
    Scope scope(flagTracing);

    scope.OpenImpl("query");

    EXPECT_TRUE(scope.IsOpen());
    EXPECT_TRUE(FirstByteOf(scope));
}

TEST_F(MetricsScopeTest, SendsItsRoadFromOpenToPostClose) {
    const CurrentContext context;
    m_listener->Clear();

    {
        Scope scope(flagTracing);
        scope.OpenImpl("query", {{"db", "sales"}, {"rows", 3}});
        scope.EmitImpl(MetricsEventType::NameValue, u"tid", 7);
        scope.MultiEmitImpl(MetricsEventType::NameValuePairs, u"memoryAttrs", {{u"ai", 1}});
        scope.MultiEmitImpl(MetricsEventType::SupplementalPairs, u"note", {{u"a", u"b"}});
        scope.SetPostScopeCloseEvents(
            {MetricsCloseScopeActions::PopRequestContextAttributes, MetricsCloseScopeActions{1}});
    }

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(Opens("query", {{"db", "sales"}, {"rows", 3}}),
                            SendsValue(u"tid", 7),
                            SendsPairs(u"memoryAttrs", {{u"ai", 1}}),
                            SendsSupplement(u"note", {{u"a", u"b"}}),
                            Closes("query"),
                            PostCloses("query"),
                            PostCloses("query", 1)));
}

TEST_F(MetricsScopeTest, StampsItsIdentityOnEveryEvent) {
    const CurrentContext context;
    m_listener->Clear();

    {
        Scope scope(flagTracing | flagUntracked);
        scope.OpenImpl("query");
        scope.EmitImpl(MetricsEventType::NameValue, "rows", 3);
        scope.SetPostScopeCloseEvents({MetricsCloseScopeActions::PopRequestContextAttributes});
    }

    ASSERT_EQ(m_listener->Count(), 4U);
    const uint64 id = m_listener->Events()[0].id;
    EXPECT_GE(id, 1U);
    EXPECT_THAT(m_listener->Events(),
                Each(AllOf(Field(&MetricsEvent::id, id),
                           Field(&MetricsEvent::contextId, context.Id()),
                           Field(&MetricsEvent::flags, flagTracing | flagUntracked))));
}

TEST_F(MetricsScopeTest, ThePostCloseActionIsAnInteger) {
    const CurrentContext context;

    {
        Scope scope(flagTracing);
        scope.OpenImpl("query");
        scope.SetPostScopeCloseEvents({MetricsCloseScopeActions::PopRequestContextAttributes});
    }

    const MetricsEvent& last = m_listener->Last();
    ASSERT_EQ(last.type, MetricsEventType::PostCloseScope);
    EXPECT_EQ(last.value.type, Metrics::MetricsValue::MV_Int64);
    EXPECT_EQ(last.value.integer, 0);
}

TEST_F(MetricsScopeTest, EveryScopeHasAnIdOfItsOwn) {
    const CurrentContext context;
    m_listener->Clear();

    MetricsTest::Work("first");
    MetricsTest::Work("second");

    ASSERT_EQ(m_listener->Count(), 4U);
    EXPECT_EQ(m_listener->Events()[2].id, m_listener->Events()[0].id + 1);
}

TEST_F(MetricsScopeTest, StaysClosedWithoutACurrentContext) {
    {
        Scope scope(flagTracing);
        scope.SetPostScopeCloseEvents({MetricsCloseScopeActions::PopRequestContextAttributes});

        scope.OpenImpl("query");

        EXPECT_FALSE(scope.IsOpen());
    }

    EXPECT_THAT(m_listener->Events(), IsEmpty());
}

TEST_F(MetricsScopeTest, AnOpeningWithoutAContextDropsThePostCloseList) {
    Scope* scope = new Scope(flagTracing);
    scope->SetPostScopeCloseEvents({MetricsCloseScopeActions::PopRequestContextAttributes});
    scope->OpenImpl("too early");
    const CurrentContext context;
    m_listener->Clear();

    scope->OpenImpl("in time");
    delete scope;

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("in time"), Closes("in time")));
}

TEST_F(MetricsScopeTest, OpensOnceOnly) {
    const CurrentContext context;
    m_listener->Clear();

    {
        Scope scope(flagTracing);
        scope.OpenImpl("first");
        scope.OpenImpl("second");
    }

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("first"), Closes("first")));
}

TEST_F(MetricsScopeTest, BelongsToTheInnermostContext) {
    const CurrentContext outer;
    const CurrentContext inner;

    MetricsTest::Work("query");

    EXPECT_EQ(m_listener->Last().contextId, inner.Id());
}

TEST_F(MetricsScopeTest, ClosesInTheContextItWasOpenedIn) {
    auto first = std::make_unique<CurrentContext>();
    auto scope = std::make_unique<Scope>(flagTracing);
    scope->OpenImpl("query");
    scope->SetPostScopeCloseEvents({MetricsCloseScopeActions::PopRequestContextAttributes});
    const uint64 firstId = first->Id();
    first.reset();
    const CurrentContext second;
    m_listener->Clear();

    std::thread([&] { scope.reset(); }).join();

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Closes("query"), PostCloses("query")));
    EXPECT_THAT(m_listener->Events(), Each(Field(&MetricsEvent::contextId, firstId)));
}

TEST_F(MetricsScopeTest, OpensUnheardAndIsHeardByWhoeverComesLater) {
    const CurrentContext context;
    std::optional<Scope> scope;
    m_bus.RemoveConsumer(m_listener);
    scope.emplace(flagTracing);
    scope->OpenImpl("query");

    EXPECT_TRUE(scope->IsOpen());
    m_listener->Clear();
    const Subscription late(*m_listener, flagTracing, false);
    scope.reset();

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Closes("query")));
}

}  // namespace
