#include "ThreadContexts.h"

#include "ThreadLocalObject.h"

#include <utility>
#include <vector>

namespace Metrics::ThreadContexts {

namespace {

// On top of the thread's stack; null when that is not known.
[[gnu::tls_model("initial-exec")]] constinit thread_local ContextState* t_top = nullptr;

struct Stack {
    Stack() noexcept = default;
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;

    ~Stack() { t_top = nullptr; }

    std::vector<std::shared_ptr<ContextState>> contexts;
};

using ThreadStack = host::ThreadObject<Stack>;

bool HasEnded(const ContextState& context) noexcept {
    return context.ended.load(std::memory_order_relaxed);
}

[[gnu::noinline]] ContextState* FindCurrent() noexcept {
    Stack* const stack = ThreadStack::Peek();
    if (stack == nullptr) {
        return nullptr;
    }
    auto& contexts = stack->contexts;
    while (!contexts.empty() && HasEnded(*contexts.back())) {
        contexts.pop_back();
    }
    t_top = contexts.empty() ? nullptr : contexts.back().get();
    return t_top;
}

}  // namespace

ContextState* Current() noexcept {
    ContextState* const top = t_top;
    return top != nullptr && !HasEnded(*top) ? top : FindCurrent();
}

uint64 CurrentId() noexcept {
    const ContextState* const current = Current();
    return current == nullptr ? 0 : current->id;
}

void Push(std::shared_ptr<ContextState> context) {
    Stack* const stack = ThreadStack::Get();
    if (stack == nullptr) {
        return;
    }
    t_top = nullptr;
    // What has ended elsewhere goes as well: a thread that never asks for its current context
    // would gather it for ever.
    std::erase_if(stack->contexts,
                  [&](const auto& other) { return other == context || HasEnded(*other); });
    stack->contexts.push_back(std::move(context));
}

void Remove(const ContextState& context) noexcept {
    t_top = nullptr;
    if (Stack* const stack = ThreadStack::Peek()) {
        std::erase_if(stack->contexts, [&](const auto& other) { return other.get() == &context; });
    }
}

}  // namespace Metrics::ThreadContexts
