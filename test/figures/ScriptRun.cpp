#include "ScriptRun.h"

#include "FakeTime.h"

#include "tarn/ActivityScope.h"
#include "tarn/ScopeWithVisualId.h"
#include "tarn/ThreadContextPropagator.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/Scope.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"
#include "cvlsys/host/MemoryCharging.h"

#include <malloc.h>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace figures {
namespace {

/// A scope or a context that was begun on a thread.
struct Item {
    int scope = -1;
    std::unique_ptr<tarn::ActivityScope> activity;
    std::unique_ptr<tarn::ScopeWithVisualId> visual;
    std::unique_ptr<Metrics::Scope> request;
    std::unique_ptr<Metrics::Context> context;
};

struct Ticket {
    std::optional<tarn::ThreadContextPropagator> activity;
    uint64 context = 0;
    bool isOpened = false;
};

struct Block {
    void* memory = nullptr;
    std::size_t bytes = 0;
};

class Runner {
public:
    Runner(const Script& script, Blocks source)
        : m_source(source),
          m_tickets(static_cast<std::size_t>(script.tickets)),
          m_blocks(static_cast<std::size_t>(script.blocks)) {
        // Threads that work at once must not see them grow.
        for (auto& items : m_items) {
            items.reserve(static_cast<std::size_t>(script.scopes + script.tickets) + 1);
        }
    }

    ~Runner() {
        for (const Block& block : m_blocks) {
            Free(block.memory);
        }
        // Announced but never opened: they end all the same.
        for (const Ticket& ticket : m_tickets) {
            if (!ticket.isOpened && ticket.context != 0) {
                const Metrics::Context context(0, ticket.context);
            }
        }
    }

    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    void Do(std::size_t thread, const std::vector<Op>& ops) {
        for (const Op& op : ops) {
            Do(m_items[thread], op);
        }
    }

    std::vector<std::size_t> BlockSizes() const {
        std::vector<std::size_t> sizes;
        for (const Block& block : m_blocks) {
            sizes.push_back(block.bytes);
        }
        return sizes;
    }

private:
    void Do(std::vector<Item>& items, const Op& op) {
        switch (op.type) {
            case OpType::OpenScope:
                items.push_back(Open(op));
                break;
            case OpType::CloseTop:
                items.pop_back();
                break;
            case OpType::CloseSecond:
                Close(items, items.size() - 2);
                break;
            case OpType::DetachTop:
                items.back().activity->DetachFromThread();
                m_detached = std::move(items.back().activity);
                items.pop_back();
                break;
            case OpType::CloseDetached:
                m_detached->AttachToThread();
                m_detached.reset();
                break;
            case OpType::HandOver: {
                Ticket& ticket = TicketOf(op.index);
                ticket.activity.emplace();
                ticket.context = Metrics::Context::Create(false);
                break;
            }
            case OpType::OpenContext:
                TicketOf(op.index).isOpened = true;
                OpenContext(items, TicketOf(op.index).context);
                break;
            case OpType::OpenRootContext:
                OpenContext(items, Metrics::Context::Create(true));
                break;
            case OpType::Allocate:
                Allocate(m_blocks[static_cast<std::size_t>(op.index)], op);
                break;
            case OpType::Release:
                Release(m_blocks[static_cast<std::size_t>(op.index)]);
                break;
            case OpType::PassTime:
                fake_time::Pass(op.amount);
                break;
            case OpType::UseProcessor:
                fake_time::UseProcessor(op.amount, op.second);
                break;
            case OpType::SetMemoryMode:
                corvala::memory::SetMemoryTrackingMode(
                    static_cast<corvala::memory::MemoryTrackingMode>(op.amount));
                break;
            case OpType::SetCpuTracking:
                corvala::cputime::SetCpuTrackingEnabled(op.amount != 0);
                break;
        }
    }

    Ticket& TicketOf(int index) { return m_tickets[static_cast<std::size_t>(index)]; }

    Item Open(const Op& op) {
        Item item;
        item.scope = op.index;
        const std::string name = "s" + std::to_string(op.index);
        switch (op.kind.form) {
            case ScopeForm::Activity:
                item.activity = OpenActivity(name, op);
                break;
            case ScopeForm::Visual:
                item.visual = std::make_unique<tarn::ScopeWithVisualId>(
                    name.c_str(), op.kind.flags, u"sheet", u"");
                break;
            case ScopeForm::Request:
                item.request = std::make_unique<Metrics::Scope>(op.kind.flags);
                item.request->OpenImpl("request");
                item.request->EmitImpl(Metrics::MetricsEventType::NameValue, "scope", op.index);
                break;
        }
        return item;
    }

    std::unique_ptr<tarn::ActivityScope> OpenActivity(const std::string& name, const Op& op) {
        const tarn::Traits traits(
            op.kind.type, tarn::TraceRank{op.kind.isOff ? 1 : 0}, op.kind.flags);
        if (op.ticket < 0) {
            return std::make_unique<tarn::ActivityScope>(name.c_str(), traits);
        }
        return std::make_unique<tarn::ActivityScope>(
            name.c_str(),
            tarn::CustomContext(Metrics::NameValueList()),
            traits,
            Metrics::NameValueList(),
            tarn::ActivityContextInitializer{TicketOf(op.ticket).activity->GetContext(),
                                             op.adopts});
    }

    static void OpenContext(std::vector<Item>& items, uint64 id) {
        Item item;
        item.context = std::make_unique<Metrics::Context>(0, id);
        item.context->OpenScope();
        items.push_back(std::move(item));
    }

    // Ends the scope before the item goes: moving items about must not end one too early.
    static void Close(std::vector<Item>& items, std::size_t at) {
        items[at].activity.reset();
        items[at].visual.reset();
        items[at].request.reset();
        items.erase(items.begin() + static_cast<std::ptrdiff_t>(at));
    }

    void Free(void* memory) const {
        if (m_source == Blocks::FromNew) {
            ::operator delete(memory);
        } else {
            TFree(memory);
        }
    }

    void Allocate(Block& block, const Op& op) const {
        if (op.isReal) {
            block.memory =
                m_source == Blocks::FromNew ? ::operator new(op.bytes) : TMalloc(op.bytes);
            block.bytes = malloc_usable_size(block.memory);
        } else {
            block.bytes = op.bytes;
            corvala::memory::ChargeAllocation(block.bytes);
        }
    }

    void Release(Block& block) const {
        if (block.memory != nullptr) {
            Free(std::exchange(block.memory, nullptr));
        } else {
            corvala::memory::ChargeRelease(block.bytes);
        }
    }

    Blocks m_source;
    std::array<std::vector<Item>, threadCount> m_items;
    std::vector<Ticket> m_tickets;
    std::vector<Block> m_blocks;
    std::unique_ptr<tarn::ActivityScope> m_detached;
};

}  // namespace

SecondThread::SecondThread() : m_thread([this] { Loop(); }) {}

SecondThread::~SecondThread() {
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_isEnding = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void SecondThread::Begin(std::function<void()> work) {
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_work = std::move(work);
        m_isBusy = true;
    }
    m_changed.notify_all();
}

void SecondThread::Wait() {
    std::unique_lock<std::mutex> guard(m_lock);
    m_changed.wait(guard, [this] { return !m_isBusy; });
}

void SecondThread::Loop() {
    std::unique_lock<std::mutex> guard(m_lock);
    for (;;) {
        m_changed.wait(guard, [this] { return m_isBusy || m_isEnding; });
        if (m_isEnding) {
            return;
        }
        guard.unlock();
        m_work();
        guard.lock();
        m_isBusy = false;
        m_changed.notify_all();
    }
}

std::vector<std::size_t> Run(const Script& script, SecondThread& second, Blocks blocks) {
    Runner runner(script, blocks);
    for (const Step& step : script.steps) {
        if (!step[1].empty()) {
            second.Begin([&runner, &step] { runner.Do(1, step[1]); });
        }
        runner.Do(0, step[0]);
        if (!step[1].empty()) {
            second.Wait();
        }
    }
    return runner.BlockSizes();
}

}  // namespace figures
