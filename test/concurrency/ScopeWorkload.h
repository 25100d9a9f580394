#pragma once

#include "TaskQueue.h"

#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <functional>
#include <utility>

namespace stress {

/// Threads that open trees of nested scopes, up to 64 deep, in which scopes open and close at
/// random. Some carry custom contexts, some measure; some hand work over to helping threads: a
/// child context with the captured activity, or the whole scope, which moves there and perhaps
/// comes back.
///
/// Each scope says in its opening attributes its number ("n"), the number of the scope that
/// encloses it ("under", -1 for none), the scope whose custom context holds for it ("layer"), and
/// its thread. The end event has the number as well. Numbers grow within a tree.
class ScopeWorkload {
public:
    static constexpr int deepest = 64;

    /// `beforeTree` is called on the working threads before they begin a tree.
    ScopeWorkload(int threads, uint64 seed, std::function<void()> beforeTree = {})
        : m_threads(threads),
          m_seed(seed),
          m_beforeTree(std::move(beforeTree)) {}

    /// Opens and closes so many scopes and a few more; returns when all have ended.
    void Run(uint64 scopes);

    uint64 OpenedScopes() const { return m_opened; }

    uint64 MadeContexts() const { return m_contexts; }

    uint64 HandOvers() const { return m_handOvers; }

    static int64 TreeOf(int64 number) { return number >> placeBits; }

    static int64 PlaceOf(int64 number) { return number & ((int64{1} << placeBits) - 1); }

private:
    class Tree;

    static constexpr int placeBits = 16;

    void Work(int thread, uint64 scopes);

    const int m_threads;
    const uint64 m_seed;
    const std::function<void()> m_beforeTree;
    int64 m_runs = 0;
    TaskQueue m_tasks;
    std::atomic<uint64> m_opened{0};
    std::atomic<uint64> m_contexts{0};
    std::atomic<uint64> m_handOvers{0};
};

}  // namespace stress
