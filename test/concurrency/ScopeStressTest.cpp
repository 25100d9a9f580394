#include "Environment.h"
#include "HostCounters.h"
#include "LineChecker.h"
#include "ScopeWorkload.h"
#include "TarnTest.h"

#include "tarn/MetricsMonitor.h"
#include "tarn/MonitorUUIDGenerator.h"
#include "tarn/OptTarn.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlmetrics/host/Statistics.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The tests together open two million scopes. The environment variable TARN_STRESS_SCOPES gives
// another number, for builds that are slow.

namespace {

using Metrics::DeliveryMode;
using Metrics::WhenQueueIsFull;

struct Setting {
    const char* way;
    DeliveryMode mode;
    WhenQueueIsFull whenFull;
    int threads;
    bool foreground;
};

constexpr uint64 settings = 11;

uint64 ScopesOfOneSetting() {
    return tarn::test::NumberFromEnvironment("TARN_STRESS_SCOPES").value_or(2'000'000) / settings +
           1;
}

class ScopeStressTest : public tarn::test::TarnTest, public testing::WithParamInterface<Setting> {
protected:
    static constexpr std::chrono::seconds timeout{60};
    static constexpr std::size_t queueBytes = std::size_t{32} << 10;

    void SetUp() override {
        const Setting& setting = GetParam();
        OptTarn::SetIsTarnEnabled(true);
        OptTarn::SetIsForegroundThreadContextEnabled(setting.foreground);
        m_counters.emplace();
        // The calls are not looked at, and would fill the memory.
        OptTarn::SetCmonIncrementCounter([](const std::string&, uint64) {});
        const uint64 root = Metrics::Context::Create(true);
        m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(root));
        m_counters->contextsCreated = 0;
        m_monitor->EnableTest(new stress::CheckingSink(m_checker, [this] { SleepNowAndThen(); }),
                              new MonitorUUIDGenerator);
        m_monitor->Register(true);
        Metrics::SetDelivery(
            {.mode = setting.mode, .whenFull = setting.whenFull, .queueBytes = queueBytes});
    }

    void TearDown() override {
        m_monitor->Unregister();
        EXPECT_TRUE(Metrics::Shutdown(timeout));
        Metrics::SetDelivery({});
        m_monitor = {};
    }

    void SleepNowAndThen() {
        if (m_random() % 2000 == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(m_random() % 1000));
        }
    }

    const std::shared_ptr<stress::LineChecker> m_checker = std::make_shared<stress::LineChecker>();
    std::optional<tarn::test::HostCounters> m_counters;
    std::mt19937 m_random{1};
    RefCntPtr<MetricsMonitor> m_monitor;
};

TEST_P(ScopeStressTest, EveryScopeThatWasAcceptedBeginsAndEndsOnceInOrderUnderItsSponsor) {
    const Setting& setting = GetParam();
    const Metrics::BusStatistics before = Metrics::GetBusStatistics();
    std::atomic<uint64> trees{0};
    stress::ScopeWorkload workload(
        setting.threads, 20'000 + static_cast<uint64>(setting.threads), [&] {
            // Without a rest now and then hardly anything would be accepted.
            if (setting.whenFull == WhenQueueIsFull::Refuse && ++trees % 3 != 0) {
                Metrics::Flush(timeout);
            }
        });

    workload.Run(ScopesOfOneSetting());
    ASSERT_TRUE(Metrics::Flush(timeout));

    const Metrics::BusStatistics after = Metrics::GetBusStatistics();
    const uint64 refused = after.refusedScopes - before.refusedScopes;
    EXPECT_EQ(m_checker->Errors(), 0U) << testing::PrintToString(m_checker->ErrorTexts());
    EXPECT_EQ(m_checker->Begins() + refused, workload.OpenedScopes());
    EXPECT_EQ(m_checker->Ends(), m_checker->Begins());
    EXPECT_EQ(m_checker->OpenTrees(), 0U);
    EXPECT_GT(workload.HandOvers(), 0U);
    EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(m_monitor->GetNumberOpenContexts(), 1U) << "the root of the monitor";
    EXPECT_EQ(static_cast<uint64>(m_counters->scopesOpened), m_checker->Begins());
    EXPECT_EQ(m_counters->scopesClosed, m_counters->scopesOpened);
    EXPECT_EQ(m_counters->contextsClosed, m_counters->contextsCreated);
    EXPECT_EQ(static_cast<uint64>(m_counters->requestContextsCreated), m_checker->Roots());
    EXPECT_EQ(m_counters->requestContextsClosed, m_counters->requestContextsCreated);
    EXPECT_EQ(after.lostEvents, before.lostEvents);
    EXPECT_EQ(after.consumerExceptions, before.consumerExceptions);
    if (setting.whenFull == WhenQueueIsFull::Refuse) {
        EXPECT_GT(refused, 0U);
        EXPECT_GT(m_checker->Begins(), workload.OpenedScopes() / 5);
        EXPECT_GT(m_checker->DeepestNesting(), 30U);
    } else {
        EXPECT_EQ(refused, 0U);
        EXPECT_EQ(m_checker->DeepestNesting(), static_cast<uint64>(stress::ScopeWorkload::deepest));
        EXPECT_EQ(static_cast<uint64>(m_counters->contextsCreated), workload.MadeContexts());
    }
    RecordProperty("scopes", std::to_string(workload.OpenedScopes()));
    RecordProperty("refused", std::to_string(refused));
    RecordProperty("waits", std::to_string(after.waits - before.waits));
}

Setting Synchronous(int threads, bool foreground = false) {
    return {"Synchronous", DeliveryMode::Synchronous, WhenQueueIsFull::Wait, threads, foreground};
}

Setting Waiting(int threads, bool foreground = false) {
    return {"Waiting", DeliveryMode::Asynchronous, WhenQueueIsFull::Wait, threads, foreground};
}

Setting Refusing(int threads) {
    return {"Refusing", DeliveryMode::Asynchronous, WhenQueueIsFull::Refuse, threads, false};
}

std::string NameOfSetting(const testing::TestParamInfo<Setting>& info) {
    return info.param.way + std::to_string(info.param.threads) +
           (info.param.foreground ? "WithForegroundContexts" : "");
}

INSTANTIATE_TEST_SUITE_P(,
                         ScopeStressTest,
                         testing::Values(Synchronous(2),
                                         Synchronous(8),
                                         Synchronous(32),
                                         Waiting(2),
                                         Waiting(8),
                                         Waiting(32),
                                         Refusing(2),
                                         Refusing(8),
                                         Refusing(32),
                                         Synchronous(8, true),
                                         Waiting(8, true)),
                         NameOfSetting);

}  // namespace
