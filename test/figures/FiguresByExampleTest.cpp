#include "CapturingSink.h"
#include "FakeTime.h"
#include "KnownIds.h"
#include "TarnTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"
#include "tarn/ScopeWithVisualId.h"
#include "tarn/ThreadContextPropagator.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/Context.h"
#include "cvlmetrics/Scope.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/host/MemoryCharging.h"

#include <cmath>
#include <future>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The examples of docs/figures.md, with the figures that it gives.
namespace {

using corvala::memory::ChargeAllocation;
using figures::fake_time::Pass;
using figures::fake_time::UseProcessor;
using tarn::ActivityScope;
using tarn::TraceType;
using testing::ElementsAre;

constexpr int64 millisecond = 1'000'000;

/// A line of an example: what an end event says.
struct Line {
    std::string name;
    int64 inclusive = 0;
    int64 exclusive = 0;

    friend bool operator==(const Line&, const Line&) = default;

    friend void PrintTo(const Line& line, std::ostream* out) {
        *out << line.name << ' ' << line.inclusive << ' ' << line.exclusive;
    }
};

const TLog::Object& ObjectIn(const TLog::Object& object, const char16_t* name) {
    return dynamic_cast<const TLog::Object&>(*object.GetFields().at(TString(name)));
}

const TLog::Literal& LiteralIn(const TLog::Object& object, const char16_t* name) {
    return dynamic_cast<const TLog::Literal&>(*object.GetFields().at(TString(name)));
}

class FiguresByExampleTest : public tarn::test::TarnTest {
protected:
    void SetUp() override {
        OptTarn::SetIsTarnEnabled(true);
        OptTarn::SetIsTarnPlatforms(true);
        OptTarn::SetIsUnitTest(true);
        OptTarn::SetIsForegroundThreadContextEnabled(true);
        corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
        corvala::cputime::SetCpuTrackingEnabled(true);
        figures::fake_time::Install(false);
        const uint64 root = Metrics::Context::Create(true);
        m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(root));
        m_monitor->EnableTest(new tarn::test::CapturingSink(m_events), new tarn::test::KnownIds);
        m_monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingAll);
        m_monitor->Register(true);
        m_context.emplace(0, root);
        m_context->OpenScope();
    }

    void TearDown() override {
        m_context.reset();
        m_monitor->OverrideMemoryTrackingModeForTest(corvala::memory::MemoryTrackingOff);
        m_monitor->Unregister();
    }

    std::vector<const TLog::Object*> EndedActivities() const {
        std::vector<const TLog::Object*> activities;
        for (const TLog::Event& event : *m_events) {
            if (event.GetName().ToUtf8().rfind("end-", 0) == 0) {
                activities.push_back(dynamic_cast<const TLog::Object*>(
                    event.GetActivityInfo()->GetActivity().get()));
            }
        }
        return activities;
    }

    /// Allocated bytes, in the order in which the scopes ended.
    std::vector<Line> Allocated() const {
        std::vector<Line> lines;
        for (const TLog::Object* activity : EndedActivities()) {
            const TLog::Object& group = ObjectIn(ObjectIn(*activity, u"res"), u"alloc");
            lines.push_back({LiteralIn(*activity, u"name").GetString().ToUtf8(),
                             static_cast<int64>(LiteralIn(group, u"ai").GetDouble()),
                             static_cast<int64>(LiteralIn(group, u"ae").GetDouble())});
        }
        return lines;
    }

    std::vector<int64> Peaks() const {
        std::vector<int64> peaks;
        for (const TLog::Object* activity : EndedActivities()) {
            const TLog::Object& group = ObjectIn(ObjectIn(*activity, u"res"), u"alloc");
            peaks.push_back(static_cast<int64>(LiteralIn(group, u"apeak").GetDouble()));
        }
        return peaks;
    }

    /// Elapsed and exclusive milliseconds.
    std::vector<Line> Milliseconds() const {
        std::vector<Line> lines;
        for (const TLog::Object* activity : EndedActivities()) {
            lines.push_back({LiteralIn(*activity, u"name").GetString().ToUtf8(),
                             std::llround(LiteralIn(*activity, u"elapsed").GetDouble() * 1000),
                             std::llround(LiteralIn(*activity, u"exclusive").GetDouble() * 1000)});
        }
        return lines;
    }

    std::vector<Line> ProgramTimes() const {
        std::vector<Line> lines;
        for (const TLog::Object* activity : EndedActivities()) {
            const TLog::Object& group = ObjectIn(ObjectIn(*activity, u"res"), u"ucpu");
            lines.push_back({LiteralIn(*activity, u"name").GetString().ToUtf8(),
                             LiteralIn(group, u"ui").GetInt(),
                             LiteralIn(group, u"ue").GetInt()});
        }
        return lines;
    }

    /// Runs `work` on another thread in a scope of this name, handed over with both the activity
    /// and a metrics context.
    template <class Work>
    static void HandOver(const char* name, const Work& work) {
        const tarn::ThreadContextPropagator activity;
        const uint64 contextId = Metrics::Context::Create(false);
        tarn::test::OnAnotherThread([&] {
            Metrics::Context context(0, contextId);
            context.OpenScope();
            RunUnder(activity, name, work);
        });
    }

    template <class Work>
    static void RunUnder(const tarn::ThreadContextPropagator& activity,
                         const char* name,
                         const Work& work) {
        const ActivityScope scope(name,
                                  tarn::CustomContext(Metrics::NameValueList()),
                                  tarn::Traits(),
                                  Metrics::NameValueList(),
                                  {activity.GetContext(), false});
        work();
    }

    std::shared_ptr<tarn::test::CapturedEvents> m_events =
        std::make_shared<tarn::test::CapturedEvents>();

private:
    RefCntPtr<MetricsMonitor> m_monitor;
    std::optional<Metrics::Context> m_context;
};

TEST_F(FiguresByExampleTest, ExclusiveFiguresAddUpToTheRootsInclusiveOnes) {
    {
        const ActivityScope load("load");
        ChargeAllocation(100);
        Pass(5 * millisecond);
        const ActivityScope parse("parse");
        ChargeAllocation(30);
        Pass(3 * millisecond);
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"parse", 30, 30}, Line{"load", 130, 100}));
    EXPECT_THAT(Milliseconds(), ElementsAre(Line{"parse", 3, 3}, Line{"load", 8, 5}));
}

TEST_F(FiguresByExampleTest, CutOffPartsOfMillisecondsStayWithTheParent) {
    {
        const ActivityScope load("load");
        for (int i = 0; i < 2; ++i) {
            const ActivityScope step("step");
            Pass(millisecond + millisecond / 2);
        }
    }

    EXPECT_THAT(Milliseconds(),
                ElementsAre(Line{"step", 1, 1}, Line{"step", 1, 1}, Line{"load", 3, 1}));
}

TEST_F(FiguresByExampleTest, WorkOnAnotherThreadAddsItsMemoryAndLeavesTheTimeAlone) {
    {
        const ActivityScope dispatch("dispatch");
        ChargeAllocation(10);
        Pass(millisecond);
        HandOver("index", [] {
            ChargeAllocation(40);
            Pass(5 * millisecond);
        });
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"index", 40, 40}, Line{"dispatch", 50, 10}));
    EXPECT_THAT(Milliseconds(), ElementsAre(Line{"index", 5, 5}, Line{"dispatch", 6, 6}));
    EXPECT_THAT(Peaks(), ElementsAre(40, 10));
}

TEST_F(FiguresByExampleTest, ATransparentScopeThatIsNotLoggedKeepsItsTimeAndGivesItsMemoryAway) {
    {
        const ActivityScope load("load");
        ChargeAllocation(100);
        Pass(5 * millisecond);
        const ActivityScope pass("pass", TraceType::Transparent);
        ChargeAllocation(20);
        Pass(2 * millisecond);
        const ActivityScope parse("parse");
        ChargeAllocation(30);
        Pass(3 * millisecond);
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"parse", 30, 30}, Line{"load", 150, 120}));
    EXPECT_THAT(Milliseconds(), ElementsAre(Line{"parse", 3, 3}, Line{"load", 10, 5}));
}

TEST_F(FiguresByExampleTest, ATransparentScopeThatIsLoggedIsAlsoInItsParentsShare) {
    OptTarn::SetShouldLogTransparent(true);
    {
        const ActivityScope load("load");
        ChargeAllocation(100);
        const ActivityScope pass("pass", TraceType::Transparent);
        ChargeAllocation(20);
        const ActivityScope parse("parse");
        ChargeAllocation(30);
    }

    EXPECT_THAT(Allocated(),
                ElementsAre(Line{"parse", 30, 30}, Line{"pass", 50, 20}, Line{"load", 150, 120}));
}

TEST_F(FiguresByExampleTest, AnUntrackedScopeSumsItsChildrenAndItsOwnShareGoesToWhoMeasuresAround) {
    {
        const ActivityScope load("load");
        ChargeAllocation(100);
        const ActivityScope wrap("wrap", TraceType::Untracked);
        ChargeAllocation(5);
        const ActivityScope parse("parse");
        ChargeAllocation(30);
    }

    EXPECT_THAT(Allocated(),
                ElementsAre(Line{"parse", 30, 30}, Line{"wrap", 30, 0}, Line{"load", 135, 105}));
}

TEST_F(FiguresByExampleTest, WhatAnUntrackedRootUsesItselfIsNowhere) {
    {
        const ActivityScope job("job", TraceType::Untracked);
        ChargeAllocation(50);
        const ActivityScope step("step");
        ChargeAllocation(30);
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"step", 30, 30}, Line{"job", 30, 0}));
}

TEST_F(FiguresByExampleTest, ATransparentScopeInAnUntrackedOneLosesItsShare) {
    {
        const ActivityScope load("load");
        ChargeAllocation(100);
        const ActivityScope wrap("wrap", TraceType::Untracked);
        const ActivityScope pass("pass", TraceType::Transparent);
        ChargeAllocation(20);
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"wrap", 20, 0}, Line{"load", 120, 100}));
}

TEST_F(FiguresByExampleTest, ATransparentRootIsNotThereToCompareWith) {
    {
        const ActivityScope pass("pass", TraceType::Transparent);
        ChargeAllocation(20);
        const ActivityScope parse("parse");
        ChargeAllocation(30);
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"parse", 30, 30}));
}

TEST_F(FiguresByExampleTest, WithoutAMetricsContextTheFiguresDoNotReachWhoHandedOver) {
    {
        const ActivityScope dispatch("dispatch");
        ChargeAllocation(10);
        const tarn::ThreadContextPropagator activity;
        tarn::test::OnAnotherThread(
            [&] { RunUnder(activity, "index", [] { ChargeAllocation(40); }); });
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"index", 40, 40}, Line{"dispatch", 10, 10}));
}

TEST_F(FiguresByExampleTest, WorkThatOutlivesItsRootIsInNobodysFigures) {
    std::unique_ptr<ActivityScope> request = std::make_unique<ActivityScope>("serve");
    ChargeAllocation(10);
    const uint64 contextId = Metrics::Context::Create(false);
    const tarn::ThreadContextPropagator activity;
    request.reset();
    tarn::test::OnAnotherThread([&] {
        Metrics::Context context(0, contextId);
        context.OpenScope();
        RunUnder(activity, "cleanup", [] { ChargeAllocation(40); });
    });

    EXPECT_THAT(Allocated(), ElementsAre(Line{"serve", 10, 10}, Line{"cleanup", 40, 40}));
}

TEST_F(FiguresByExampleTest, WorkThatOutlivesItsSponsorGoesToTheNextOneThatIsOpen) {
    {
        const ActivityScope serve("serve");
        auto query = std::make_unique<ActivityScope>("query");
        const uint64 contextId = Metrics::Context::Create(false);
        const tarn::ThreadContextPropagator activity;
        query.reset();
        tarn::test::OnAnotherThread([&] {
            Metrics::Context context(0, contextId);
            context.OpenScope();
            RunUnder(activity, "cleanup", [] { ChargeAllocation(40); });
        });
    }

    EXPECT_THAT(Allocated(),
                ElementsAre(Line{"query", 0, 0}, Line{"cleanup", 40, 40}, Line{"serve", 40, 0}));
}

TEST_F(FiguresByExampleTest, ScopesThatEndOutOfOrderTakeTheEndsOfAllAroundThemAway) {
    {
        const ActivityScope job("job");
        auto outer = std::make_unique<ActivityScope>("outer", TraceType::Untracked);
        const ActivityScope inner("inner", TraceType::Untracked);
        outer.reset();
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"inner", 0, 0}));
}

TEST_F(FiguresByExampleTest, WorkThatComesBackToAMeasuringThreadIsCountedTwice) {
    {
        const ActivityScope job("job");
        std::promise<std::pair<uint64, tarn::ThreadContextPropagator>> handedBack;
        std::promise<void> isDone;
        const tarn::ThreadContextPropagator jobsActivity;
        const uint64 jobsContext = Metrics::Context::Create(false);
        std::thread worker([&] {
            Metrics::Context context(0, jobsContext);
            context.OpenScope();
            RunUnder(jobsActivity, "work", [&] {
                handedBack.set_value(
                    {Metrics::Context::Create(false), tarn::ThreadContextPropagator()});
                isDone.get_future().wait();
            });
        });
        const auto [contextId, activity] = handedBack.get_future().get();
        {
            Metrics::Context context(0, contextId);
            context.OpenScope();
            RunUnder(activity, "step", [] { ChargeAllocation(30); });
        }
        isDone.set_value();
        worker.join();
    }

    EXPECT_THAT(Allocated(),
                ElementsAre(Line{"step", 30, 30}, Line{"work", 30, 0}, Line{"job", 60, 30}));
}

TEST_F(FiguresByExampleTest, WhatAScopeSummedUpBeforeItMovedIsCountedTwice) {
    {
        const ActivityScope job("job");
        auto wrap = std::make_unique<ActivityScope>("wrap", TraceType::Untracked);
        {
            const ActivityScope step("step");
            ChargeAllocation(30);
        }
        wrap->DetachFromThread();
        tarn::test::OnAnotherThread([&] {
            wrap->AttachToThread();
            wrap.reset();
        });
    }

    EXPECT_THAT(Allocated(),
                ElementsAre(Line{"step", 30, 30}, Line{"wrap", 30, 0}, Line{"job", 60, 30}));
}

TEST_F(FiguresByExampleTest, TrackingThatIsSwitchedOffOnTheWayMakesExclusiveFiguresNegative) {
    {
        const ActivityScope job("job");
        ChargeAllocation(100);
        {
            const ActivityScope step("step");
            ChargeAllocation(30);
        }
        corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingOff);
    }

    EXPECT_THAT(Allocated(), ElementsAre(Line{"step", 30, 30}, Line{"job", 0, -30}));
}

TEST_F(FiguresByExampleTest, ARequestOfTheHostHeadsATreeOfItsOwnAlsoInsideAScope) {
    OptTarn::SetIsForegroundThreadContextEnabled(false);
    {
        const ActivityScope job("job");
        Metrics::Scope request(0);
        request.OpenImpl("request");
        const ActivityScope step("step");
        ChargeAllocation(30);
    }

    EXPECT_THAT(Allocated(),
                ElementsAre(Line{"step", 30, 30}, Line{"request", 30, 0}, Line{"job", 30, 30}));
}

TEST_F(FiguresByExampleTest, AVisualScopeThatIsNotMarkedUntrackedGoesBelowZero) {
    {
        const ActivityScope job("job");
        const tarn::ScopeWithVisualId sheet("sheet", Metrics::flagTracing, u"1", u"");
        const ActivityScope step("step");
        ChargeAllocation(30);
    }

    EXPECT_THAT(Allocated(),
                ElementsAre(Line{"step", 30, 30}, Line{"sheet", 0, -30}, Line{"job", 30, 30}));
}

TEST_F(FiguresByExampleTest, AProcessorTimeStopsAfterSeventyOneMinutes) {
    {
        const ActivityScope job("job");
        {
            const ActivityScope step("step");
            UseProcessor(0, 3'000'000'000);
        }
        const ActivityScope step("step");
        UseProcessor(0, 3'000'000'000);
    }

    EXPECT_THAT(ProgramTimes(),
                ElementsAre(Line{"step", 3'000'000'000, 3'000'000'000},
                            Line{"step", 3'000'000'000, 3'000'000'000},
                            Line{"job", 4'294'967'295, -1'705'032'705}));
}

}  // namespace
