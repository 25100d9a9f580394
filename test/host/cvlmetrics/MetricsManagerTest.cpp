#include "cvlmetrics/MetricsManager.h"

#include "MetricsTestSupport.h"

#include <cstring>
#include <type_traits>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::flagTracing;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::RecordingListener;
using MetricsTest::Subscription;
using MetricsTest::Work;
using tarn::test::Closes;
using tarn::test::ClosesContext;
using tarn::test::CreatesContext;
using tarn::test::Opens;
using tarn::test::OpensContext;
using tarn::test::SendsContextPairs;
using tarn::test::SendsContextValue;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint64 hostBit = 0x1;
constexpr uint64 otherBit = 0x2;

class MetricsManagerTest : public MetricsTest::MetricsBusTest {
protected:
    static void OpenAndClose(uint64 flags, const char* name) {
        Scope scope(flags);
        scope.OpenImpl(name);
    }

    uint64 FirstWordOfTheManager() const {
        uint64 word = 0;
        std::memcpy(&word, static_cast<const void*>(&m_bus), sizeof(word));
        return word;
    }
};

TEST_F(MetricsManagerTest, IsNotPolymorphicAndStartsWithTheCountOfConsumers) {
    static_assert(!std::is_polymorphic_v<Metrics::MetricsManager>);
    ASSERT_EQ(FirstWordOfTheManager(), 0U);

    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription one(*m_listener, flagTracing, false);
    const Subscription two(*second, flagTracing, false);

    EXPECT_EQ(FirstWordOfTheManager(), 2U);
    EXPECT_EQ(m_bus.GetConsumerCount(), 2U);
}

TEST_F(MetricsManagerTest, DeliversWhatSharesABitWithTheConsumer) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing | hostBit, false);

    OpenAndClose(flagTracing, "traced");
    OpenAndClose(hostBit | otherBit, "host");
    OpenAndClose(otherBit, "other");
    OpenAndClose(0, "bare");

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(Opens("traced"), Closes("traced"), Opens("host"), Closes("host")));
}

TEST_F(MetricsManagerTest, DeliversWhatCarriesNoneOfTheBitsToAConsumerThatAsksForIt) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, true);

    OpenAndClose(flagTracing, "traced");
    OpenAndClose(otherBit, "other");
    OpenAndClose(0, "bare");

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(Opens("traced"),
                            Closes("traced"),
                            Opens("other"),
                            Closes("other"),
                            Opens("bare"),
                            Closes("bare")));
}

TEST_F(MetricsManagerTest, DeliversContextEventsToEveryConsumer) {
    const Subscription subscription(*m_listener, 0, false);

    { const CurrentContext context; }

    EXPECT_THAT(m_listener->Contents(),
                ElementsAre(CreatesContext(), OpensContext(), ClosesContext()));
}

TEST_F(MetricsManagerTest, DeliversToEachConsumerWhatItAskedFor) {
    const CurrentContext context;
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription one(*m_listener, flagTracing, false);
    const Subscription two(*second, hostBit, false);

    OpenAndClose(flagTracing, "traced");
    OpenAndClose(hostBit, "host");

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("traced"), Closes("traced")));
    EXPECT_THAT(second->Contents(), ElementsAre(Opens("host"), Closes("host")));
}

TEST_F(MetricsManagerTest, AddingAListenerAgainReplacesItsEntry) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, true);

    EXPECT_TRUE(m_bus.AddConsumer(m_listener, hostBit, false));
    OpenAndClose(flagTracing, "traced");
    OpenAndClose(hostBit, "host");

    EXPECT_EQ(m_bus.GetConsumerCount(), 1U);
    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("host"), Closes("host")));
}

TEST_F(MetricsManagerTest, ANullListenerIsRefused) {
    EXPECT_FALSE(m_bus.AddConsumer(nullptr, flagTracing, true));
    EXPECT_FALSE(m_bus.RemoveConsumer(nullptr));

    EXPECT_EQ(m_bus.GetConsumerCount(), 0U);
}

TEST_F(MetricsManagerTest, RemovingAListenerEndsItsDeliveriesAndItsReference) {
    const CurrentContext context;
    m_bus.AddConsumer(m_listener, flagTracing, false);
    ASSERT_EQ(m_listener->GetRefCount(), 2);

    EXPECT_TRUE(m_bus.RemoveConsumer(m_listener));
    Work("unheard");

    EXPECT_THAT(m_listener->Events(), IsEmpty());
    EXPECT_EQ(m_listener->GetRefCount(), 1);
}

TEST_F(MetricsManagerTest, RemovingAListenerThatIsNotSubscribedSaysSo) {
    EXPECT_FALSE(m_bus.RemoveConsumer(m_listener));

    m_bus.AddConsumer(m_listener, flagTracing, false);

    EXPECT_TRUE(m_bus.RemoveConsumer(m_listener));
    EXPECT_FALSE(m_bus.RemoveConsumer(m_listener));
}

TEST_F(MetricsManagerTest, AListenerThatWasRemovedMayComeBack) {
    const CurrentContext context;
    { const Subscription subscription(*m_listener, flagTracing, false); }
    const Subscription subscription(*m_listener, flagTracing, false);

    Work("heard");

    EXPECT_THAT(m_listener->Contents(), ElementsAre(Opens("heard"), Closes("heard")));
}

TEST_F(MetricsManagerTest, TestBitsIsFalseWhileNobodyListens) {
    EXPECT_FALSE(Metrics::TestBits(flagTracing));
    EXPECT_FALSE(Metrics::TestBits(0));
    EXPECT_FALSE(Metrics::TestBits(~uint64{0}));
}

TEST_F(MetricsManagerTest, TestBitsKnowsTheBitsOfAllConsumersTogether) {
    const RefCntPtr<RecordingListener> second = new RecordingListener;
    const Subscription one(*m_listener, flagTracing, false);
    {
        const Subscription two(*second, hostBit, false);

        EXPECT_TRUE(Metrics::TestBits(flagTracing));
        EXPECT_TRUE(Metrics::TestBits(hostBit | otherBit));
        EXPECT_FALSE(Metrics::TestBits(otherBit));
        EXPECT_FALSE(Metrics::TestBits(0));
    }

    EXPECT_TRUE(Metrics::TestBits(flagTracing));
    EXPECT_FALSE(Metrics::TestBits(hostBit));
}

TEST_F(MetricsManagerTest, TestBitsIsTrueForEverythingWhileSomebodyWantsEverything) {
    const Subscription one(*m_listener, flagTracing, false);
    {
        const RefCntPtr<RecordingListener> second = new RecordingListener;
        const Subscription two(*second, 0, true);

        EXPECT_TRUE(Metrics::TestBits(0));
        EXPECT_TRUE(Metrics::TestBits(otherBit));
    }

    EXPECT_FALSE(Metrics::TestBits(0));
    EXPECT_FALSE(Metrics::TestBits(otherBit));
    EXPECT_TRUE(Metrics::TestBits(flagTracing));
}

TEST_F(MetricsManagerTest, TestBitsFollowsAReplacedEntry) {
    const Subscription subscription(*m_listener, flagTracing, true);

    m_bus.AddConsumer(m_listener, hostBit, false);

    EXPECT_TRUE(Metrics::TestBits(hostBit));
    EXPECT_FALSE(Metrics::TestBits(flagTracing));
    EXPECT_FALSE(Metrics::TestBits(0));
}

TEST_F(MetricsManagerTest, TestBitsAndContextAsksForACurrentContextAsWell) {
    const Subscription subscription(*m_listener, flagTracing, false);

    EXPECT_FALSE(Metrics::TestBitsAndContext(flagTracing));
    {
        const CurrentContext context;

        EXPECT_TRUE(Metrics::TestBitsAndContext(flagTracing));
        EXPECT_FALSE(Metrics::TestBitsAndContext(hostBit));
    }
    EXPECT_FALSE(Metrics::TestBitsAndContext(flagTracing));
}

TEST_F(MetricsManagerTest, AnAttributeGoesToTheCurrentContextWithTheGivenBits) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);

    Metrics::AttributeImpl("user", "ann", flagTracing);
    Metrics::AttributeImpl("user", "nobody hears of", hostBit);

    ASSERT_THAT(m_listener->Contents(), ElementsAre(SendsContextValue("user", "ann")));
    EXPECT_EQ(m_listener->Events()[0].contextId, context.Id());
    EXPECT_EQ(m_listener->Events()[0].flags, flagTracing);
    EXPECT_EQ(m_listener->Events()[0].type, Metrics::MetricsEventType::Attribute);
}

TEST_F(MetricsManagerTest, AListOfAttributesGoesToTheCurrentContextWithTheGivenBits) {
    const CurrentContext context;
    const Subscription subscription(*m_listener, flagTracing, false);

    Metrics::MultiAttributeImpl(u"reqCtxAttrs", {{"user", "ann"}, {"rows", 3}}, flagTracing);
    Metrics::MultiAttributeImpl(u"reqCtxAttrs", {{"user", "nobody hears of"}}, hostBit);

    ASSERT_THAT(m_listener->Contents(),
                ElementsAre(SendsContextPairs(u"reqCtxAttrs", {{"user", "ann"}, {"rows", 3}})));
    EXPECT_EQ(m_listener->Events()[0].contextId, context.Id());
    EXPECT_EQ(m_listener->Events()[0].flags, flagTracing);
    EXPECT_EQ(m_listener->Events()[0].type, Metrics::MetricsEventType::AttributePairs);
}

TEST_F(MetricsManagerTest, AttributesWithoutACurrentContextGoNowhere) {
    const Subscription subscription(*m_listener, flagTracing, true);

    Metrics::AttributeImpl("user", "ann", flagTracing);
    Metrics::MultiAttributeImpl("reqCtxAttrs", {{"user", "ann"}}, flagTracing);

    EXPECT_THAT(m_listener->Events(), IsEmpty());
}

}  // namespace
