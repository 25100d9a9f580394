#pragma once

#include "CapturingLog.h"
#include "RecordingListener.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/Scope.h"
#include "cvlsys/RefCntObject.h"

#include <gtest/gtest.h>

/// What the tests of the metrics bus have in common.
namespace MetricsTest {

using tarn::test::RecordingListener;

/// A listener's registration, for the time of a block.
class Subscription {
public:
    Subscription(Metrics::IMetricsListener& listener, uint64 bits, bool everything)
        : m_listener(&listener) {
        Metrics::MetricsManager::GetInstance().AddConsumer(m_listener, bits, everything);
    }

    ~Subscription() { Metrics::MetricsManager::GetInstance().RemoveConsumer(m_listener); }

    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

private:
    RefCntPtr<Metrics::IMetricsListener> m_listener;
};

/// A root context that is current on the thread that made it.
class CurrentContext {
public:
    CurrentContext() : m_context(0, Metrics::Context::Create(true)) { m_context.OpenScope(); }

    uint64 Id() const { return m_context.GetId(); }

    Metrics::Context& Get() { return m_context; }

private:
    Metrics::Context m_context;
};

inline uint64 CurrentContextId() {
    return Metrics::MetricsManager::GetInstance().GetThreadContext().GetMetricsContextId();
}

/// Opens and closes a scope of traced work, which takes two events.
inline void Work(const char* name) {
    Metrics::Scope scope(Metrics::flagTracing);
    scope.OpenImpl(name);
}

/// A bus without consumers, before and after.
class MetricsBusTest : public testing::Test {
protected:
    // Not SetUp and TearDown: the members of the derived fixtures come after and go before.
    MetricsBusTest() { EXPECT_EQ(m_bus.GetConsumerCount(), 0U) << "there is a consumer already"; }

    ~MetricsBusTest() override {
        EXPECT_EQ(m_bus.GetConsumerCount(), 0U) << "the test leaves a consumer behind";
    }

    Metrics::MetricsManager& m_bus = Metrics::MetricsManager::GetInstance();
    RefCntPtr<RecordingListener> m_listener = new RecordingListener;
};

}  // namespace MetricsTest
