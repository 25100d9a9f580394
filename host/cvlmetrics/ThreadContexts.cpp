#include "ThreadContexts.h"

#include <utility>
#include <vector>

namespace Metrics::ThreadContexts {

namespace {

using Stack = std::vector<std::shared_ptr<ContextState>>;

// Trivially destructible, so that it can be asked for as long as the thread runs any code; the
// stack itself goes when the thread's other thread-local objects go.
struct ThreadSide {
    Stack* stack = nullptr;
    bool isTornDown = false;
};

constinit thread_local ThreadSide t_thread;

class OwnedStack {
public:
    OwnedStack() noexcept { t_thread.stack = &m_stack; }

    ~OwnedStack() { t_thread = {.stack = nullptr, .isTornDown = true}; }

    OwnedStack(const OwnedStack&) = delete;
    OwnedStack& operator=(const OwnedStack&) = delete;

    Stack& Get() noexcept { return m_stack; }

private:
    Stack m_stack;
};

Stack* StackForPushing() {
    if (t_thread.stack == nullptr && !t_thread.isTornDown) {
        thread_local OwnedStack ownedStack;
        return &ownedStack.Get();
    }
    return t_thread.stack;
}

bool HasEnded(const ContextState& context) noexcept {
    return context.ended.load(std::memory_order_relaxed);
}

}  // namespace

ContextState* Current() noexcept {
    Stack* const stack = t_thread.stack;
    if (stack == nullptr) {
        return nullptr;
    }
    while (!stack->empty() && HasEnded(*stack->back())) {
        stack->pop_back();
    }
    return stack->empty() ? nullptr : stack->back().get();
}

uint64 CurrentId() noexcept {
    const ContextState* const current = Current();
    return current == nullptr ? 0 : current->id;
}

void Push(std::shared_ptr<ContextState> context) {
    Stack* const stack = StackForPushing();
    if (stack == nullptr) {
        return;
    }
    // What has ended elsewhere goes as well: a thread that never asks for its current context
    // would gather it for ever.
    std::erase_if(*stack, [&](const auto& other) { return other == context || HasEnded(*other); });
    stack->push_back(std::move(context));
}

void Remove(const ContextState& context) noexcept {
    if (t_thread.stack != nullptr) {
        std::erase_if(*t_thread.stack, [&](const auto& other) { return other.get() == &context; });
    }
}

}  // namespace Metrics::ThreadContexts
