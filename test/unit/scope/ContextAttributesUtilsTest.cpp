#include "tarn/ContextAttributesUtils.h"

#include "ScopeTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/Context.h"

#include <string>
#include <type_traits>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::MetricsEventType;
using Metrics::NameValueList;
using testing::ElementsAre;
using testing::IsEmpty;

class ContextAttributesUtilsTest : public ScopeTest {};

NameValueList Pairs() {
    return {{"first", 1}, {u"second", u"two"}, {"first", true}};
}

/// Sends a list of either kind.
void ExpectListsToBeConsumed() {
    NameValueList forRequest = Pairs();
    NameValueList forContext = Pairs();

    ContextAttributesUtils::Set(std::move(forRequest));
    ContextAttributesUtils::SetCustomContextAttributes(std::move(forContext));

    // Their emptiness after the move is what is promised.
    EXPECT_THAT(forRequest, IsEmpty());  // NOLINT(bugprone-use-after-move): promised
    EXPECT_THAT(forContext, IsEmpty());  // NOLINT(bugprone-use-after-move): promised
}

TEST_F(ContextAttributesUtilsTest, SetSendsAttributesOfTheRequest) {
    ContextAttributesUtils::Set(Pairs());

    EXPECT_THAT(m_events->Contents(), ElementsAre(SendsContextPairs(u"reqCtxAttrs", Pairs())));
}

TEST_F(ContextAttributesUtilsTest, SetCustomContextAttributesSendsMappableAttributes) {
    ContextAttributesUtils::SetCustomContextAttributes(Pairs());

    EXPECT_THAT(m_events->Contents(), ElementsAre(SendsContextPairs(u"mctx", Pairs())));
}

TEST_F(ContextAttributesUtilsTest, AttributesGoToTheThreadsContextWithTheTracingBitAlone) {
    ContextAttributesUtils::Set(Pairs());

    const Metrics::MetricsEvent event = m_events->First(MetricsEventType::AttributePairs);
    EXPECT_EQ(event.contextId, m_context.GetId());
    EXPECT_EQ(event.flags, 0x0020000000000000U);
}

TEST_F(ContextAttributesUtilsTest, TheInnermostContextOfTheThreadGetsTheAttributes) {
    Metrics::Context inner(0, Metrics::Context::Create(true));
    inner.OpenScope();

    ContextAttributesUtils::SetCustomContextAttributes(Pairs());

    EXPECT_EQ(m_events->First(MetricsEventType::AttributePairs).contextId, inner.GetId());
}

TEST_F(ContextAttributesUtilsTest, AScopesFlagsDoNotMatter) {
    {
        const ActivityScope scope("work", Traits(TraceType::Untracked, 0x40));
        m_events->Clear();

        ContextAttributesUtils::Set(Pairs());

        EXPECT_EQ(m_events->First(MetricsEventType::AttributePairs).flags, 0x0020000000000000U);
    }
}

TEST_F(ContextAttributesUtilsTest, TheListIsEmptyAfterwards) {
    ExpectListsToBeConsumed();
}

TEST_F(ContextAttributesUtilsTest, AnEmptyListSendsNothing) {
    ContextAttributesUtils::Set({});
    ContextAttributesUtils::SetCustomContextAttributes({});

    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ContextAttributesUtilsTest, WithoutAContextOnTheThreadNothingIsSentAndTheListIsConsumed) {
    OnAnotherThread([] {
        ExpectListsToBeConsumed();
        EXPECT_EQ(CurrentMetricsContext(), 0U);
    });

    EXPECT_THAT(m_events->Contents(), IsEmpty()) << "no context is made for the attributes";
}

TEST_F(ContextAttributesUtilsTest, WithoutAListenerNothingIsSentAndTheListIsConsumed) {
    StopListening(m_events);
    ExpectListsToBeConsumed();
    EXPECT_THAT(m_events->Contents(), IsEmpty());
}

TEST_F(ContextAttributesUtilsTest, AListenerForOtherBitsGetsNothing) {
    StopListening(m_events);
    const auto others = Listen(uint64{1} << 3, false);

    ContextAttributesUtils::Set(Pairs());

    EXPECT_THAT(others->Contents(), IsEmpty());
}

TEST_F(ContextAttributesUtilsTest, OptionsDoNotMatter) {
    OptTarn::SetIsTarnEnabled(false);
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    ContextAttributesUtils::Set(Pairs());

    EXPECT_EQ(m_events->Count(MetricsEventType::AttributePairs), 1U);
}

TEST_F(ContextAttributesUtilsTest, OrderAndDoublesAreKept) {
    ContextAttributesUtils::Set({{"b", 1}, {"a", 2}, {"b", 3}});

    EXPECT_THAT(m_events->Contents(),
                ElementsAre(SendsContextPairs(u"reqCtxAttrs", {{"b", 1}, {"a", 2}, {"b", 3}})));
}

TEST_F(ContextAttributesUtilsTest, CopyAssigningTheUtilitiesIsAllowed) {
    EXPECT_TRUE(std::is_copy_assignable_v<ContextAttributesUtils>);
}

}  // namespace
}  // namespace tarn::test
