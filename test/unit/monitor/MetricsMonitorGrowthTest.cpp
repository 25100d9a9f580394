// What a scope costs when there is, or has been, much of something. Where the costs of two sizes
// are compared, the bound lies far above what is expected, and far below what a loop within a loop
// costs.
#include "AllocationCounter.h"
#include "CapturingSink.h"
#include "Cost.h"
#include "MonitorTest.h"
#include "SilentSink.h"

#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::test::AllocationCounter;
using tarn::test::Begins;
using tarn::test::EventBuilder;
using tarn::test::LeastCostOf;
using tarn::test::SilentSink;

class MetricsMonitorGrowthTest : public tarn::test::MonitorTest {
protected:
    static constexpr uint64 overlappingIds = 1'000'000;

    /// Without the work of the sink.
    template <class Work>
    void Unwatched(const Work& work) {
        monitor->SetSink(std::make_unique<SilentSink>());
        work();
        monitor->SetSink(std::make_unique<tarn::test::CapturingSink>(events));
    }

    template <class Work>
    double UnwatchedCostOf(int runs, const Work& work) {
        double cost = 0;
        Unwatched([&] { cost = LeastCostOf(runs, work); });
        return cost;
    }

    /// A few scopes, one after the other, in the root context.
    double CostOfScopes() {
        return UnwatchedCostOf(7, [this] {
            for (uint64 id = 1; id <= 200; ++id) {
                Open(id, "query");
                Close(id);
            }
        });
    }

    /// Two scopes of which the outer one ends first, again and again.
    void Overlap(int times) {
        Unwatched([this, times] {
            for (int i = 0; i < times; ++i) {
                const uint64 id = m_nextId;
                m_nextId += 2;
                Open(id, "outer");
                Open(id + 1, "inner");
                Close(id);
                Close(id + 1);
            }
        });
    }

    static Metrics::NameValueList Attributes(int count) {
        Metrics::NameValueList attributes;
        for (int i = 0; i < count; ++i) {
            attributes.emplace_back("attribute " + std::to_string(i), i);
        }
        return attributes;
    }

    uint64 m_nextId = overlappingIds;
};

TEST_F(MetricsMonitorGrowthTest, AContextThatWandersBetweenThreadsStaysAsCheapAsItWas) {
    const auto wander = [this](int times) {
        for (int i = 0; i < times; ++i) {
            Send(EventBuilder::ContextValue(rootContext, "tid", 40 + i % 2));
        }
    };
    wander(2);
    const double before = CostOfScopes();

    const AllocationCounter allocations;
    wander(200'000);
    const uint64 kept = allocations.Allocations() - allocations.Releases();

    EXPECT_LT(CostOfScopes(), before * 3);
    EXPECT_LT(kept, 100U) << "nothing is kept of where it has been before";
    Open(7, "query");
    EXPECT_THAT(LastEvent(), tarn::test::HasThreadId(41));
}

TEST_F(MetricsMonitorGrowthTest, ConnectionIdsOfAContextAreNotKept) {
    const EventBuilder event = EventBuilder::ContextValue(rootContext, "cid", 9);
    Send(event);

    const AllocationCounter allocations;
    for (int i = 0; i < 10'000; ++i) {
        Send(event);
    }

    EXPECT_EQ(allocations.Allocations(), 0U);
}

TEST_F(MetricsMonitorGrowthTest, EndsOutOfOrderMakeLaterScopesNoDearer) {
    Overlap(1);
    const double before = CostOfScopes();

    Overlap(15'000);

    EXPECT_LT(CostOfScopes(), before * 5);
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(monitor->GetNumberOpenScopesForContext(rootContext), 15'001U)
        << "the ids stay where they are";
}

TEST_F(MetricsMonitorGrowthTest, EndsOutOfOrderTakeTheSameTimeHoweverManyThereHaveBeen) {
    const double few = LeastCostOf(3, [this] { Overlap(500); });

    const double many = LeastCostOf(3, [this] { Overlap(10'000); });

    EXPECT_LT(many, few * 20 * 5);
}

TEST_F(MetricsMonitorGrowthTest, AttributesOfAScopeTakeTimeInProportion) {
    const auto costOf = [this](int count) {
        const Metrics::NameValueList attributes = Attributes(count);
        return UnwatchedCostOf(3, [this, &attributes] {
            Open(7, "query", attributes);
            Close(7);
        });
    };

    const double few = costOf(3'000);

    // Few names fit into the processor's caches, many do not.
    EXPECT_LT(costOf(30'000), few * 10 * 6);
}

TEST_F(MetricsMonitorGrowthTest, LayersOfAContextTakeTimeInProportion) {
    const EventBuilder layer = EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}});
    const EventBuilder pop = EventBuilder::PostClose(rootContext);
    const auto costOf = [this, &layer, &pop](int count) {
        return LeastCostOf(3, [this, &layer, &pop, count] {
            for (int i = 0; i < count; ++i) {
                Send(layer);
            }
            for (int i = 0; i < count; ++i) {
                Send(pop);
            }
        });
    };

    const double few = costOf(1'000);

    EXPECT_LT(costOf(10'000), few * 10 * 3);
}

TEST_F(MetricsMonitorGrowthTest, LayersThatAreSharedWithChildrenTakeTimeInProportion) {
    const auto costOf = [this](int count) {
        return LeastCostOf(3, [this, count] {
            for (int i = 0; i < count; ++i) {
                Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", "blue"}}));
                Send(EventBuilder::CreateContext(2, rootContext));
                Send(EventBuilder::CloseContext(2));
            }
            for (int i = 0; i < count; ++i) {
                Send(EventBuilder::PostClose(rootContext));
            }
        });
    };

    const double few = costOf(500);

    EXPECT_LT(costOf(5'000), few * 10 * 3);
}

TEST_F(MetricsMonitorGrowthTest, AHundredThousandLayersAreGivenUpWithoutRecursion) {
    for (int i = 0; i < 100'000; ++i) {
        Send(EventBuilder::ContextPairs(rootContext, "ctx", {{"tenant", i}}));
    }

    Send(EventBuilder::CloseContext(rootContext));

    EXPECT_EQ(monitor->GetNumberOpenContexts(), 0U);
}

TEST_F(MetricsMonitorGrowthTest, FailuresOfManyChildrenTakeNoMemoryInTheirRequest) {
    Open(7, "outer");
    Open(8, "request");
    const auto fail = [this](int times) {
        Unwatched([this, times] {
            for (int i = 0; i < times; ++i) {
                Open(9, "work");
                Send(EventBuilder::ScopePairs(9, "resultAttrs", {{"rk", "error"}}));
                Close(9);
            }
        });
    };
    fail(100);
    const AllocationCounter hundredTimes;
    fail(100);
    const uint64 usual = hundredTimes.AllocatedBytes();

    const AllocationCounter tenThousandTimes;
    fail(10'000);

    // A list that grows with each failure would have taken a megabyte.
    EXPECT_LT(tenThousandTimes.AllocatedBytes(), usual * 100 + 200'000);
    Close(8);
    EXPECT_THAT(
        LastEvent(),
        testing::AllOf(
            tarn::test::HasActivityField("rnerr", 10'200),
            tarn::test::HasActivityField(
                "rv",
                tarn::test::LogValue::Object({{"msg", "detected in one or more sponsees"}}))));
}

// ---- Limits.

TEST_F(MetricsMonitorGrowthTest, AttributesAboveTheLimitAreLeftOutAndSaidOnce) {
    MetricsMonitor::Limits limits;
    limits.attributesPerScope = 2;
    monitor->SetLimits(limits);

    Open(7, "query", {{"a", 1}, {"b", 2}, {"c", 3}, {"a", 4}, {"d", 5}});
    EXPECT_THAT(LastEvent(),
                testing::AllOf(tarn::test::HasExactlyBodyFields({"a", "b"}),
                               tarn::test::HasBodyField("a", 4)));
    Send(EventBuilder::ScopePairs(7, "multiNVPs", {{"e", 6}, {"f", 7}, {"g", 8}}));
    Close(7);

    EXPECT_THAT(LastEvent(), tarn::test::HasExactlyBodyFields({"e", "f"}));
    EXPECT_EQ(monitor->GetStatistics().attributesLeftOut, 3U);
    EXPECT_THAT(Log().Messages(),
                testing::Contains(testing::Pair(
                    TLog::Warn, testing::StartsWith("A scope has more than 2 attributes."))));
    EXPECT_THAT(Log().Messages(), testing::SizeIs(2)) << "beside that the monitor was made";
}

TEST_F(MetricsMonitorGrowthTest, ScopesThatLieTooDeepAreLeftOutAndTheOthersGoOn) {
    MetricsMonitor::Limits limits;
    limits.nestedScopes = 2;
    monitor->SetLimits(limits);

    Open(7, "outer");
    Open(8, "inner");
    Open(9, "too deep");
    Open(10, "deeper");
    Close(10);
    Close(9);
    Close(8);
    Open(11, "again");
    Close(11);
    Close(7);

    EXPECT_THAT(
        EventNames(),
        testing::ElementsAre(
            "begin-outer", "begin-inner", "end-inner", "begin-again", "end-again", "end-outer"));
    EXPECT_EQ(monitor->GetStatistics().scopesLeftOut, 2U);
    EXPECT_THAT(Log().Messages(), testing::SizeIs(2)) << "beside that the monitor was made";
    EXPECT_EQ(monitor->GetNumberOpenScopes(), 0U);
}

TEST_F(MetricsMonitorGrowthTest, AttributesThatNoRequestTakesAreLimitedAndTheOthersStay) {
    MetricsMonitor::Limits limits;
    limits.pendingAttributes = 2;
    monitor->SetLimits(limits);

    for (const char* const name : {"user", "sid", "site", "pid"}) {
        Send(EventBuilder::ContextValue(rootContext, name, "known"));
    }
    Send(EventBuilder::ContextValue(rootContext, "tid", 41));
    Open(7, "query");

    EXPECT_THAT(LastEvent(),
                testing::AllOf(tarn::test::HasUser("known"),
                               tarn::test::HasSession("known"),
                               tarn::test::HasThreadId(41)));
    EXPECT_EQ(monitor->GetStatistics().pendingAttributesLeftOut, 2U);
    EXPECT_THAT(
        Log().Messages(),
        testing::Contains(testing::Pair(
            TLog::Warn, testing::StartsWith("A context without a request has got more than 2"))));
    EXPECT_THAT(Log().Messages(), testing::SizeIs(2)) << "beside that the monitor was made";

    Send(EventBuilder::ContextValue(rootContext, "user", "next"));
    Close(7);
    Open(8, "query");
    EXPECT_THAT(LastEvent(), tarn::test::HasUser("next")) << "there is room again";
}

TEST_F(MetricsMonitorGrowthTest, IdsWithoutARecordDoNotCountAsDepth) {
    Overlap(10);
    MetricsMonitor::Limits limits;
    limits.nestedScopes = 2;
    monitor->SetLimits(limits);

    Overlap(1);
    Open(7, "query");

    EXPECT_THAT(LastEvent(), Begins("query"));
    EXPECT_EQ(monitor->GetStatistics().scopesLeftOut, 0U);
}

}  // namespace
