#include "ThreadActivityRegistry.h"

#include <cstddef>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace tarn {
namespace {

using ContextStack = ThreadActivityRegistry::ContextStack;

// Trivially destructible, so it can be read however late the thread is in its exit. At a fixed
// distance from the thread pointer: every scope reads it several times.
struct StackOfThread {
    ContextStack* stack = nullptr;
    bool isGone = false;
};

[[gnu::tls_model("initial-exec")]] constinit thread_local StackOfThread t_thread;

struct Slot {
    std::shared_ptr<ContextStack> stack = std::make_shared<ContextStack>();

    Slot() { t_thread.stack = stack.get(); }

    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

    ~Slot() { t_thread = {.stack = nullptr, .isGone = true}; }
};

[[gnu::noinline]] ContextStack* MakeStack() {
    if (!t_thread.isGone) {
        thread_local const Slot slot;
        static_cast<void>(slot);
    }
    return t_thread.stack;
}

/// The calling thread's stack, made on first use; null when the thread has given it up.
ContextStack* FindStack() {
    ContextStack* const stack = t_thread.stack;
    return stack != nullptr ? stack : MakeStack();
}

}  // namespace

ThreadActivityRegistry::ContextStack::~ContextStack() {
    while (m_top != nullptr) {
        Entry& entry = *m_top;
        Unlink(entry);
        delete &entry;
    }
    while (m_spare != nullptr) {
        delete std::exchange(m_spare, m_spare->below);
    }
}

const std::shared_ptr<ActivityContext>& ThreadActivityRegistry::ContextStack::Top() const noexcept {
    static constinit const std::shared_ptr<ActivityContext> none;
    return m_top != nullptr ? m_top->context : none;
}

void ThreadActivityRegistry::ContextStack::Push(const std::shared_ptr<ActivityContext>& context) {
    // A context that only the caller holds cannot be here.
    Entry* const known = context.use_count() == 1 ? nullptr : Find(context.get());
    if (known != nullptr) {
        Unlink(*known);
        Link(*known);
        return;
    }
    if (m_size == std::numeric_limits<std::ptrdiff_t>::max()) {
        throw std::length_error("list too long");
    }
    Entry& entry = TakeSpare();
    entry.context = context;
    Link(entry);
    ++m_notIndexed;
}

void ThreadActivityRegistry::ContextStack::Remove(
    const std::shared_ptr<ActivityContext>& context) noexcept {
    if (m_top == nullptr) {
        return;
    }
    Entry* const known = m_top->context == context ? m_top : Find(context.get());
    if (known == nullptr) {
        return;
    }
    // What is taken out is let go at the very end: a context may be the last one to hold whatever
    // its destructor touches.
    const std::shared_ptr<ActivityContext> kept = std::move(known->context);
    if (m_index.empty() || m_index.erase(kept.get()) == 0) {
        --m_notIndexed;
    }
    Unlink(*known);
    MakeSpare(*known);
}

void ThreadActivityRegistry::ContextStack::Link(Entry& entry) noexcept {
    entry.below = m_top;
    entry.above = nullptr;
    if (m_top != nullptr) {
        m_top->above = &entry;
    }
    m_top = &entry;
    ++m_size;
}

void ThreadActivityRegistry::ContextStack::Unlink(Entry& entry) noexcept {
    if (entry.above != nullptr) {
        entry.above->below = entry.below;
    } else {
        m_top = entry.below;
    }
    if (entry.below != nullptr) {
        entry.below->above = entry.above;
    }
    --m_size;
}

ThreadActivityRegistry::ContextStack::Entry& ThreadActivityRegistry::ContextStack::TakeSpare() {
    if (m_spare == nullptr) {
        return *new Entry;
    }
    --m_spareCount;
    return *std::exchange(m_spare, m_spare->below);
}

void ThreadActivityRegistry::ContextStack::MakeSpare(Entry& entry) noexcept {
    constexpr std::size_t most = 16;
    if (m_spareCount == most) {
        delete &entry;
        return;
    }
    entry.below = m_spare;
    m_spare = &entry;
    ++m_spareCount;
}

ThreadActivityRegistry::ContextStack::Entry* ThreadActivityRegistry::ContextStack::Find(
    const ActivityContext* context) noexcept {
    if (BringIndexUpToDate()) {
        const auto known = m_index.find(context);
        return known != m_index.end() ? known->second : nullptr;
    }
    // Without memory it takes longer.
    Entry* entry = m_top;
    while (entry != nullptr && entry->context.get() != context) {
        entry = entry->below;
    }
    return entry;
}

bool ThreadActivityRegistry::ContextStack::BringIndexUpToDate() noexcept {
    try {
        for (Entry* entry = m_top; m_notIndexed != 0; entry = entry->below) {
            if (m_index.emplace(entry->context.get(), entry).second) {
                --m_notIndexed;
            }
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

ThreadActivityRegistry& ThreadActivityRegistry::GetInstance() {
    static constinit ThreadActivityRegistry registry;
    return registry;
}

std::shared_ptr<ActivityContext> ThreadActivityRegistry::GetCurrentContext() const {
    const ContextStack* const stack = FindStack();
    return stack != nullptr ? stack->Top() : nullptr;
}

const ActivityContext* ThreadActivityRegistry::PeekCurrentContext() const {
    const ContextStack* const stack = FindStack();
    return stack != nullptr ? stack->Top().get() : nullptr;
}

void ThreadActivityRegistry::Push(const std::shared_ptr<ActivityContext>& context) {
    if (context == nullptr) {
        return;
    }
    if (ContextStack* const stack = FindStack()) {
        stack->Push(context);
    }
}

void ThreadActivityRegistry::Remove(const std::shared_ptr<ActivityContext>& context) {
    if (ContextStack* const stack = FindStack()) {
        stack->Remove(context);
    }
}

std::size_t ThreadActivityRegistry::GetDepth() const {
    const ContextStack* const stack = FindStack();
    return stack != nullptr ? stack->Size() : 0;
}

}  // namespace tarn
