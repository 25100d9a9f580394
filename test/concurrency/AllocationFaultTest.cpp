#include "AllocationCounter.h"
#include "FaultTest.h"
#include "ScopeTest.h"
#include "ThreadActivityRegistry.h"

#include "tarn/ActivityScope.h"
#include "tarn/CustomContext.h"
#include "tarn/OptTarn.h"
#include "tarn/ThreadContextPropagator.h"
#include "tarn/Traits.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/Scope.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <atomic>
#include <functional>
#include <latch>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::test {
namespace {

using Metrics::DeliveryMode;
using Metrics::MetricsEvent;
using Metrics::NameValueList;

constexpr const char* longText = "a text that is too long for any small buffer of a string";

/// Makes one allocation of the delivering thread fail: the one that the next order names. Orders
/// are scopes of the host that the monitor passes over; they take the road of all events, so they
/// separate exactly what was emitted before from what is emitted after.
class Saboteur : public Metrics::IMetricsListener {
public:
    static constexpr uint64 bits = 1;

    void OnMetricsEvent(const MetricsEvent& event) override {
        if (event.flags != bits || event.type != Metrics::MetricsEventType::OpenScope) {
            return;
        }
        if (m_failing) {
            m_hasFailed = m_failing->HasFailed();
            m_failing.reset();
        } else {
            m_failing.emplace(m_number);
        }
    }

    void LetFail(uint64 number) {
        m_number = number;
        GiveOrder();
    }

    void Stop() { GiveOrder(); }

    bool HasFailed() const { return m_hasFailed; }

private:
    static void GiveOrder() {
        const UnfailingAllocations unfailing;
        Metrics::Scope order(bits);
        order.OpenImpl("order");
    }

    std::atomic<uint64> m_number{0};
    std::atomic<bool> m_hasFailed{false};
    std::optional<FailingAllocation> m_failing;
};

enum class Where { EmittingThread, DeliveringThread };

struct Setting {
    DeliveryMode mode;
    Where where;
    bool foreground;
    bool resources;
};

std::string NameOfSetting(const testing::TestParamInfo<Setting>& info) {
    const Setting& setting = info.param;
    return std::string(setting.mode == DeliveryMode::Synchronous ? "Synchronous" : "Asynchronous") +
           (setting.where == Where::EmittingThread ? "OnTheEmittingThread"
                                                   : "OnTheDeliveringThread") +
           (setting.foreground ? "WithForegroundContexts" : "") +
           (setting.resources ? "WithResources" : "");
}

class AllocationFaultTest : public FaultTest {
protected:
    AllocationFaultTest() {
        Metrics::MetricsManager::GetInstance().AddConsumer(m_saboteur, Saboteur::bits, false);
    }

    ~AllocationFaultTest() override {
        Metrics::MetricsManager::GetInstance().RemoveConsumer(m_saboteur);
    }

    void MeasureResources() {
        corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
        corvala::cputime::SetCpuTrackingEnabled(true);
        OptTarn::SetIsTarnPlatforms(true);
        OptTarn::SetIsUnitTest(true);
        m_monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingAll);
    }

    /// A call that may throw when memory runs out, and nothing else. Whether it has not.
    template <class Call>
    static bool Succeeds(const Call& call) {
        try {
            call();
        } catch (const std::bad_alloc&) {
            return false;
        } catch (...) {
            ADD_FAILURE() << "the headers say nothing of this exception";
            return false;
        }
        return true;
    }

    /// All that one scope can do in its life, with a child of its own in a child context. Whether
    /// it came into being.
    static bool TakeTheRoad() {
        std::optional<ActivityScope> scope;
        const bool isOpen = Succeeds([&scope] {
            scope.emplace("load",
                          CustomContext(NameValueList{{"layer", "load"}}),
                          Traits(),
                          NameValueList{{"path", longText}, {u"wide", u"w"}, {"rows", 3}});
        });
        if (!isOpen) {
            return false;
        }
        Succeeds([&scope] { scope->Add({{"added", longText}, {"half", 0.5}}); });
        Succeeds([&scope] { scope->Log({{"step", longText}}); });
        Succeeds([&scope] { scope->AddContext(CustomContext(NameValueList{{"layer", "more"}})); });
        Succeeds([] {
            const ThreadContextPropagator propagator;
            Metrics::Context child(0, Metrics::Context::Create(false));
            child.OpenScope();
            const ActivityScope inner("parse", {{"under", longText}});
        });
        Succeeds([&scope] { scope->Cancel({{"msg", longText}}); });
        return true;
    }

    /// The activity contexts that a construction left which threw: the thread keeps them.
    static void DropContextsAbove(std::size_t depth) {
        ThreadActivityRegistry& registry = ThreadActivityRegistry::GetInstance();
        while (registry.GetDepth() > depth) {
            registry.Remove(registry.GetCurrentContext());
        }
    }

    /// Takes the road with one allocation failing. Whether there were so many allocations.
    bool FailOne(Where where, uint64 number) {
        m_lines->clear();
        bool hasFailed = false;
        bool hasComeAbout = false;
        {
            Metrics::Context context(0, Metrics::Context::Create(true));
            context.OpenScope();
            const ActivityScope outer("outer", CustomContext(NameValueList{{"layer", "outer"}}));
            const std::size_t depth = ThreadActivityRegistry::GetInstance().GetDepth();
            if (where == Where::EmittingThread) {
                const FailingAllocation failing(number);
                hasComeAbout = TakeTheRoad();
                hasFailed = failing.HasFailed();
            } else {
                m_saboteur->LetFail(number);
                hasComeAbout = TakeTheRoad();
                m_saboteur->Stop();
                Deliver();
                hasFailed = m_saboteur->HasFailed();
            }
            DropContextsAbove(depth);
            const ActivityScope fresh("fresh");
        }
        {
            Metrics::Context context(0, Metrics::Context::Create(true));
            context.OpenScope();
            const ActivityScope after("after");
        }
        Deliver();
        ExpectSoundLog(hasComeAbout);
        ExpectNothingOpen();
        EXPECT_EQ(CurrentMemoryFrame(), nullptr);
        return hasFailed;
    }

    void ExpectSoundLog(bool hasComeAbout) const {
        const LoggedLines outer = Lines("outer");
        EXPECT_EQ(outer.begins, 1);
        EXPECT_EQ(outer.ends, 1);
        EXPECT_EQ(outer.sponsor, "");
        for (const char* const name : {"load", "parse"}) {
            const LoggedLines lines = Lines(name);
            EXPECT_LE(lines.begins, 1) << name;
            EXPECT_LE(lines.ends, 1) << name;
        }
        const LoggedLines fresh = Lines("fresh");
        EXPECT_EQ(fresh.begins, 1);
        EXPECT_EQ(fresh.ends, 1);
        EXPECT_EQ(fresh.sponsor, outer.id);
        if (hasComeAbout) {
            EXPECT_EQ(fresh.layer, "\"outer\"") << "each scope takes away its own layers";
            EXPECT_EQ(outer.layer, "\"outer\"");
        }
        const LoggedLines load = Lines("load");
        if (load.begins + load.ends > 0) {
            EXPECT_EQ(load.sponsor, outer.id);
        }
        const LoggedLines parse = Lines("parse");
        if (parse.begins + parse.ends > 0) {
            EXPECT_THAT(parse.sponsor, testing::AnyOf(load.id, outer.id));
        }
        const LoggedLines after = Lines("after");
        EXPECT_EQ(after.begins, 1);
        EXPECT_EQ(after.ends, 1);
        EXPECT_EQ(after.sponsor, "");
        EXPECT_EQ(after.layer, std::nullopt);
    }

    const RefCntPtr<Saboteur> m_saboteur{new Saboteur};
};

class EveryAllocationFaultTest : public AllocationFaultTest,
                                 public testing::WithParamInterface<Setting> {};

TEST_P(EveryAllocationFaultTest, WhicheverAllocationFailsTheHostGoesOnAndTheMonitorIsSound) {
    const Setting& setting = GetParam();
    Start(setting.mode);
    OptTarn::SetIsForegroundThreadContextEnabled(setting.foreground);
    if (setting.resources) {
        MeasureResources();
    }
    constexpr uint64 atMost = 5000;
    FailOne(setting.where, atMost);  // what is made once in a process is made now

    uint64 failures = 0;
    while (failures < atMost && !HasFailure()) {
        SCOPED_TRACE("allocation " + std::to_string(failures));
        if (!FailOne(setting.where, failures)) {
            break;
        }
        ++failures;
    }

    RecordProperty("failures", static_cast<int>(failures));
    EXPECT_GE(failures, 10U) << "the road has more allocations than that";
    EXPECT_LT(failures, atMost);
}

INSTANTIATE_TEST_SUITE_P(
    ,
    EveryAllocationFaultTest,
    testing::Values(Setting{DeliveryMode::Synchronous, Where::DeliveringThread, false, false},
                    Setting{DeliveryMode::Synchronous, Where::DeliveringThread, true, false},
                    Setting{DeliveryMode::Synchronous, Where::DeliveringThread, false, true},
                    Setting{DeliveryMode::Synchronous, Where::DeliveringThread, true, true},
                    Setting{DeliveryMode::Asynchronous, Where::EmittingThread, false, false},
                    Setting{DeliveryMode::Asynchronous, Where::EmittingThread, true, false},
                    Setting{DeliveryMode::Asynchronous, Where::EmittingThread, false, true},
                    Setting{DeliveryMode::Asynchronous, Where::EmittingThread, true, true},
                    Setting{DeliveryMode::Asynchronous, Where::DeliveringThread, false, false},
                    Setting{DeliveryMode::Asynchronous, Where::DeliveringThread, true, false},
                    Setting{DeliveryMode::Asynchronous, Where::DeliveringThread, false, true},
                    Setting{DeliveryMode::Asynchronous, Where::DeliveringThread, true, true}),
    NameOfSetting);

TEST_F(AllocationFaultTest, ADeliveringThreadThatCannotStartLeavesTheDeliveryToTheEmittingThread) {
    Start(DeliveryMode::Asynchronous);
    Metrics::Context context(0, Metrics::Context::Create(true));
    context.OpenScope();
    Deliver();

    bool hasFailed = true;
    for (uint64 number = 0; hasFailed && number < 100; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        ASSERT_TRUE(Metrics::Shutdown(std::chrono::seconds(30)));
        Metrics::SetDelivery({.mode = DeliveryMode::Asynchronous});
        m_lines->clear();
        {
            const FailingAllocation failing(number);
            const bool isOpen = Succeeds([] { const ActivityScope scope("load"); });
            hasFailed = failing.HasFailed();
            EXPECT_TRUE(isOpen || hasFailed);
        }
        Deliver();
        EXPECT_EQ(Lines("load").begins, Lines("load").ends);
    }

    EXPECT_FALSE(hasFailed);
}

TEST_F(AllocationFaultTest, AFirstScopeOfAThreadThatFindsNoMemoryLeavesNoContextOpen) {
    Start(DeliveryMode::Asynchronous);

    bool hasFailed = true;
    uint64 number = 0;
    for (; hasFailed && number < 100; ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        {
            const FailingAllocation failing(number);
            Succeeds([] { const ActivityScope scope("load"); });
            hasFailed = failing.HasFailed();
        }
        Deliver();
        ExpectNothingOpen();
    }

    EXPECT_FALSE(hasFailed);
    EXPECT_GE(number, 3U);
}

/// Scopes that are opened on one thread each and closed on another one that has no memory for its
/// first allocation. How many of these threads asked for some.
int CloseOnNewThreadsWithoutMemory(int count) {
    std::latch all(count);
    std::atomic<int> failures{0};
    OnThreadsAtOnce(count, [&](int) {
        auto context = std::make_unique<Metrics::Context>(0, Metrics::Context::Create(true));
        context->OpenScope();
        auto scope = std::make_unique<ActivityScope>("load", TraceType::Untracked);
        scope->DetachFromThread();
        context->DetachFromThread();
        std::thread([&] {
            {
                const FailingAllocation failing(0);
                scope.reset();
                failures += failing.HasFailed() ? 1 : 0;
            }
            all.arrive_and_wait();
        }).join();
    });
    return failures;
}

TEST_F(AllocationFaultTest, AScopeThatEndsOnANewThreadWithoutMemoryIsWholeAllTheSame) {
    Start(DeliveryMode::Asynchronous);

    // Threads take over queues that others have left, of earlier tests too: more threads at once
    // until there are not enough of these for all.
    constexpr int step = 20;
    int scopes = 0;
    int failures = 0;
    for (int count = step; failures == 0 && count <= 50 * step; count += step) {
        failures = CloseOnNewThreadsWithoutMemory(count);
        scopes += count;
    }
    Deliver();

    EXPECT_GT(failures, 0);
    EXPECT_EQ(Lines("load").begins, scopes);
    EXPECT_EQ(Lines("load").ends, scopes);
    ExpectNothingOpen();
}

}  // namespace
}  // namespace tarn::test
