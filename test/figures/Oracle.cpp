#include "Oracle.h"

#include <algorithm>
#include <limits>
#include <optional>

namespace figures {
namespace {

/// What a scope takes over from the scope or the context that it opens in.
struct Heritage {
    std::vector<int> chain;  ///< of sponsors, the nearest last
    int request = ExpectedScope::nilTree;
};

struct Context {
    Heritage base;
    std::vector<int> scopes;  ///< open, innermost last; dropped ones stay in
    std::vector<int> sponsors;
    int thread = 0;
};

/// A memory frame and a look at the processor's clock, as long as a scope measures.
struct Measurement {
    Amounts counted{};
    int64 net = 0;
    int64 peak = 0;
    bool takesProcessorTime = false;
    int64 kernelAtStart = 0;
    int64 programAtStart = 0;
};

struct ScopeRecord {
    Heritage heritage;
    Measurement measurement;
    int context = -1;
    int ownContext = -1;
    int thread = 0;
    int activityRoot = ExpectedScope::none;
    int64 openedAt = 0;
};

struct Item {
    bool isScope = false;
    int index = -1;    ///< of the scope
    int context = -1;  ///< that it brings
};

struct Thread {
    std::vector<Item> items;
    std::vector<int> contexts;    ///< the current one last
    std::vector<int> activities;  ///< scopes with an activity context, the current one last
    int64 kernel = 0;
    int64 program = 0;
    int64 now = 0;
};

struct Ticket {
    int context = -1;
    int activity = ExpectedScope::none;
};

class Work {
public:
    Work(const Script& script, const std::vector<std::size_t>& blockSizes)
        : m_script(script),
          m_blockSizes(blockSizes),
          m_records(static_cast<std::size_t>(script.scopes)),
          m_tickets(static_cast<std::size_t>(script.tickets)),
          m_memoryMode(script.memoryModeAtStart),
          m_isCpuTracked(script.isCpuTrackedAtStart) {
        m_result.scopes.resize(static_cast<std::size_t>(script.scopes));
        m_result.isTrackingConstant = m_memoryMode == 2 && m_isCpuTracked;
    }

    // Where threads work at once the order between them makes no difference.
    Expectation Run() {
        for (const Step& step : m_script.steps) {
            for (std::size_t thread = 0; thread < step.size(); ++thread) {
                for (const Op& op : step[thread]) {
                    Do(static_cast<int>(thread), op);
                }
            }
        }
        return std::move(m_result);
    }

private:
    ExpectedScope& Scope(int index) { return m_result.scopes[static_cast<std::size_t>(index)]; }

    ScopeRecord& Record(int index) { return m_records[static_cast<std::size_t>(index)]; }

    Thread& On(int thread) { return m_threads[static_cast<std::size_t>(thread)]; }

    Context& InContext(int context) { return m_contexts[static_cast<std::size_t>(context)]; }

    bool HasRecord(int scope) {
        return Scope(scope).isOpened && !Scope(scope).isClosed && !Scope(scope).isDropped;
    }

    int64& Now(int thread) { return m_script.HasClockPerThread() ? On(thread).now : m_now; }

    void Do(int thread, const Op& op) {
        switch (op.type) {
            case OpType::OpenScope:
                Open(thread, op);
                break;
            case OpType::CloseTop:
                CloseItem(thread, On(thread).items.size() - 1);
                break;
            case OpType::CloseSecond:
                CloseItem(thread, On(thread).items.size() - 2);
                break;
            case OpType::DetachTop:
                Detach(thread);
                break;
            case OpType::CloseDetached:
                Close(thread, op.index);
                break;
            case OpType::HandOver:
                m_tickets[static_cast<std::size_t>(op.index)] = {NewContext(thread),
                                                                 CurrentActivity(thread)};
                break;
            case OpType::OpenContext:
                Enter(thread, m_tickets[static_cast<std::size_t>(op.index)].context);
                break;
            case OpType::OpenRootContext:
                Enter(thread, NewContext(-1));
                break;
            case OpType::Allocate:
                Charge(thread, true, m_blockSizes[static_cast<std::size_t>(op.index)]);
                break;
            case OpType::Release:
                Charge(thread, false, m_blockSizes[static_cast<std::size_t>(op.index)]);
                break;
            case OpType::PassTime:
                Now(thread) += op.amount;
                break;
            case OpType::UseProcessor:
                UseProcessor(thread, op);
                break;
            case OpType::SetMemoryMode:
                m_memoryMode = static_cast<int>(op.amount);
                m_result.isTrackingConstant = m_result.isTrackingConstant && m_memoryMode == 2;
                break;
            case OpType::SetCpuTracking:
                m_isCpuTracked = op.amount != 0;
                m_result.isTrackingConstant = m_result.isTrackingConstant && m_isCpuTracked;
                break;
        }
    }

    // ---- Contexts

    /// A child of the thread's current one; -1 makes a root.
    int NewContext(int thread) {
        Context context;
        if (thread >= 0) {
            const Context& parent = InContext(On(thread).contexts.back());
            context.base = HeritageIn(parent);
            if (!parent.sponsors.empty()) {
                context.sponsors.push_back(parent.sponsors.back());
            }
        }
        m_contexts.push_back(context);
        return static_cast<int>(m_contexts.size()) - 1;
    }

    void Enter(int thread, int context) {
        InContext(context).thread = thread;
        On(thread).contexts.push_back(context);
        On(thread).items.push_back({.context = context});
    }

    /// That of the innermost scope that is still known.
    Heritage HeritageIn(const Context& context) {
        for (auto scope = context.scopes.rbegin(); scope != context.scopes.rend(); ++scope) {
            if (HasRecord(*scope)) {
                return Record(*scope).heritage;
            }
        }
        return context.base;
    }

    int CurrentActivity(int thread) {
        const auto& activities = On(thread).activities;
        return activities.empty() ? ExpectedScope::none : activities.back();
    }

    // ---- Opening

    void Open(int thread, const Op& op) {
        ExpectedScope& scope = Scope(op.index);
        ScopeRecord& record = Record(op.index);
        scope.kind = op.kind;
        if (op.kind.form == ScopeForm::Activity && On(thread).contexts.empty()) {
            record.ownContext = NewContext(-1);
            InContext(record.ownContext).thread = thread;
            On(thread).contexts.push_back(record.ownContext);
        }
        if (!op.kind.isOff) {
            OpenInMonitor(thread, op.index);
            FindTree(thread, op);
            Place(thread, op.index);
            StartMeasuring(thread, op.index);
        }
        On(thread).items.push_back(
            {.isScope = true, .index = op.index, .context = record.ownContext});
    }

    void OpenInMonitor(int thread, int index) {
        ExpectedScope& scope = Scope(index);
        ScopeRecord& record = Record(index);
        record.context = On(thread).contexts.back();
        record.thread = thread;
        record.openedAt = Now(thread);
        Context& context = InContext(record.context);
        record.heritage = HeritageIn(context);
        if (scope.kind.form == ScopeForm::Request || context.sponsors.empty()) {
            record.heritage.request = index;
            record.heritage.chain.push_back(index);
        } else {
            record.heritage.chain.push_back(context.sponsors.back());
        }
        context.scopes.push_back(index);
        context.sponsors.push_back(index);
        scope.isOpened = true;
        scope.isLogged = !scope.kind.IsTransparent() || m_script.logsTransparent;
        scope.account.transparent = scope.kind.IsTransparent();
        scope.account.measuresNothing = scope.kind.IsMarkedUntracked();
        scope.account.threadId = static_cast<uint64>(thread);
        scope.account.threadIds.insert(scope.account.threadId);
    }

    void FindTree(int thread, const Op& op) {
        ExpectedScope& scope = Scope(op.index);
        ScopeRecord& record = Record(op.index);
        if (!m_script.isForeground) {
            scope.tree = record.heritage.request;
        } else if (scope.kind.form != ScopeForm::Activity) {
            scope.tree = ExpectedScope::noTree;
        } else {
            const int parent = op.ticket >= 0
                                   ? m_tickets[static_cast<std::size_t>(op.ticket)].activity
                                   : CurrentActivity(thread);
            record.activityRoot =
                parent != ExpectedScope::none ? Record(parent).activityRoot : op.index;
            scope.tree = record.activityRoot;
            On(thread).activities.push_back(op.index);
        }
    }

    void Place(int thread, int index) {
        ExpectedScope& scope = Scope(index);
        const auto inTree = [&](const Item& item) {
            return item.isScope && Scope(item.index).isOpened &&
                   Scope(item.index).tree == scope.tree;
        };
        const auto& items = On(thread).items;
        const auto around = std::find_if(items.rbegin(), items.rend(), inTree);
        const int sponsor = NearestOpenSponsor(index);
        const int innermost = Innermost(thread);
        scope.isPlainlyPlaced = around == items.rend()
                                    ? innermost == ExpectedScope::none
                                    : sponsor == around->index && innermost == sponsor;
        for (const Item& item : items) {
            if (item.isScope && Scope(item.index).tree != scope.tree) {
                Scope(item.index).isPlainlyPlaced = false;
            }
        }
        scope.isMeasuredBySomeone =
            scope.kind.Measures() ||
            (around != items.rend() && Scope(around->index).isMeasuredBySomeone);
    }

    void StartMeasuring(int thread, int index) {
        if (!Scope(index).kind.Measures()) {
            return;
        }
        Measurement& measurement = Record(index).measurement;
        measurement.takesProcessorTime = m_isCpuTracked;
        measurement.kernelAtStart = On(thread).kernel;
        measurement.programAtStart = On(thread).program;
    }

    // ---- What is used

    int Innermost(int thread) {
        const auto& items = On(thread).items;
        for (auto item = items.rbegin(); item != items.rend(); ++item) {
            if (item->isScope && Scope(item->index).isOpened) {
                return item->index;
            }
        }
        return ExpectedScope::none;
    }

    void Charge(int thread, bool allocates, std::size_t bytes) {
        if (m_memoryMode == 0 || (!allocates && m_memoryMode != 2)) {
            return;
        }
        const auto amount = static_cast<int64>(bytes);
        const auto count = [&](Amounts& amounts) {
            amounts[allocates ? AllocatedBytes : ReleasedBytes] += amount;
            amounts[allocates ? AllocationCount : ReleaseCount] += 1;
        };
        for (const Item& item : On(thread).items) {
            if (!item.isScope || !Scope(item.index).kind.Measures()) {
                continue;
            }
            Measurement& measurement = Record(item.index).measurement;
            count(measurement.counted);
            if (m_memoryMode == 2) {
                measurement.net += allocates ? amount : -amount;
                measurement.peak = std::max(measurement.peak, measurement.net);
            }
        }
        if (const int innermost = Innermost(thread); innermost != ExpectedScope::none) {
            count(Scope(innermost).own);
        }
    }

    void UseProcessor(int thread, const Op& op) {
        On(thread).kernel += op.amount;
        On(thread).program += op.second;
        if (const int innermost = Innermost(thread); innermost != ExpectedScope::none) {
            Scope(innermost).own[KernelTime] += op.amount;
            Scope(innermost).own[ProgramTime] += op.second;
        }
    }

    // ---- Closing

    void Leave(Thread& thread, int context) {
        auto& contexts = thread.contexts;
        contexts.erase(std::remove(contexts.begin(), contexts.end(), context), contexts.end());
    }

    void CloseItem(int thread, std::size_t at) {
        auto& items = On(thread).items;
        const Item item = items[at];
        if (item.isScope) {
            Close(thread, item.index);
        }
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(at));
        if (item.context >= 0) {
            Leave(On(thread), item.context);
        }
    }

    void Detach(int thread) {
        const Item item = On(thread).items.back();
        On(thread).items.pop_back();
        ForgetActivity(thread, item.index);
        if (item.context >= 0) {
            Leave(On(thread), item.context);
        }
    }

    void ForgetActivity(int thread, int scope) {
        auto& activities = On(thread).activities;
        activities.erase(std::remove(activities.begin(), activities.end(), scope),
                         activities.end());
    }

    void Close(int thread, int index) {
        ExpectedScope& scope = Scope(index);
        if (!scope.isOpened) {
            return;
        }
        ForgetActivity(thread, index);
        const bool saysThread = scope.kind.form == ScopeForm::Activity;
        const int closedOn = saysThread ? thread : Record(index).thread;
        scope.isMoved = closedOn != Record(index).thread;
        AddMeasured(thread, index);
        Context& context = InContext(Record(index).context);
        if (context.scopes.back() != index) {
            scope.isDropped = true;
            return;
        }
        scope.account.threadId = static_cast<uint64>(closedOn);
        const int64 nanoseconds = Now(thread) - Record(index).openedAt;
        scope.elapsedMs = nanoseconds / 1'000'000;
        SetElapsed(scope.account, static_cast<uint64>(nanoseconds));
        scope.foldedInto = NearestOpenSponsor(index);
        if (scope.foldedInto != ExpectedScope::none) {
            ExpectedScope& sponsor = Scope(scope.foldedInto);
            scope.foldedOnSameThread = folding::Fold(scope.account, sponsor.account);
            sponsor.childrenMs += scope.foldedOnSameThread ? scope.elapsedMs : 0;
        }
        SetExclusiveTime(scope.account);
        scope.isClosed = true;
        context.scopes.pop_back();
        context.sponsors.pop_back();
    }

    /// None for a scope that heads a tree: it is its own sponsor.
    int NearestOpenSponsor(int index) {
        const auto sponsor = folding::NearestSponsor(Record(index).heritage.chain,
                                                     [this](int id) { return HasRecord(id); });
        return sponsor && *sponsor != index ? *sponsor : ExpectedScope::none;
    }

    void AddMeasured(int thread, int index) {
        ExpectedScope& scope = Scope(index);
        if (!scope.kind.Measures()) {
            return;
        }
        const Measurement& measurement = Record(index).measurement;
        Amounts sent{};
        if (m_memoryMode != 0) {
            sent[AllocatedBytes] = measurement.counted[AllocatedBytes];
            sent[AllocationCount] = measurement.counted[AllocationCount];
        }
        if (m_memoryMode == 2) {
            sent[ReleasedBytes] = measurement.counted[ReleasedBytes];
            sent[ReleaseCount] = measurement.counted[ReleaseCount];
            scope.peak = measurement.peak;
        }
        if (measurement.takesProcessorTime) {
            constexpr int64 longest = std::numeric_limits<uint32>::max();
            sent[KernelTime] = std::min(longest, On(thread).kernel - measurement.kernelAtStart);
            sent[ProgramTime] = std::min(longest, On(thread).program - measurement.programAtStart);
        }
        for (std::size_t i = 0; i < figureCount; ++i) {
            folding::AddMeasured(scope.account, static_cast<Figure>(i), sent[i]);
        }
    }

    const Script& m_script;
    const std::vector<std::size_t>& m_blockSizes;
    Expectation m_result;
    std::vector<ScopeRecord> m_records;
    std::vector<Context> m_contexts;
    std::vector<Ticket> m_tickets;
    std::array<Thread, threadCount> m_threads;
    int64 m_now = 0;
    int m_memoryMode;
    bool m_isCpuTracked;
};

}  // namespace

Expectation WorkOut(const Script& script, const std::vector<std::size_t>& blockSizes) {
    return Work(script, blockSizes).Run();
}

}  // namespace figures
