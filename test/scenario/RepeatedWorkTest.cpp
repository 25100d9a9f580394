// Work that is handed over once and done several times, as by a timer.
#include "CapturingLog.h"
#include "CapturingSink.h"
#include "KnownIds.h"
#include "ScopeTree.h"
#include "TarnTest.h"
#include "Threads.h"

#include "tarn/ActivityHandOver.h"
#include "tarn/ActivityScope.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/Context.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <memory>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::ActivityScope;
using tarn::test::OnAnotherThread;

class RepeatedWorkTest : public tarn::test::TarnTest {
protected:
    RepeatedWorkTest() {
        OptTarn::SetIsTarnEnabled(true);
        OptTarn::SetIsForegroundThreadContextEnabled(true);
        const uint64 root = Metrics::Context::Create(true);
        m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(root));
        m_monitor->EnableTest(new tarn::test::CapturingSink(m_events), new tarn::test::KnownIds);
        m_monitor->Register(true);
        m_root.emplace(0, root);
        m_root->OpenScope();
    }

    ~RepeatedWorkTest() override {
        m_root.reset();
        m_monitor->Unregister();
    }

    std::string Tree() const { return tarn::test::DrawScopeTree(*m_events); }

    /// The work with a context for the id, as by hand.
    static void WorkIn(uint64 contextId) {
        OnAnotherThread([contextId] {
            Metrics::Context context(0, contextId);
            context.OpenScope();
            const ActivityScope work("work");
        });
    }

    std::shared_ptr<tarn::test::CapturedEvents> m_events =
        std::make_shared<tarn::test::CapturedEvents>();
    RefCntPtr<MetricsMonitor> m_monitor;
    std::optional<Metrics::Context> m_root;
};

auto IsWarningOf(uint64 contextId) {
    return testing::Pair(
        TLog::Warn,
        testing::StartsWith("Context " + std::to_string(contextId) + " was opened although"));
}

TEST_F(RepeatedWorkTest, ATimerThatIsHandedOverOnceIsLoggedWithEachRun) {
    {
        const ActivityScope serve("serve");
        const tarn::ActivityHandOver timer;
        for (int run = 0; run < 3; ++run) {
            OnAnotherThread([&timer] { const tarn::ActivityHandOver::Run work(timer, "work"); });
        }
    }

    EXPECT_EQ(Tree(), "serve\n  work\n  work\n  work\n");
    EXPECT_THAT(Log().Messages(),
                testing::Not(testing::Contains(testing::Pair(TLog::Warn, testing::_))));
}

TEST_F(RepeatedWorkTest, AnIdThatIsOpenedAgainIsWarnedOfOnce) {
    const uint64 timer = Metrics::Context::Create(false);

    for (int run = 0; run < 3; ++run) {
        WorkIn(timer);
    }

    EXPECT_THAT(*m_events, testing::SizeIs(2)) << "an id is good for one context";
    EXPECT_THAT(Log().Messages(), testing::Contains(IsWarningOf(timer)).Times(1));
}

TEST_F(RepeatedWorkTest, AnIdThatIsOpenedAgainWhileItIsOpenIsWarnedOf) {
    const uint64 timer = Metrics::Context::Create(false);
    Metrics::Context first(0, timer);
    first.OpenScope();
    EXPECT_THAT(Log().Messages(), testing::Not(testing::Contains(IsWarningOf(timer))));

    WorkIn(timer);

    EXPECT_THAT(Log().Messages(), testing::Contains(IsWarningOf(timer)).Times(1));
}

}  // namespace
