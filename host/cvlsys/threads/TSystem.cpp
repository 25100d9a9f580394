#include "cvlsys/TSystem.h"

#include "ThreadNumber.h"

#include "cvlsys/host/ForkOrder.h"

#include <atomic>
#include <unistd.h>

namespace TSystem {

namespace {

constinit std::atomic<uint32> s_processId{0};

CVLSYS_FAST_THREAD_LOCAL uint64 t_threadId = 0;

// The thread that forked is the only one in the child, so its ids are the only stale ones.
void ForgetIdsInChild() {
    s_processId.store(0, std::memory_order_relaxed);
    t_threadId = 0;
}

// When the library is loaded, not at first use: a lock around the first use could be held by
// another thread at the moment of the fork.
[[maybe_unused]] cvlsys::InForkedChild forgetIds(ForgetIdsInChild);

}  // namespace

uint64 ThreadID() noexcept {
    if (t_threadId == 0) {
        t_threadId = static_cast<uint64>(gettid());
    }
    return t_threadId;
}

uint32 ProcessID() noexcept {
    uint32 id = s_processId.load(std::memory_order_relaxed);
    if (id == 0) {
        id = static_cast<uint32>(getpid());
        s_processId.store(id, std::memory_order_relaxed);
    }
    return id;
}

}  // namespace TSystem
