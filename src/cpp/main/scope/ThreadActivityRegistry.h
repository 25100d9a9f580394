#pragma once

#include "BlockPool.h"
#include "ThreadObject.h"

#include "tarn/ActivityContext.h"

#include <cstddef>
#include <memory>
#include <unordered_map>

namespace tarn {

/// Which activity each thread works for. The operations concern the calling thread's own stack
/// and take no lock. Once a thread has torn its stack down (late in its exit), nothing is current
/// on it any more and the operations do nothing.
class ThreadActivityRegistry {
public:
    /// Contexts in the order in which they became current, each at most once; any of them can
    /// leave. All operations take constant time on average.
    ///
    /// Nearly always a new context comes and the one on top leaves, and neither is searched for.
    /// The index is for the others: it knows the contexts that were there at the last search.
    class ContextStack {
    public:
        ContextStack() noexcept = default;
        ~ContextStack();
        ContextStack(const ContextStack&) = delete;
        ContextStack& operator=(const ContextStack&) = delete;

        /// Null when the stack is empty. The reference is good until the stack changes.
        const std::shared_ptr<ActivityContext>& Top() const noexcept;

        /// The same without a share.
        const ActivityContext* Peek() const noexcept {
            return m_top != nullptr ? m_top->context.get() : nullptr;
        }

        /// Puts the context on top; one that is there already moves up.
        void Push(const std::shared_ptr<ActivityContext>& context);

        void Remove(const std::shared_ptr<ActivityContext>& context) noexcept;

        std::size_t Size() const noexcept { return m_size; }

    private:
        /// Holds its context alive.
        struct Entry {
            std::shared_ptr<ActivityContext> context;
            Entry* below = nullptr;
            Entry* above = nullptr;
        };

        void Link(Entry& entry) noexcept;
        void Unlink(Entry& entry) noexcept;
        void Destroy(Entry& entry) noexcept;

        Entry* Find(const ActivityContext* context) noexcept;
        bool BringIndexUpToDate() noexcept;

        Entry* m_top = nullptr;
        std::size_t m_size = 0;

        // So many entries are not in the index: the topmost ones, unless memory ran out.
        std::size_t m_notIndexed = 0;
        std::unordered_map<const ActivityContext*, Entry*> m_index;
        BlockPool<sizeof(Entry), 16> m_blocks;
    };

    static ThreadActivityRegistry& GetInstance() noexcept { return s_instance; }

    std::shared_ptr<ActivityContext> GetCurrentContext() const;

    /// As `GetCurrentContext`, without a share in it: good until the calling thread's stack
    /// changes.
    const ActivityContext* PeekCurrentContext() const {
        const ContextStack* const stack = t_stack.Get();
        return stack != nullptr ? stack->Peek() : nullptr;
    }

    /// Null is ignored. Throws `std::length_error` when the stack cannot grow.
    void Push(const std::shared_ptr<ActivityContext>& context);

    /// A context that is not on the stack is ignored.
    void Remove(const std::shared_ptr<ActivityContext>& context) {
        if (ContextStack* const stack = t_stack.Get()) {
            stack->Remove(context);
        }
    }

    /// How many contexts are on the calling thread's stack.
    std::size_t GetDepth() const;

private:
    constexpr ThreadActivityRegistry() noexcept = default;

    static ThreadActivityRegistry s_instance;

    // At a fixed distance from the thread pointer: every scope reads it several times.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local ThreadObject<ContextStack>
        t_stack;
};

}  // namespace tarn
