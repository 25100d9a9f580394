#include "ThreadActivityRegistry.h"

#include <iterator>
#include <stdexcept>

namespace tarn {
namespace {

// Trivially destructible, so it can be read however late the thread is in its exit.
constinit thread_local bool t_slotIsGone = false;

struct Slot {
    std::shared_ptr<ThreadActivityRegistry::ContextStack> stack =
        std::make_shared<ThreadActivityRegistry::ContextStack>();

    Slot() = default;
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

    ~Slot() { t_slotIsGone = true; }
};

/// The calling thread's stack, made on first use; null when the thread has given it up.
ThreadActivityRegistry::ContextStack* FindStack() {
    if (t_slotIsGone) {
        return nullptr;
    }
    thread_local Slot slot;
    return slot.stack.get();
}

}  // namespace

std::shared_ptr<ActivityContext> ThreadActivityRegistry::ContextStack::Top() const {
    return m_order.empty() ? nullptr : m_order.back();
}

void ThreadActivityRegistry::ContextStack::Push(const std::shared_ptr<ActivityContext>& context) {
    const auto known = m_index.find(context);
    if (known != m_index.end()) {
        m_order.splice(m_order.end(), m_order, known->second);
        return;
    }
    if (m_order.size() >= m_order.max_size()) {
        throw std::length_error("list too long");
    }
    if (!m_spareOrderNode.empty() && !m_spareIndexNode.empty()) {
        m_spareOrderNode.front() = context;
        m_spareIndexNode.key() = context;
        m_spareIndexNode.mapped() = m_spareOrderNode.begin();
        m_order.splice(m_order.end(), m_spareOrderNode);
        m_index.insert(std::move(m_spareIndexNode));
        return;
    }
    m_order.push_back(context);
    try {
        m_index.emplace(context, std::prev(m_order.end()));
    } catch (...) {
        m_order.pop_back();
        throw;
    }
}

void ThreadActivityRegistry::ContextStack::Remove(const std::shared_ptr<ActivityContext>& context) {
    const auto known = m_index.find(context);
    if (known == m_index.end()) {
        return;
    }
    // What is taken out is let go at the very end: a context may be the last one to hold whatever
    // its destructor touches.
    const std::shared_ptr<ActivityContext> kept = known->first;
    m_spareOrderNode.clear();
    m_spareOrderNode.splice(m_spareOrderNode.end(), m_order, known->second);
    m_spareOrderNode.front() = nullptr;
    m_spareIndexNode = m_index.extract(known);
    m_spareIndexNode.key() = nullptr;
}

ThreadActivityRegistry& ThreadActivityRegistry::GetInstance() {
    static ThreadActivityRegistry registry;
    return registry;
}

std::shared_ptr<ActivityContext> ThreadActivityRegistry::GetCurrentContext() const {
    const ContextStack* const stack = FindStack();
    return stack != nullptr ? stack->Top() : nullptr;
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
