#include "ChildProcess.h"
#include "MetricsAsynchronousTest.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Metrics::Context;
using Metrics::flagTracing;
using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::Scope;
using MetricsTest::CurrentContext;
using MetricsTest::Subscription;
using MetricsTest::Work;
using tarn::test::Closes;
using tarn::test::CreatesContext;
using tarn::test::EventContent;
using tarn::test::Opens;
using tarn::test::SendsValue;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

/// A back end whose own work is traced.
class TracingBackEnd : public TLog::LogBackEnd {
public:
    explicit TracingBackEnd(std::function<void()> work) : m_work(std::move(work)) {}

    void Write(TLog::Severity, const TLog::Event&) override { WorkOnce(); }

    void WriteMessage(TLog::Severity, const TString&) override { WorkOnce(); }

    int Lines() const { return m_lines; }

private:
    void WorkOnce() {
        ++m_lines;
        m_work();
    }

    const std::function<void()> m_work;
    std::atomic<int> m_lines{0};
};

/// The bus with a listener that logs a line for each scope's beginning and end, as a monitor does.
class MetricsLogBackEndTest : public MetricsTest::MetricsBusTest,
                              public testing::WithParamInterface<Metrics::DeliveryMode> {
protected:
    MetricsLogBackEndTest() {
        Metrics::SetDelivery({.mode = GetParam(), .queueBytes = MetricsTest::smallQueue});
        m_listener->CallOnEach([](const MetricsEvent& event) {
            if (event.type == MetricsEventType::OpenScope ||
                event.type == MetricsEventType::CloseScope) {
                LogLine();
            }
        });
    }

    ~MetricsLogBackEndTest() override {
        EXPECT_TRUE(Metrics::Shutdown(MetricsTest::timeout));
        Metrics::SetDelivery({});
        TLog::ReplaceBackEnd(m_backEndBefore);
    }

    static void LogLine() { TLog::Logger::Get().LogMessage(TLog::Info, TString(u"line")); }

    static void FlushAll() { ASSERT_TRUE(Metrics::Flush(MetricsTest::timeout)); }

    std::shared_ptr<TracingBackEnd> LogTo(std::function<void()> work) const {
        auto backEnd = std::make_shared<TracingBackEnd>(std::move(work));
        TLog::ReplaceBackEnd(backEnd);
        return backEnd;
    }

    uint64 NestedCalls() const {
        return TLog::GetLogStatistics().nestedCalls - m_statisticsBefore.nestedCalls;
    }

    const TLog::LogStatistics& StatisticsBefore() const { return m_statisticsBefore; }

    /// Of the scopes in a context.
    std::vector<EventContent> ScopeEventsOf(const CurrentContext& context) const {
        std::vector<EventContent> all = m_listener->ContentsOf(context.Id());
        all.erase(std::remove_if(all.begin(),
                                 all.end(),
                                 [](const EventContent& event) {
                                     return event.type < MetricsEventType::OpenScope ||
                                            event.type == MetricsEventType::Attribute;
                                 }),
                  all.end());
        return all;
    }

private:
    std::shared_ptr<TLog::LogBackEnd> m_backEndBefore = TLog::ReplaceBackEnd(nullptr);
    TLog::LogStatistics m_statisticsBefore = TLog::GetLogStatistics();
};

std::string NameOf(const testing::TestParamInfo<Metrics::DeliveryMode>& mode) {
    return mode.param == Metrics::DeliveryMode::Synchronous ? "Synchronously" : "Asynchronously";
}

INSTANTIATE_TEST_SUITE_P(Delivering,
                         MetricsLogBackEndTest,
                         testing::Values(Metrics::DeliveryMode::Synchronous,
                                         Metrics::DeliveryMode::Asynchronous),
                         NameOf);

TEST_P(MetricsLogBackEndTest, ScopesThatABackEndOpensForADeliveryAreDroppedAndCounted) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    const auto backEnd = LogTo([] {
        const CurrentContext own;
        Scope scope(flagTracing);
        scope.OpenImpl("nested");
        scope.EmitImpl(MetricsEventType::NameValue, "rows", 1);
    });

    Work("query");
    FlushAll();

    EXPECT_THAT(ScopeEventsOf(context), ElementsAre(Opens("query"), Closes("query")));
    EXPECT_EQ(backEnd->Lines(), 2);
    EXPECT_EQ(NestedCalls(), 2U);
    EXPECT_THAT(m_listener->Contents(), Not(Contains(Opens("nested"))));
}

TEST_P(MetricsLogBackEndTest, ScopesThatABackEndOpensForTheHostsOwnLineAreDroppedAndCounted) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    const auto backEnd = LogTo([] { Work("nested"); });

    LogLine();
    FlushAll();

    EXPECT_THAT(ScopeEventsOf(context), testing::IsEmpty());
    EXPECT_EQ(backEnd->Lines(), 1);
    EXPECT_EQ(NestedCalls(), 1U);
}

TEST_P(MetricsLogBackEndTest, AScopeThatABackEndKeepsOpenIsMissingWhole) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    std::optional<Scope> kept;
    LogTo([&kept] {
        kept.emplace(flagTracing);
        kept->OpenImpl("kept");
    });
    LogLine();
    LogTo([] {});

    kept->EmitImpl(MetricsEventType::NameValue, "rows", 1);
    kept.reset();
    FlushAll();

    EXPECT_THAT(ScopeEventsOf(context), testing::IsEmpty());
}

TEST_P(MetricsLogBackEndTest, AScopeOfTheHostsThatABackEndEndsIsLoggedWhole) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    std::optional<Scope> hosts;
    LogTo([] {});
    hosts.emplace(flagTracing);
    hosts->OpenImpl("hosts");
    FlushAll();
    const auto backEnd = LogTo([&hosts] {
        if (hosts.has_value()) {
            hosts->EmitImpl(MetricsEventType::NameValue, "rows", 1);
            hosts.reset();
        }
    });

    LogLine();
    FlushAll();

    EXPECT_THAT(ScopeEventsOf(context),
                ElementsAre(Opens("hosts"), SendsValue("rows", 1), Closes("hosts")));
    EXPECT_EQ(backEnd->Lines(), 2) << "the host's, and that of the end";
    EXPECT_EQ(NestedCalls(), 0U);
}

TEST_P(MetricsLogBackEndTest, AContextThatABackEndMakesIsAnnouncedWithItsFirstScopeElsewhere) {
    std::optional<CurrentContext> made;
    const Subscription subscription(*m_listener, flagTracing, false);
    LogTo([&made] { made.emplace(); });
    LogLine();
    LogTo([] {});
    FlushAll();
    const std::size_t before = m_listener->Count();

    Work("query");
    FlushAll();

    EXPECT_EQ(before, 0U);
    EXPECT_THAT(m_listener->Contents(), Contains(CreatesContext()));
    EXPECT_THAT(ScopeEventsOf(*made), ElementsAre(Opens("query"), Closes("query")));
}

// The locks of the logger and of the bus are taken by each of these in its own order if a back end
// takes part in the tracing.
TEST_P(MetricsLogBackEndTest, ForksReplacementsAndABackEndThatTracesDoNotWaitForEachOther) {
    constexpr int rounds = 60;
    std::atomic<bool> isOver{false};
    const Subscription subscription(*m_listener, flagTracing, false);
    std::list<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            const CurrentContext context;
            while (!isOver) {
                Work("query");
                LogLine();
            }
        });
    }
    int succeeded = 0;

    for (int round = 0; round < rounds; ++round) {
        LogTo([] {
            const CurrentContext own;
            Work("nested");
        });
        succeeded += tarn::test::SucceedsInChild([] { return true; }) ? 1 : 0;
    }
    isOver = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    FlushAll();

    EXPECT_EQ(succeeded, rounds);
    EXPECT_GT(NestedCalls(), 0U);
    EXPECT_THAT(m_listener->Contents(), Not(Contains(Opens("nested"))));
}

TEST_P(MetricsLogBackEndTest, ALogThatCannotBeWrittenLeavesTheHostsErrorNumberAlone) {
    const Subscription subscription(*m_listener, flagTracing, false);
    const CurrentContext context;
    TLog::ReplaceBackEnd(TLog::MakeJsonFileBackEnd("/dev/full"));
    testing::internal::CaptureStderr();
    int changed = 0;

    for (int i = 0; i < 1000; ++i) {
        errno = EAGAIN;
        Work("query");
        changed += errno == EAGAIN ? 0 : 1;
    }
    FlushAll();
    testing::internal::GetCapturedStderr();

    EXPECT_EQ(changed, 0);
    EXPECT_EQ(TLog::GetLogStatistics().lines, StatisticsBefore().lines);
}

}  // namespace
