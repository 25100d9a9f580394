#pragma once

#include "tarn/ActivityContext.h"

#include <cstddef>
#include <list>
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
    class ContextStack {
    public:
        /// Null when the stack is empty.
        std::shared_ptr<ActivityContext> Top() const;

        /// Puts the context on top; one that is there already moves up.
        void Push(const std::shared_ptr<ActivityContext>& context);

        void Remove(const std::shared_ptr<ActivityContext>& context);

        std::size_t Size() const noexcept { return m_order.size(); }

    private:
        using Order = std::list<std::shared_ptr<ActivityContext>>;

        using Index = std::unordered_map<std::shared_ptr<ActivityContext>, Order::iterator>;

        // Both hold the contexts alive; the back of the order is the top.
        Index m_index;
        Order m_order;

        // The nodes of the last context that left, for the next one that comes: most scopes are
        // alone on their level and would otherwise allocate both anew.
        Index::node_type m_spareIndexNode;
        Order m_spareOrderNode;
    };

    static ThreadActivityRegistry& GetInstance();

    std::shared_ptr<ActivityContext> GetCurrentContext() const;

    /// Null is ignored. Throws `std::length_error` when the stack cannot grow.
    void Push(const std::shared_ptr<ActivityContext>& context);

    /// A context that is not on the stack is ignored.
    void Remove(const std::shared_ptr<ActivityContext>& context);

    /// How many contexts are on the calling thread's stack.
    std::size_t GetDepth() const;

private:
    ThreadActivityRegistry() = default;
};

}  // namespace tarn
