#include "Environment.h"
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
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

// Many scopes in one process, whose memory stays as it is. The environment variable
// TARN_SOAK_SCOPES says how many; without it the tests are skipped.

namespace {

using Metrics::DeliveryMode;
using Metrics::WhenQueueIsFull;

int64 ResidentBytes() {
    std::ifstream file("/proc/self/statm");
    int64 all = 0;
    int64 resident = 0;
    file >> all >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

class SoakTest : public tarn::test::TarnTest {
protected:
    static constexpr std::chrono::seconds timeout{60};
    static constexpr uint64 round = 1'000'000;
    static constexpr int threads = 8;

    void Soak(DeliveryMode mode, WhenQueueIsFull whenFull) {
        const auto wanted = tarn::test::NumberFromEnvironment("TARN_SOAK_SCOPES");
        if (!wanted) {
            GTEST_SKIP() << "set TARN_SOAK_SCOPES to the number of scopes, or use preset nightly";
        }
        const uint64 scopes = *wanted;
        ASSERT_GE(scopes, 2 * round);
        OptTarn::SetIsTarnEnabled(true);
        Metrics::SetDelivery({.mode = mode, .whenFull = whenFull});
        const auto checker = std::make_shared<stress::LineChecker>();
        const RefCntPtr<MetricsMonitor> monitor(new MetricsMonitor(Metrics::Context::Create(true)));
        monitor->EnableTest(new stress::CheckingSink(checker), new MonitorUUIDGenerator);
        monitor->Register(true);

        RunRounds(scopes, whenFull, *checker);

        EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
        EXPECT_EQ(monitor->GetNumberOpenContexts(), 1U);
        monitor->Unregister();
        EXPECT_TRUE(Metrics::Shutdown(timeout));
        Metrics::SetDelivery({});
    }

private:
    static void RunRounds(uint64 scopes,
                          WhenQueueIsFull whenFull,
                          const stress::LineChecker& checker) {
        constexpr int64 mayGrow = int64{2} << 20;
        const Metrics::BusStatistics before = Metrics::GetBusStatistics();
        std::atomic<uint64> trees{0};
        stress::ScopeWorkload workload(threads, 7, [&] {
            if (whenFull == WhenQueueIsFull::Refuse && ++trees % 3 != 0) {
                Metrics::Flush(timeout);
            }
        });
        int64 residentBefore = 0;
        while (workload.OpenedScopes() < scopes) {
            workload.Run(round);
            ASSERT_TRUE(Metrics::Flush(timeout));
            if (residentBefore == 0) {
                residentBefore = ResidentBytes();
            }
        }
        const int64 residentAfter = ResidentBytes();
        const Metrics::BusStatistics after = Metrics::GetBusStatistics();
        const uint64 refused = after.refusedScopes - before.refusedScopes;

        std::cout << workload.OpenedScopes() << " scopes, " << refused << " refused, "
                  << after.waits - before.waits << " waits; resident " << residentBefore / 1024
                  << " KiB after the first million, " << residentAfter / 1024
                  << " KiB at the end\n";
        EXPECT_LT(residentAfter - residentBefore, mayGrow);
        EXPECT_LT(residentBefore - residentAfter, mayGrow);
        EXPECT_EQ(checker.Errors(), 0U) << testing::PrintToString(checker.ErrorTexts());
        EXPECT_EQ(checker.Begins() + refused, workload.OpenedScopes());
        EXPECT_EQ(checker.Ends(), checker.Begins());
        EXPECT_EQ(after.lostEvents, before.lostEvents);
    }
};

TEST_F(SoakTest, MemoryStaysFlatWithSynchronousDelivery) {
    Soak(DeliveryMode::Synchronous, WhenQueueIsFull::Wait);
}

TEST_F(SoakTest, MemoryStaysFlatWithAsynchronousDelivery) {
    Soak(DeliveryMode::Asynchronous, WhenQueueIsFull::Wait);
}

TEST_F(SoakTest, MemoryStaysFlatWhileScopesAreRefused) {
    Soak(DeliveryMode::Asynchronous, WhenQueueIsFull::Refuse);
}

}  // namespace
