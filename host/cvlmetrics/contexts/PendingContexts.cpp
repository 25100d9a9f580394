#include "PendingContexts.h"

#include "cvlsys/host/ForkAwareMutex.h"

#include <atomic>
#include <cstddef>
#include <mutex>
#include <unordered_map>

namespace Metrics::PendingContexts {

namespace {

struct Kept {
    cvlsys::ForkAwareMutex mutex{cvlsys::ForkRank::PendingContexts};
    std::unordered_map<uint64, Facts> facts;
};

Kept& GetKept() {
    static Kept& kept = *new Kept;
    return kept;
}

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const Kept& madeAtLoad = GetKept();

constinit std::atomic<std::size_t> s_count{0};

}  // namespace

void Keep(uint64 contextId, Facts facts) {
    Kept& kept = GetKept();
    const std::lock_guard lock(kept.mutex);
    kept.facts.emplace(contextId, facts);
    s_count.store(kept.facts.size(), std::memory_order_relaxed);
}

Facts Take(uint64 contextId) noexcept {
    // Passing a context's id to another thread makes the count visible there, too.
    if (s_count.load(std::memory_order_relaxed) == 0) {
        return {};
    }
    Kept& kept = GetKept();
    const std::lock_guard lock(kept.mutex);
    const auto found = kept.facts.extract(contextId);
    s_count.store(kept.facts.size(), std::memory_order_relaxed);
    return found.empty() ? Facts{} : found.mapped();
}

}  // namespace Metrics::PendingContexts
