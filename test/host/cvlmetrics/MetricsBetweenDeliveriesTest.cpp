#include "MetricsAsynchronousTest.h"

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using Metrics::flagTracing;
using MetricsTest::CurrentContext;
using MetricsTest::moment;
using MetricsTest::Subscription;
using MetricsTest::timeout;
using MetricsTest::Work;

using MetricsBetweenDeliveriesTest = MetricsTest::MetricsAsynchronousTest;

TEST_F(MetricsBetweenDeliveriesTest, TheCallWaitsForADeliveryThatHasBegun) {
    const Subscription subscription(*m_listener, flagTracing, true);
    HoldConsumer();
    EXPECT_FALSE(Metrics::CallBetweenDeliveries(moment, [] { FAIL() << "called meanwhile"; }));

    bool wasCalled = false;
    std::thread opener([this] { m_gate.Open(); });
    EXPECT_TRUE(Metrics::CallBetweenDeliveries(timeout, [&wasCalled] { wasCalled = true; }));
    opener.join();

    EXPECT_TRUE(wasCalled);
}

TEST_F(MetricsBetweenDeliveriesTest, WithinADeliveryItIsCalledAtOnce) {
    int calls = 0;
    const Subscription subscription(*m_listener, flagTracing, true);
    m_listener->CallOnEach([&calls](const Metrics::MetricsEvent&) {
        EXPECT_TRUE(Metrics::CallBetweenDeliveries(-1ms, [&calls] { ++calls; }));
    });
    { const CurrentContext context; }
    FlushAll();

    EXPECT_GT(calls, 0);
}

TEST_F(MetricsBetweenDeliveriesTest, WhatTheBodyEmitsIsDeliveredAfterIt) {
    Metrics::SetDelivery({});
    bool isInside = false;
    int within = 0;
    int after = 0;
    const Subscription subscription(*m_listener, flagTracing, true);
    const CurrentContext context;
    m_listener->CallOnEach([&](const Metrics::MetricsEvent&) { isInside ? ++within : ++after; });

    EXPECT_TRUE(Metrics::CallBetweenDeliveries(timeout, [&isInside] {
        isInside = true;
        Work("inside");
        isInside = false;
    }));

    EXPECT_EQ(within, 0);
    EXPECT_GE(after, 2);
}

}  // namespace
