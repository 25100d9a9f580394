#include "Random.h"
#include "Script.h"

#include <algorithm>
#include <utility>

namespace figures {
namespace {

using model::Random;
using tarn::TraceType;

/// What was begun on a thread and has not ended.
struct Item {
    bool isScope = false;
    bool bringsContext = false;  ///< a context, or a scope that owns one
    int index = -1;
    ScopeKind kind = {};
};

class Generator {
public:
    Generator(Family family, uint64 seed, uint64 number, bool isOrderly)
        : m_random((seed * 0x9E3779B97F4A7C15ULL) ^ (number * 0xD1342543DE82EF95ULL) ^
                   (static_cast<uint64>(family) << 60)),
          m_isOrderly(isOrderly) {
        m_script.family = family;
        m_script.seed = seed;
        m_script.number = number;
        m_script.isForeground = m_random.Percent(40);
        m_script.logsTransparent = m_random.Percent(40);
        if (!isOrderly) {
            m_script.isCpuTrackedAtStart = m_random.Percent(90);
            m_script.memoryModeAtStart = m_random.Percent(85) ? 2 : static_cast<int>(Below(3));
        }
        // Half of the scripts show what goes wrong; the others are as a program should be.
        m_isUnruly = !isOrderly && m_random.Percent(50);
        m_changesTracking = m_isUnruly && m_random.Percent(30);
    }

    Script Make() {
        if (m_isOrderly || m_random.Percent(85)) {
            Emit(0, {.type = OpType::OpenRootContext});
            m_stacks[0].push_back({.bringsContext = true});
        }
        const int64 length = m_random.Between(15, 100);
        for (int64 i = 0; i < length; ++i) {
            if (m_script.family == Family::TwoThreadsAtOnce && m_random.Percent(15)) {
                WorkAtOnce();
            } else {
                Do(PickThread());
            }
        }
        CloseAll();
        return std::move(m_script);
    }

private:
    std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(m_random.Below(limit)); }

    int PickThread() {
        return m_script.family != Family::OneThread && m_random.Percent(45) ? 1 : 0;
    }

    std::vector<Item>& Stack(int thread) { return m_stacks[static_cast<std::size_t>(thread)]; }

    // While threads work at once, each has a step of its own to fill.
    void Emit(int thread, const Op& op) {
        const auto lane = static_cast<std::size_t>(thread);
        auto& steps = m_script.steps;
        if (!m_isAtOnce && (steps.empty() || m_lastThread != thread)) {
            steps.emplace_back();
        }
        m_lastThread = thread;
        steps.back()[lane].push_back(op);
    }

    bool HasContext(int thread) {
        const auto& stack = Stack(thread);
        return std::any_of(
            stack.begin(), stack.end(), [](const Item& item) { return item.bringsContext; });
    }

    // The second thread opens what was handed over and ends all of it, while the first goes on
    // below the scopes that are open now.
    void WorkAtOnce() {
        m_isAtOnce = true;
        m_script.steps.emplace_back();
        for (int thread = 0; thread < threadCount; ++thread) {
            const std::size_t height = Stack(thread).size();
            m_floor = height;
            m_blocksFromElsewhere = m_blocks.size();
            for (int64 i = m_random.Between(3, 20); i > 0; --i) {
                Do(thread);
            }
            while (Stack(thread).size() > height) {
                CloseTop(thread);
            }
            // What this thread has allocated now the other one does not know yet.
            m_hidden.insert(m_hidden.end(),
                            m_blocks.begin() + static_cast<std::ptrdiff_t>(m_blocksFromElsewhere),
                            m_blocks.end());
            m_blocks.resize(m_blocksFromElsewhere);
        }
        m_blocks.insert(m_blocks.end(), m_hidden.begin(), m_hidden.end());
        m_hidden.clear();
        m_floor = 0;
        m_isAtOnce = false;
        m_lastThread = -1;
    }

    void Do(int thread) {
        const auto& stack = Stack(thread);
        const std::size_t above = stack.size() - std::min(m_floor, stack.size());
        const uint64 choice = m_random.Below(100);
        if (choice < 26) {
            if (stack.size() < 9) {
                Open(thread);
            }
        } else if (choice < 40) {
            // The root context stays to the end.
            if (above != 0 && (thread != 0 || stack.size() > 1)) {
                CloseTopInOrder(thread);
            }
        } else if (choice < 46) {
            if (HasContext(thread) && !m_isAtOnce) {
                m_tickets.push_back(false);
                Emit(thread, {.type = OpType::HandOver, .index = m_script.tickets++});
            }
        } else if (choice < 54) {
            OpenContext(thread);
        } else if (choice < 68) {
            Allocate(thread);
        } else if (choice < 76) {
            Release(thread);
        } else if (choice < 86) {
            Emit(thread, {.type = OpType::PassTime, .amount = m_random.Between(0, 5'000'000)});
        } else if (choice < 94) {
            UseProcessor(thread);
        } else if (choice < 96) {
            ChangeTracking(thread);
        } else if (choice < 98) {
            CloseSecond(thread, above);
        } else {
            CloseElsewhere(thread, above);
        }
    }

    ScopeKind PickKind(bool hasContext) {
        ScopeKind kind;
        const uint64 choice = m_random.Below(100);
        if (m_isOrderly) {
            kind.type = choice < 75 ? TraceType::Normal : TraceType::Untracked;
            return kind;
        }
        if (choice < 50 || !m_isUnruly) {
            const uint64 plain = m_random.Below(100);
            kind.type = plain < 45   ? TraceType::Normal
                        : plain < 68 ? TraceType::Transparent
                                     : TraceType::Untracked;
            kind.isOff = m_random.Percent(8);
            return kind;
        }
        if (choice < 80 || !hasContext) {
            kind.type =
                m_random.OneOf({TraceType::Normal, TraceType::Transparent, TraceType::Untracked});
            kind.flags = m_random.OneOf({Metrics::flagTransparent,
                                         Metrics::flagUntracked,
                                         Metrics::flagTransparent | Metrics::flagUntracked});
        } else if (choice < 90 || m_script.isForeground) {
            kind.form = ScopeForm::Visual;
            kind.flags =
                Metrics::flagTracing |
                m_random.OneOf({uint64{0}, Metrics::flagTransparent, Metrics::flagUntracked});
        } else {
            kind.form = ScopeForm::Request;
        }
        return kind;
    }

    void Open(int thread) {
        const bool hasContext = HasContext(thread);
        if (m_isOrderly && !hasContext) {
            return;  // it would head a tree of its own
        }
        Op op{.type = OpType::OpenScope, .index = m_script.scopes++};
        op.kind = PickKind(hasContext);
        const bool isFirst = Stack(thread).empty() || !Stack(thread).back().isScope;
        const auto& top = Stack(thread);
        if (op.kind.form == ScopeForm::Activity && isFirst && !m_tickets.empty()) {
            if (!top.empty() && top.back().index >= 0 && (m_isOrderly || !m_random.Percent(10))) {
                op.ticket = top.back().index;  // that of the context
            } else if (top.empty() && m_isUnruly && m_random.Percent(60)) {
                op.ticket = static_cast<int>(Below(m_tickets.size()));
                op.adopts = m_random.Percent(30);
            }
        }
        Emit(thread, op);
        Stack(thread).push_back(
            {.isScope = true,
             .bringsContext = op.kind.form == ScopeForm::Activity && !hasContext,
             .index = op.index,
             .kind = op.kind});
    }

    void CloseTop(int thread) {
        Emit(thread, {.type = OpType::CloseTop});
        Stack(thread).pop_back();
    }

    // An orderly program waits for the work that it has handed over.
    void CloseTopInOrder(int thread) {
        if (m_isOrderly && thread == 0 && !m_stacks[1].empty()) {
            return;
        }
        CloseTop(thread);
        if (m_isOrderly) {
            m_tickets.assign(m_tickets.size(), true);
        }
    }

    void OpenContext(int thread) {
        // Coming back to a thread that already works for the same tree is for unruly scripts.
        if (!m_isUnruly && (thread == 0 || !Stack(thread).empty())) {
            return;
        }
        for (std::size_t i = m_tickets.size(); i-- > 0;) {
            if (!m_tickets[i]) {
                m_tickets[i] = true;
                Emit(thread, {.type = OpType::OpenContext, .index = static_cast<int>(i)});
                Stack(thread).push_back({.bringsContext = true, .index = static_cast<int>(i)});
                return;
            }
        }
    }

    void Allocate(int thread) {
        Emit(thread,
             {.type = OpType::Allocate,
              .index = m_script.blocks,
              .isReal = m_isOrderly || m_random.Percent(40),
              .bytes = static_cast<std::size_t>(m_random.Between(0, 5000))});
        m_blocks.push_back(m_script.blocks++);
    }

    void Release(int thread) {
        if (m_blocks.empty()) {
            return;
        }
        // Of blocks that both threads know each may release its share only.
        const std::size_t at = Below(m_blocks.size());
        if (m_isAtOnce && at < m_blocksFromElsewhere) {
            return;
        }
        std::swap(m_blocks[at], m_blocks.back());
        Emit(thread, {.type = OpType::Release, .index = m_blocks.back()});
        m_blocks.pop_back();
    }

    void UseProcessor(int thread) {
        const bool isEndless = m_isUnruly && m_random.Percent(2);
        const int64 most = isEndless ? 6'000'000'000 : 3000;
        Emit(thread,
             {.type = OpType::UseProcessor,
              .amount = m_random.Between(0, most),
              .second = m_random.Between(0, most)});
    }

    void ChangeTracking(int thread) {
        if (!m_changesTracking || m_isAtOnce) {
            return;
        }
        if (m_random.Percent(50)) {
            Emit(thread, {.type = OpType::SetMemoryMode, .amount = m_random.Between(0, 2)});
        } else {
            Emit(thread, {.type = OpType::SetCpuTracking, .amount = m_random.Between(0, 1)});
        }
    }

    void CloseSecond(int thread, std::size_t above) {
        auto& stack = Stack(thread);
        if (!m_isUnruly || above < 2 || m_random.Percent(50)) {
            return;
        }
        const Item& below = stack[stack.size() - 2];
        // A measured scope ends in order, or the process does.
        if (!stack.back().isScope || !below.isScope || below.bringsContext ||
            below.kind.Measures() || below.kind.isOff) {
            return;
        }
        Emit(thread, {.type = OpType::CloseSecond});
        stack.erase(stack.end() - 2);
    }

    void CloseElsewhere(int thread, std::size_t above) {
        auto& stack = Stack(thread);
        if (!m_isUnruly || m_script.family != Family::TwoThreadsInTurns || above == 0) {
            return;
        }
        const Item& top = stack.back();
        if (!top.isScope || top.kind.form != ScopeForm::Activity || top.kind.Measures() ||
            top.kind.isOff) {
            return;
        }
        Emit(thread, {.type = OpType::DetachTop});
        Emit(1 - thread, {.type = OpType::CloseDetached, .index = top.index});
        stack.pop_back();
    }

    void CloseAll() {
        while (!m_stacks[0].empty() || !m_stacks[1].empty()) {
            int thread = m_stacks[1].empty() ? 0 : 1;
            if (m_isUnruly && !m_stacks[0].empty() && m_random.Percent(50)) {
                thread = 0;
            }
            CloseTop(thread);
            if (m_random.Percent(30)) {
                Emit(thread, {.type = OpType::PassTime, .amount = m_random.Between(0, 3'000'000)});
            }
        }
    }

    Random m_random;
    bool m_isOrderly;
    bool m_isUnruly = false;
    bool m_changesTracking = false;
    Script m_script;
    std::array<std::vector<Item>, threadCount> m_stacks;
    std::vector<bool> m_tickets;  ///< whether the context was opened
    std::vector<int> m_blocks;    ///< not yet released
    std::vector<int> m_hidden;
    std::size_t m_blocksFromElsewhere = 0;
    std::size_t m_floor = 0;
    bool m_isAtOnce = false;
    int m_lastThread = -1;
};

std::string KindText(const ScopeKind& kind) {
    std::string text = kind.form == ScopeForm::Visual        ? "visual"
                       : kind.form == ScopeForm::Request     ? "request"
                       : kind.type == TraceType::Normal      ? "normal"
                       : kind.type == TraceType::Transparent ? "transparent"
                                                             : "untracked";
    text += kind.isOff ? " off" : "";
    text += (kind.flags & Metrics::flagTransparent) != 0 ? " +transparent bit" : "";
    text += (kind.flags & Metrics::flagUntracked) != 0 ? " +untracked bit" : "";
    return text;
}

std::string OpText(const Op& op) {
    const std::string index = std::to_string(op.index);
    switch (op.type) {
        case OpType::OpenScope:
            return "open s" + index + " " + KindText(op.kind) +
                   (op.ticket >= 0 ? " for hand-over " + std::to_string(op.ticket) : "") +
                   (op.adopts ? " adopting" : "");
        case OpType::CloseTop:
            return "close";
        case OpType::CloseSecond:
            return "close the one below";
        case OpType::DetachTop:
            return "detach";
        case OpType::CloseDetached:
            return "attach and close s" + index;
        case OpType::HandOver:
            return "hand over " + index;
        case OpType::OpenContext:
            return "open context of hand-over " + index;
        case OpType::OpenRootContext:
            return "open root context";
        case OpType::Allocate:
            return "allocate b" + index + " " + std::to_string(op.bytes) +
                   (op.isReal ? " for real" : "");
        case OpType::Release:
            return "release b" + index;
        case OpType::PassTime:
            return "pass " + std::to_string(op.amount) + " ns";
        case OpType::UseProcessor:
            return "use kernel " + std::to_string(op.amount) + " program " +
                   std::to_string(op.second);
        case OpType::SetMemoryMode:
            return "memory mode " + std::to_string(op.amount);
        case OpType::SetCpuTracking:
            return "cpu tracking " + std::to_string(op.amount);
    }
    return "?";
}

}  // namespace

Script MakeScript(Family family, uint64 seed, uint64 number) {
    return Generator(family, seed, number, false).Make();
}

Script MakeOrderlyScript(uint64 seed, uint64 number) {
    return Generator(Family::TwoThreadsInTurns, seed, number, true).Make();
}

std::string Text(const Script& script) {
    std::string text = std::string("foreground ") + (script.isForeground ? "on" : "off") +
                       ", transparent " + (script.logsTransparent ? "logged" : "not logged") +
                       ", memory mode " + std::to_string(script.memoryModeAtStart) + ", cpu " +
                       (script.isCpuTrackedAtStart ? "on" : "off") + '\n';
    for (const Step& step : script.steps) {
        const bool isAtOnce = !step[0].empty() && !step[1].empty();
        for (std::size_t thread = 0; thread < step.size(); ++thread) {
            for (const Op& op : step[thread]) {
                text += std::string(isAtOnce ? "  at once, " : "  ") + "thread " +
                        std::to_string(thread) + ": " + OpText(op) + '\n';
            }
        }
    }
    return text;
}

}  // namespace figures
