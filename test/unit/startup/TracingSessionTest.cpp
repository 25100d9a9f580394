#include "tarn/TracingSession.h"

#include "CapturingSink.h"
#include "KnownIds.h"
#include "Matchers.h"
#include "TarnTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/MetricsManager.h"

#include <memory>
#include <optional>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::ActivityScope;
using tarn::TracingSession;
using tarn::test::Begins;
using tarn::test::CapturedEvents;
using tarn::test::CapturingSink;
using tarn::test::Ends;
using tarn::test::KnownIds;
using testing::ElementsAre;
using testing::IsEmpty;

uint64 CurrentContextId() {
    return Metrics::MetricsManager::GetInstance().GetThreadContext().GetMetricsContextId();
}

uint64 ConsumerCount() {
    return Metrics::MetricsManager::GetInstance().GetConsumerCount();
}

class TracingSessionTest : public tarn::test::TarnTest {
protected:
    void Capture(const TracingSession& session) {
        session.GetMonitor().EnableTest(new CapturingSink(m_events), new KnownIds);
    }

    std::shared_ptr<CapturedEvents> m_events = std::make_shared<CapturedEvents>();
};

TEST_F(TracingSessionTest, ScopesAreLoggedForAsLongAsItLives) {
    {
        const TracingSession session;
        Capture(session);
        const ActivityScope outer("outer");
        const ActivityScope inner("inner");
    }
    { const ActivityScope late("late"); }

    EXPECT_THAT(*m_events,
                ElementsAre(Begins("outer"), Begins("inner"), Ends("inner"), Ends("outer")));
}

TEST_F(TracingSessionTest, ItsContextIsCurrentOnItsThreadOnly) {
    ASSERT_EQ(CurrentContextId(), 0u);
    {
        const TracingSession session;

        EXPECT_NE(CurrentContextId(), 0u);
    }
    EXPECT_EQ(CurrentContextId(), 0u);
}

TEST_F(TracingSessionTest, TracingIsEnabledMeanwhileAndAsBeforeAfterwards) {
    OptTarn::SetIsTarnEnabled(false);
    {
        const TracingSession session;
        EXPECT_TRUE(OptTarn::GetIsTarnEnabled());
    }
    EXPECT_FALSE(OptTarn::GetIsTarnEnabled());

    OptTarn::SetIsTarnEnabled(true);
    { const TracingSession session; }
    EXPECT_TRUE(OptTarn::GetIsTarnEnabled());
}

TEST_F(TracingSessionTest, OneSessionAfterTheOtherLogsEachScopeOnce) {
    {
        const TracingSession session;
        Capture(session);
        const ActivityScope scope("first");
    }
    {
        const TracingSession session;
        Capture(session);
        const ActivityScope scope("second");
    }

    EXPECT_THAT(*m_events,
                ElementsAre(Begins("first"), Ends("first"), Begins("second"), Ends("second")));
}

TEST_F(TracingSessionTest, ItLeavesTheBusThoughTracingIsOffAtItsEnd) {
    const uint64 before = ConsumerCount();
    OptTarn::SetIsTarnEnabled(true);
    {
        const TracingSession session;
        OptTarn::SetIsTarnEnabled(false);
    }

    EXPECT_EQ(ConsumerCount(), before);
    EXPECT_TRUE(OptTarn::GetIsTarnEnabled()) << "as it was before the session";
}

TEST_F(TracingSessionTest, ASecondOneBesideTheFirstIsWarnedOf) {
    const auto warnings =
        testing::Contains(testing::Pair(TLog::Warn, testing::HasSubstr("another tracing session")));
    {
        const TracingSession first;
        EXPECT_THAT(Log().Messages(), testing::Not(warnings));

        const TracingSession second;
        EXPECT_THAT(Log().Messages(), warnings);
    }
    Log().Clear();

    const TracingSession alone;

    EXPECT_THAT(Log().Messages(), testing::Not(warnings));
}

TEST_F(TracingSessionTest, AnExceptionThatEndsItLeavesNoConsumerBehind) {
    const uint64 before = ConsumerCount();

    EXPECT_THROW(
        {
            const TracingSession session;
            throw std::runtime_error("the host's own");
        },
        std::runtime_error);

    EXPECT_EQ(ConsumerCount(), before);
    EXPECT_EQ(CurrentContextId(), 0u);
}

}  // namespace
