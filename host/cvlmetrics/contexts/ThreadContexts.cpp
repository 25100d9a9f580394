#include "ThreadContexts.h"

#include <utility>
#include <vector>

namespace Metrics::ThreadContexts {

namespace {

using Stack = std::vector<std::shared_ptr<ContextState>>;

// Trivially destructible, so that it can be asked for as long as the thread runs any code; the
// stack itself goes when the thread's other thread-local objects go.
struct StackOfThread {
    Stack* stack = nullptr;
    // On top of the stack; null when that is not known.
    ContextState* top = nullptr;
    bool isTornDown = false;
};

[[gnu::tls_model("initial-exec")]] constinit thread_local StackOfThread t_thread;

class OwnedStack {
public:
    OwnedStack() noexcept { t_thread.stack = &m_stack; }

    ~OwnedStack() { t_thread = {.stack = nullptr, .top = nullptr, .isTornDown = true}; }

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

namespace {

[[gnu::noinline]] ContextState* FindCurrent() noexcept {
    Stack* const stack = t_thread.stack;
    if (stack == nullptr) {
        return nullptr;
    }
    while (!stack->empty() && HasEnded(*stack->back())) {
        stack->pop_back();
    }
    t_thread.top = stack->empty() ? nullptr : stack->back().get();
    return t_thread.top;
}

}  // namespace

ContextState* Current() noexcept {
    ContextState* const top = t_thread.top;
    return top != nullptr && !HasEnded(*top) ? top : FindCurrent();
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
    t_thread.top = nullptr;
    // What has ended elsewhere goes as well: a thread that never asks for its current context
    // would gather it for ever.
    std::erase_if(*stack, [&](const auto& other) { return other == context || HasEnded(*other); });
    stack->push_back(std::move(context));
}

void Remove(const ContextState& context) noexcept {
    t_thread.top = nullptr;
    if (t_thread.stack != nullptr) {
        std::erase_if(*t_thread.stack, [&](const auto& other) { return other.get() == &context; });
    }
}

}  // namespace Metrics::ThreadContexts
