#include "ScopeWorkload.h"

#include "tarn/ActivityScope.h"
#include "tarn/CustomContext.h"
#include "tarn/ThreadContextPropagator.h"
#include "tarn/Traits.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <memory>
#include <random>
#include <thread>
#include <utility>
#include <vector>

namespace stress {
namespace {

using Metrics::NameValueList;
using tarn::ActivityScope;
using tarn::CustomContext;
using tarn::TraceType;
using tarn::Traits;

constexpr int64 none = -1;

}  // namespace

/// One tree of scopes from its first to its last, on one thread at a time.
class ScopeWorkload::Tree {
public:
    Tree(ScopeWorkload& workload, int64 number, uint64 seed)
        : m_workload(workload),
          m_number(number),
          m_random(seed) {}

    /// Returns how many scopes there were.
    int64 Grow() {
        const uint64 kind = Below(100);
        if (m_number == 0) {
            GrowStraightDown();
        } else if (kind < 8) {
            GrowOnTwoThreads();
        } else {
            GrowHere(kind < 16);
        }
        m_workload.m_opened += static_cast<uint64>(m_last);
        return m_last;
    }

private:
    /// An open scope, and what it means for those that open in it.
    struct Open {
        std::unique_ptr<ActivityScope> scope;
        int64 number;
        int64 layer;
    };

    uint64 Below(uint64 limit) { return m_random() % limit; }

    bool Percent(uint64 percent) { return Below(100) < percent; }

    int64 Enclosing() const { return m_open.empty() ? none : m_open.back().number; }

    NameValueList Describe(int64 number, int64 layer) const {
        return {{"n", number},
                {"under", Enclosing()},
                {"layer", layer},
                {"thread", TSystem::ThreadID()}};
    }

    /// Opens a scope in the innermost one.
    void OpenOne(TraceType type, const tarn::ActivityContextInitializer* initializer = nullptr) {
        const int64 number = (m_number << placeBits) | m_last++;
        const bool hasLayer = Percent(15);
        const int64 outerLayer = m_open.empty() ? none : m_open.back().layer;
        const int64 layer = hasLayer ? number : outerLayer;
        CustomContext custom(hasLayer ? NameValueList{{"layer", number}} : NameValueList{});
        NameValueList attributes = Describe(number, layer);
        std::unique_ptr<ActivityScope> scope =
            initializer != nullptr
                ? std::make_unique<ActivityScope>(
                      "work", std::move(custom), Traits(type), std::move(attributes), *initializer)
                : std::make_unique<ActivityScope>(
                      "work", std::move(custom), Traits(type), std::move(attributes));
        scope->Add({{"n", number}});
        if (Percent(10)) {
            scope->Log({{"step", "a supplement"}});
        }
        m_open.push_back({std::move(scope), number, layer});
    }

    TraceType SomeType() { return Percent(25) ? TraceType::Normal : TraceType::Untracked; }

    /// Opens and closes at random, and in the end closes down to the depth that it began with.
    void Walk(int steps, bool handsOver) {
        const std::size_t base = m_open.size();
        // Some trees grow straight down, the others wander.
        const uint64 growth = Percent(20) ? 95 : 50;
        for (int step = 0; step < steps; ++step) {
            if (m_open.size() < deepest && (m_open.size() == base || Percent(growth))) {
                OpenOne(SomeType());
            } else if (m_open.size() > base) {
                m_open.pop_back();
            }
            if (handsOver && m_open.size() < deepest && Percent(5)) {
                HandWorkOver();
            }
        }
        while (m_open.size() > base) {
            m_open.pop_back();
        }
    }

    void GrowHere(bool handsOver) {
        ++m_workload.m_contexts;
        OpenOne(SomeType());
        Walk(static_cast<int>(20 + Below(180)), handsOver);
        m_open.clear();
    }

    /// As deep as trees grow, which chance alone seldom does.
    void GrowStraightDown() {
        ++m_workload.m_contexts;
        while (m_open.size() < deepest) {
            OpenOne(SomeType());
        }
        while (!m_open.empty()) {
            m_open.pop_back();
        }
    }

    /// A helping thread works in a child context, while this one waits.
    void HandWorkOver() {
        ++m_workload.m_handOvers;
        ++m_workload.m_contexts;
        const tarn::ThreadContextPropagator propagator;
        const uint64 childContext = Metrics::Context::Create(false);
        m_workload.m_tasks.Do([this, childContext, propagator] {
            Metrics::Context context(0, childContext);
            context.OpenScope();
            const tarn::ActivityContextInitializer initializer{propagator.GetContext(), false};
            OpenOne(SomeType(), &initializer);
            Walk(static_cast<int>(Below(10)), false);
            m_open.pop_back();
        });
    }

    /// The first scope moves to a helping thread, and back again if it does not end there. Only
    /// scopes that measure nothing may do so.
    void GrowOnTwoThreads() {
        ++m_workload.m_handOvers;
        ++m_workload.m_contexts;
        OpenOne(TraceType::Untracked);
        Walk(static_cast<int>(Below(10)), false);
        const bool endsThere = Percent(50);
        m_open.back().scope->DetachFromThread();
        m_workload.m_tasks.Do([this, endsThere] {
            m_open.back().scope->AttachToThread();
            Walk(static_cast<int>(1 + Below(20)), false);
            if (endsThere) {
                m_open.clear();
            } else {
                m_open.back().scope->DetachFromThread();
            }
        });
        if (!endsThere) {
            m_open.back().scope->AttachToThread();
            Walk(static_cast<int>(Below(10)), false);
            m_open.clear();
        }
    }

    ScopeWorkload& m_workload;
    const int64 m_number;
    std::mt19937_64 m_random;
    std::vector<Open> m_open;
    int64 m_last = 0;
};

void ScopeWorkload::Run(uint64 scopes) {
    ++m_runs;
    m_tasks.Open();
    std::vector<std::thread> helpers;
    for (int i = 0; i < std::max(1, m_threads / 4); ++i) {
        helpers.emplace_back([this] { m_tasks.WorkOff(); });
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < m_threads; ++i) {
        threads.emplace_back(
            [this, i, scopes] { Work(i, scopes / static_cast<uint64>(m_threads) + 1); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    m_tasks.Close();
    for (std::thread& helper : helpers) {
        helper.join();
    }
}

void ScopeWorkload::Work(int thread, uint64 scopes) {
    constexpr int treeBits = 24;
    std::mt19937_64 seeds(m_seed + static_cast<uint64>(m_runs * m_threads + thread));
    const int64 firstTree = static_cast<int64>(thread) << treeBits;
    uint64 opened = 0;
    for (int64 tree = 0; opened < scopes; ++tree) {
        if (m_beforeTree) {
            m_beforeTree();
        }
        opened += static_cast<uint64>(Tree(*this, firstTree + tree, seeds()).Grow());
    }
}

}  // namespace stress
