#include "ThreadActivityRegistry.h"

#include <cstddef>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

namespace tarn {

constinit ThreadActivityRegistry ThreadActivityRegistry::s_instance;
constinit thread_local ThreadObject<ThreadActivityRegistry::ContextStack>
    ThreadActivityRegistry::t_stack;

ThreadActivityRegistry::ContextStack::~ContextStack() {
    while (m_top != nullptr) {
        Entry& entry = *m_top;
        Unlink(entry);
        Destroy(entry);
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
    Entry& entry = *new (m_blocks.Take()) Entry{.context = context};
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
    Destroy(*known);
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

void ThreadActivityRegistry::ContextStack::Destroy(Entry& entry) noexcept {
    entry.~Entry();
    m_blocks.Release(&entry);
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

std::shared_ptr<ActivityContext> ThreadActivityRegistry::GetCurrentContext() const {
    const ContextStack* const stack = t_stack.Get();
    return stack != nullptr ? stack->Top() : nullptr;
}

void ThreadActivityRegistry::Push(const std::shared_ptr<ActivityContext>& context) {
    if (context == nullptr) {
        return;
    }
    if (ContextStack* const stack = t_stack.Get()) {
        stack->Push(context);
    }
}

std::size_t ThreadActivityRegistry::GetDepth() const {
    const ContextStack* const stack = t_stack.Get();
    return stack != nullptr ? stack->Size() : 0;
}

}  // namespace tarn
