#include "CapturingSink.h"
#include "HostCounters.h"
#include "KnownIds.h"
#include "Matchers.h"
#include "TarnTest.h"
#include "TaskQueue.h"

#include "tarn/ActivityScope.h"
#include "tarn/MetricsMonitor.h"
#include "tarn/OptTarn.h"
#include "tarn/ThreadContextPropagator.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/TSystem.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tarn::ActivityScope;
using tarn::CustomContext;
using tarn::Traits;

/// Threads that open nested scopes, half of them handing the innermost work over to others. Every
/// scope has a name of its own and says in its attributes under which scope and on which thread it
/// opened.
class Emitters {
public:
    static constexpr int emitterThreads = 4;
    static constexpr int helperThreads = 2;
    static constexpr int trees = 150;
    // The root, two nested scopes, and every other time two more on another thread.
    static constexpr int scopesOfAllThreads = emitterThreads * (trees * 3 + trees / 2 * 2);

    void Run() {
        std::vector<std::thread> helpers;
        for (int i = 0; i < helperThreads; ++i) {
            helpers.emplace_back([this] { m_tasks.WorkOff(); });
        }
        std::vector<std::thread> emitters;
        for (int i = 0; i < emitterThreads; ++i) {
            emitters.emplace_back([this, i] { Emit("t" + std::to_string(i)); });
        }
        for (std::thread& emitter : emitters) {
            emitter.join();
        }
        m_tasks.Close();
        for (std::thread& helper : helpers) {
            helper.join();
        }
    }

private:
    static Metrics::NameValueList Under(const std::string& parent) {
        return {{"under", parent}, {"thread", TSystem::ThreadID()}};
    }

    void Emit(const std::string& thread) {
        for (int tree = 0; tree < trees; ++tree) {
            const std::string name = thread + "." + std::to_string(tree);
            ActivityScope root(name.c_str(), Under(""));
            root.Add({{"tree", tree}});
            {
                const std::string first = name + ".1";
                ActivityScope scope(first.c_str(), Under(name));
                scope.Log({{"step", 1}});
                const std::string second = name + ".1.1";
                const ActivityScope inner(second.c_str(), Under(first));
                if (tree % 2 == 0) {
                    HandOver(second);
                }
            }
        }
    }

    void HandOver(const std::string& parent) {
        const tarn::ThreadContextPropagator propagator;
        const uint64 context = Metrics::Context::Create(false);
        m_tasks.Do([&] { Work(context, propagator, parent); });
    }

    static void Work(uint64 childContext,
                     const tarn::ThreadContextPropagator& propagator,
                     const std::string& parent) {
        Metrics::Context context(0, childContext);
        context.OpenScope();
        const std::string name = parent + ".x";
        const ActivityScope outer(name.c_str(),
                                  CustomContext(Metrics::NameValueList()),
                                  Traits(),
                                  Under(parent),
                                  {propagator.GetContext(), false});
        const std::string innerName = name + ".1";
        ActivityScope inner(innerName.c_str(), Under(name));
        inner.Add({{"done", true}});
    }

    stress::TaskQueue m_tasks;
};

/// What the log says about one scope.
struct LoggedScope {
    int beginnings = 0;
    int ends = 0;
    std::string id;
    std::string sponsor;  ///< its id
    std::string under;    ///< the name that the scope itself gave
    bool endsWithItsId = false;
    bool hasItsThread = false;
};

std::string Unquoted(const std::optional<tarn::test::LogValue>& value) {
    return value ? value->Text().substr(1, value->Text().size() - 2) : "";
}

std::unordered_map<std::string, LoggedScope> ReadLog(const tarn::test::CapturedEvents& events) {
    using tarn::test::Field;
    using tarn::test::Table;

    std::unordered_map<std::string, LoggedScope> scopes;
    for (const TLog::Event& event : events) {
        LoggedScope& scope = scopes[Unquoted(Field(event, Table::Activity, "name"))];
        const std::string id = Unquoted(Field(event, Table::Activity, "id"));
        if (Field(event, Table::Activity, "type") == tarn::test::LogValue("begin")) {
            ++scope.beginnings;
            scope.id = id;
            scope.sponsor = Unquoted(Field(event, Table::Activity, "sponsor"));
            scope.under = Unquoted(Field(event, Table::Body, "under"));
            scope.hasItsThread = Field(event, Table::Body, "thread") ==
                                 tarn::test::LogValue(event.GetActivityInfo()->GetThreadId());
        } else {
            ++scope.ends;
            scope.endsWithItsId = id == scope.id;
        }
    }
    return scopes;
}

class MonitorStressTest : public tarn::test::TarnTest {
protected:
    void SetUp() override {
        OptTarn::SetIsTarnEnabled(true);
        const uint64 root = Metrics::Context::Create(true);
        m_monitor = RefCntPtr<MetricsMonitor>(new MetricsMonitor(root));
        m_monitor->EnableTest(new tarn::test::CapturingSink(m_events), new tarn::test::KnownIds);
        m_monitor->Register(true);
    }

    void TearDown() override {
        m_monitor->Unregister();
        m_monitor = {};
    }

    /// Every scope once, under the scope that it opened in.
    void ExpectWholeTrees() const {
        const auto scopes = ReadLog(*m_events);
        EXPECT_EQ(scopes.size(), static_cast<std::size_t>(Emitters::scopesOfAllThreads));
        for (const auto& [name, scope] : scopes) {
            EXPECT_EQ(scope.beginnings, 1) << name;
            EXPECT_EQ(scope.ends, 1) << name;
            EXPECT_TRUE(scope.endsWithItsId) << name;
            EXPECT_TRUE(scope.hasItsThread) << name;
            const auto sponsor = scopes.find(scope.under);
            EXPECT_EQ(sponsor == scopes.end(), scope.under.empty()) << name;
            EXPECT_EQ(scope.sponsor, sponsor == scopes.end() ? "" : sponsor->second.id) << name;
        }
    }

    std::shared_ptr<tarn::test::CapturedEvents> m_events =
        std::make_shared<tarn::test::CapturedEvents>();
    RefCntPtr<MetricsMonitor> m_monitor;
};

TEST_F(MonitorStressTest, ScopesOfManyThreadsAreLoggedOnceUnderTheirSponsors) {
    Emitters().Run();

    ExpectWholeTrees();
}

TEST_F(MonitorStressTest, AmongForegroundContextsToo) {
    OptTarn::SetIsForegroundThreadContextEnabled(true);

    Emitters().Run();

    ExpectWholeTrees();
}

TEST_F(MonitorStressTest, AfterwardsNothingIsOpenAndTheCountersAgree) {
    const Metrics::BusStatistics before = Metrics::GetBusStatistics();
    tarn::test::HostCounters counters;

    Emitters().Run();

    // What is left is the root context that the monitor was built for.
    EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 0U);
    EXPECT_EQ(m_monitor->GetNumberOpenContexts(), 1U);
    EXPECT_EQ(counters.scopesOpened, Emitters::scopesOfAllThreads);
    EXPECT_EQ(counters.scopesClosed, Emitters::scopesOfAllThreads);
    EXPECT_GT(counters.contextsCreated, 0);
    EXPECT_EQ(counters.contextsClosed, counters.contextsCreated);
    EXPECT_EQ(counters.requestContextsCreated, Emitters::emitterThreads * Emitters::trees);
    EXPECT_EQ(counters.requestContextsClosed, counters.requestContextsCreated);
    const Metrics::BusStatistics after = Metrics::GetBusStatistics();
    EXPECT_EQ(after.consumerExceptions, before.consumerExceptions);
    EXPECT_EQ(after.lostEvents, before.lostEvents);
    EXPECT_THAT(
        Log().Messages(),
        testing::Each(testing::Pair(TLog::Info, testing::StartsWith("Opening MetricsMonitor"))));
}

/// Passes on what it is given, and fails the test if that happens after its end.
class MortalSink : public tarn::test::CapturingSink {
public:
    explicit MortalSink(std::shared_ptr<tarn::test::CapturedEvents> events)
        : CapturingSink(std::move(events)) {}

    ~MortalSink() override { m_isAlive = false; }

    void Log(const TLog::Event& event) override {
        EXPECT_TRUE(m_isAlive);
        CapturingSink::Log(event);
        EXPECT_TRUE(m_isAlive) << "it ended during the call";
    }

private:
    bool m_isAlive = true;
};

TEST_F(MonitorStressTest, TheSinkIsReplacedWhileThreadsTrace) {
    std::atomic<bool> isDone{false};
    std::atomic<int> replacements{0};
    const auto replace = [&] {
        while (!isDone) {
            m_monitor->SetSink(std::make_unique<MortalSink>(m_events));
            ++replacements;
            std::this_thread::yield();
        }
    };
    std::thread one(replace);
    std::thread other(replace);

    Emitters().Run();
    isDone = true;
    one.join();
    other.join();

    EXPECT_GT(replacements, 10);
    ExpectWholeTrees();
}

TEST_F(MonitorStressTest, CountsMayBeAskedForByManyThreadsAtOnce) {
    m_monitor->Unregister();
    Metrics::MetricsEvent opening;
    opening.type = Metrics::MetricsEventType::CreateContext;
    for (uint64 id = 1000; id < 1020; ++id) {
        opening.id = id;
        m_monitor->OnMetricsEvent(opening);
    }

    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([this] {
            for (uint64 id = 0; id < 2000; ++id) {
                EXPECT_EQ(m_monitor->GetNumberOpenScopesForContext(1000 + id % 30), 0U);
                EXPECT_EQ(m_monitor->GetNumberOpenScopes(), 0U);
            }
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
}

// The monitor comes and goes while others trace; what it sees is incomplete, but it stays sound.
TEST_F(MonitorStressTest, RegisteringAndUnregisteringMeanwhileIsSafe) {
    std::atomic<bool> isDone{false};
    std::thread switching([&] {
        while (!isDone) {
            m_monitor->Unregister();
            m_monitor->Register(true);
        }
    });

    Emitters().Run();
    isDone = true;
    switching.join();

    EXPECT_LE(m_events->size(), static_cast<std::size_t>(Emitters::scopesOfAllThreads) * 2);
    m_monitor->Unregister();
    const std::size_t logged = m_events->size();
    { const ActivityScope unheard("unheard"); }
    EXPECT_EQ(m_events->size(), logged);
}

}  // namespace
