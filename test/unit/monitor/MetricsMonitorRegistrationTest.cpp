#include "MetricsMonitorRegistrationTest.h"

#include "EventBuilder.h"
#include "HostCounters.h"
#include "KnownIds.h"
#include "Matchers.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"

#include "cvlcoreplatform/TLog.h"
#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/Scope.h"
#include "cvlmetrics/host/Statistics.h"

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::Begins;
using tarn::test::Ends;
using tarn::test::EventBuilder;
using tarn::test::HasActivityField;
using tarn::test::KnownIds;
using tarn::test::MetricsMonitorRegistrationTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

uint64 ConsumerCount() {
    return Metrics::MetricsManager::GetInstance().GetConsumerCount();
}

// ---- Construction.

TEST_F(MetricsMonitorRegistrationTest, AMonitorBuiltWhileTracingIsDisabledKnowsNoContext) {
    OptTarn::SetIsTarnEnabled(false);

    const Monitor monitor(new MetricsMonitor(rootContext));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_THAT(Log().Messages(), IsEmpty());
}

TEST_F(MetricsMonitorRegistrationTest, AMonitorBuiltWhileTracingIsEnabledKnowsItsRootContext) {
    const Monitor monitor(new MetricsMonitor(rootContext));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 0U);
}

TEST_F(MetricsMonitorRegistrationTest, TheRootContextIsKnownButNotOpenBeforeTheBusOpensIt) {
    const Monitor monitor = MakeMonitor();

    monitor->OnMetricsEvent(EventBuilder::OpenScope(1, "early").In(rootContext));
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);

    monitor->OnMetricsEvent(EventBuilder::OpenContext(rootContext));
    monitor->OnMetricsEvent(EventBuilder::OpenScope(2, "query").In(rootContext));
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 1U);
}

TEST_F(MetricsMonitorRegistrationTest, EnablingTracingLaterDoesNotMakeTheRootContextKnown) {
    OptTarn::SetIsTarnEnabled(false);
    const Monitor monitor = MakeMonitor();

    OptTarn::SetIsTarnEnabled(true);
    monitor->OnMetricsEvent(EventBuilder::OpenContext(rootContext));
    monitor->OnMetricsEvent(EventBuilder::OpenScope(1, "query").In(rootContext));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(MetricsMonitorRegistrationTest, BuildingSaysWhichContextItIsForAtInfoSeverity) {
    const Monitor monitor(new MetricsMonitor(18446744073709551615U));

    EXPECT_THAT(
        Log().Messages(),
        ElementsAre(Pair(TLog::Info, "Opening MetricsMonitor for context 18446744073709551615")));
}

TEST_F(MetricsMonitorRegistrationTest, BuildingCountsTheRootContext) {
    tarn::test::HostCounters counters;

    const Monitor monitor(new MetricsMonitor(rootContext));

    EXPECT_THAT(counters.calls,
                ElementsAre(tarn::test::HostCounters::Call{"contextsCreated", 1, 1}));
}

TEST_F(MetricsMonitorRegistrationTest, BuildingWhileTracingIsDisabledCountsNothing) {
    tarn::test::HostCounters counters;
    OptTarn::SetIsTarnEnabled(false);

    const Monitor monitor(new MetricsMonitor(rootContext));

    EXPECT_THAT(counters.calls, IsEmpty());
    EXPECT_EQ(counters.contextsCreated, 0);
}

TEST_F(MetricsMonitorRegistrationTest, AnUnknownContextHasNoOpenScopes) {
    const Monitor monitor(new MetricsMonitor(rootContext));

    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(99), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(0), 0U);
    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
}

TEST_F(MetricsMonitorRegistrationTest, TheMonitorIsAListenerThatIsCounted) {
    const RefCntPtr<Metrics::IMetricsListener> listener =
        RefCntPtr<MetricsMonitor>(new MetricsMonitor(rootContext));

    EXPECT_EQ(listener->GetRefCount(), 1);
}

// ---- Destruction.

TEST_F(MetricsMonitorRegistrationTest, DestroyingDropsWhatIsOpenWithoutEvents) {
    Monitor monitor = MakeMonitor();
    monitor->OnMetricsEvent(EventBuilder::OpenContext(rootContext));
    monitor->OnMetricsEvent(EventBuilder::OpenScope(1, "query").In(rootContext));
    tarn::test::HostCounters counters;

    monitor = {};

    EXPECT_THAT(*m_events, ElementsAre(Begins("query")));
    EXPECT_EQ(counters.contextsClosed, 0);
    EXPECT_EQ(counters.scopesClosed, 0);
}

TEST_F(MetricsMonitorRegistrationTest, DestroyingReleasesTheRequestContextsAndCountsThat) {
    Monitor monitor = MakeMonitor();
    monitor->OnMetricsEvent(EventBuilder::OpenContext(rootContext));
    monitor->OnMetricsEvent(EventBuilder::OpenScope(1, "query").In(rootContext));
    tarn::test::HostCounters counters;

    monitor = {};

    EXPECT_THAT(counters.calls,
                ElementsAre(tarn::test::HostCounters::Call{"requestContextsClosed", 1, 1}));
}

// ---- Registration.

TEST_F(MetricsMonitorRegistrationTest, RegisteringSubscribesAndUnregisteringEndsIt) {
    const Monitor monitor = MakeMonitor();
    const uint64 before = ConsumerCount();

    monitor->Register(false);
    EXPECT_EQ(ConsumerCount(), before + 1);
    EXPECT_EQ(monitor->GetRefCount(), 2);

    monitor->Unregister();
    EXPECT_EQ(ConsumerCount(), before);
    EXPECT_EQ(monitor->GetRefCount(), 1);
}

TEST_F(MetricsMonitorRegistrationTest, TheBusKeepsARegisteredMonitorAlive) {
    Monitor monitor = MakeMonitor();
    monitor->Register(false);
    MetricsMonitor* const alive = monitor.Get();

    monitor = {};

    EXPECT_EQ(alive->GetNumberOpenContexts(), 1U);
    alive->Unregister();
}

TEST_F(MetricsMonitorRegistrationTest, RegisteringTwiceSubscribesOnce) {
    const Monitor monitor = MakeMonitor();
    const uint64 before = ConsumerCount();

    monitor->Register(false);
    monitor->Register(true);
    EXPECT_EQ(ConsumerCount(), before + 1);

    monitor->Unregister();
    EXPECT_EQ(ConsumerCount(), before);
}

TEST_F(MetricsMonitorRegistrationTest, RegisteringWhileTracingIsDisabledDoesNotReachTheBus) {
    const Monitor monitor = MakeMonitor();
    const uint64 before = ConsumerCount();
    OptTarn::SetIsTarnEnabled(false);

    monitor->Register(true);

    EXPECT_EQ(ConsumerCount(), before);
    EXPECT_EQ(monitor->GetRefCount(), 1);
}

TEST_F(MetricsMonitorRegistrationTest, UnregisteringWhileTracingIsDisabledLeavesItSubscribed) {
    const Monitor monitor = MakeMonitor();
    monitor->Register(true);
    const uint64 registered = ConsumerCount();

    OptTarn::SetIsTarnEnabled(false);
    monitor->Unregister();
    EXPECT_EQ(ConsumerCount(), registered);

    OptTarn::SetIsTarnEnabled(true);
    monitor->Unregister();
    EXPECT_EQ(ConsumerCount(), registered - 1);
}

TEST_F(MetricsMonitorRegistrationTest, UnregisteringAMonitorThatIsNotRegisteredIsHarmless) {
    const Monitor monitor = MakeMonitor();
    const uint64 before = ConsumerCount();

    monitor->Unregister();

    EXPECT_EQ(ConsumerCount(), before);
    EXPECT_EQ(monitor->GetRefCount(), 1);
}

TEST_F(MetricsMonitorRegistrationTest, ItSubscribesToScopesWithTheTracingBit) {
    const Monitor monitor = MakeMonitor();

    monitor->Register(false);

    EXPECT_TRUE(Metrics::TestBits(0x0020000000000000));
    EXPECT_FALSE(Metrics::TestBits(~uint64{0x0020000000000000}));
    monitor->Unregister();
}

TEST_F(MetricsMonitorRegistrationTest, TheFlagAsksForScopesWithoutTheTracingBitToo) {
    const Monitor monitor = MakeMonitor();

    monitor->Register(true);

    EXPECT_TRUE(Metrics::TestBits(0));
    monitor->Unregister();
}

TEST_F(MetricsMonitorRegistrationTest, ARegisteredMonitorReceivesTheScopesOfTheBus) {
    const uint64 id = Metrics::Context::Create(true);
    const Monitor monitor = MakeMonitor(id);
    monitor->Register(false);
    {
        Metrics::Context context(0, id);
        context.OpenScope();

        {
            Metrics::Scope scope(Metrics::flagTracing);
            scope.OpenImpl("query");
            EXPECT_EQ(monitor->GetNumberOpenScopesForContext(id), 1U);
        }
    }

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 0U);
    monitor->Unregister();
    EXPECT_THAT(*m_events, ElementsAre(Begins("query"), Ends("query")));
}

TEST_F(MetricsMonitorRegistrationTest, AHostsRequestScopeArrivesOnlyWithTheFlag) {
    for (const bool flag : {false, true}) {
        m_events->clear();
        const uint64 id = Metrics::Context::Create(true);
        const Monitor monitor = MakeMonitor(id);
        monitor->Register(flag);
        {
            Metrics::Context context(0, id);
            context.OpenScope();

            Metrics::Scope scope(0);
            scope.OpenImpl("request");
        }
        monitor->Unregister();

        EXPECT_EQ(m_events->size(), flag ? 2U : 0U) << "flag " << flag;
    }
}

TEST_F(MetricsMonitorRegistrationTest, AfterUnregisteringNothingArrivesAnyMore) {
    const uint64 id = Metrics::Context::Create(true);
    const Monitor monitor = MakeMonitor(id);
    monitor->Register(true);
    Metrics::Context context(0, id);
    context.OpenScope();

    monitor->Unregister();
    {
        Metrics::Scope scope(Metrics::flagTracing);
        scope.OpenImpl("query");
    }

    EXPECT_THAT(*m_events, IsEmpty());
    EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
}

// ---- What the monitor's own work emits.

/// Does something when it is given a certain event, and keeps all names.
class ActingSink : public IMetricsMonitorSink {
public:
    ActingSink(std::vector<std::string>& names, std::string trigger, std::function<void()> action)
        : m_names(names),
          m_trigger(std::move(trigger)),
          m_action(std::move(action)) {}

    void Log(const TLog::Event& event) override {
        m_names.push_back(event.GetName().ToUtf8());
        if (m_names.back() == m_trigger) {
            m_action();
        }
    }

private:
    std::vector<std::string>& m_names;
    std::string m_trigger;
    std::function<void()> m_action;
};

class RegisteredMonitorTest : public MetricsMonitorRegistrationTest {
protected:
    void SetUp() override {
        const uint64 id = Metrics::Context::Create(true);
        m_monitor = MakeMonitor(id);
        m_monitor->Register(true);
        m_context.emplace(0, id);
        m_context->OpenScope();
    }

    void TearDown() override {
        m_context.reset();
        m_monitor->Unregister();
    }

    static void TraceScope(const char* name) {
        Metrics::Scope scope(Metrics::flagTracing);
        scope.OpenImpl(name);
    }

    Monitor m_monitor;
    std::vector<std::string> m_names;

private:
    std::optional<Metrics::Context> m_context;
};

TEST_F(RegisteredMonitorTest, ASinkMayTraceAndItsScopesComeAfterwards) {
    m_monitor->EnableTest(new ActingSink(m_names, "begin-query", [] { TraceScope("from-sink"); }),
                          new KnownIds);

    TraceScope("query");

    EXPECT_THAT(m_names,
                ElementsAre("begin-query", "begin-from-sink", "end-from-sink", "end-query"));
    EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(RegisteredMonitorTest, ACounterCallbackMayTraceAndItsScopesComeAfterwards) {
    bool isFirst = true;
    OptTarn::SetCmonIncrementCounter([&isFirst](const std::string&, uint64) {
        if (std::exchange(isFirst, false)) {
            TraceScope("from-callback");
        }
    });

    TraceScope("query");

    OptTarn::SetCmonIncrementCounter([](const std::string&, uint64) {});
    EXPECT_THAT(*m_events,
                ElementsAre(Begins("query"),
                            AllOf(Begins("from-callback"), HasActivityField("depth", 1)),
                            Ends("from-callback"),
                            Ends("query")));
    EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(RegisteredMonitorTest, WhatTheSinkThrowsDoesNotReachTheHostsCode) {
    m_monitor->EnableTest(
        new ActingSink(m_names, "begin-query", [] { throw std::runtime_error("disk full"); }),
        new KnownIds);
    const uint64 before = Metrics::GetBusStatistics().consumerExceptions;

    EXPECT_NO_THROW(TraceScope("query"));

    EXPECT_EQ(Metrics::GetBusStatistics().consumerExceptions, before + 1);
    EXPECT_THAT(m_names, ElementsAre("begin-query", "end-query"));
    EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(RegisteredMonitorTest, ASinkMayUnregisterItsMonitor) {
    m_monitor->EnableTest(
        new ActingSink(m_names, "begin-query", [this] { m_monitor->Unregister(); }), new KnownIds);

    TraceScope("query");
    TraceScope("next");

    EXPECT_THAT(m_names, ElementsAre("begin-query"));
    EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 1U);
    EXPECT_EQ(m_monitor->GetRefCount(), 1);
}

}  // namespace
