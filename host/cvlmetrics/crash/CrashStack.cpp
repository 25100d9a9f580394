#include "cvlmetrics/host/SaveOnCrash.h"

#include <algorithm>
#include <csignal>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace Metrics {

namespace {

bool HasStack() noexcept {
    stack_t current{};
    return sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) == 0;
}

/// What a handler of the host's may need, too; processors with wide registers save a lot of them.
std::size_t StackBytes() noexcept {
    constexpr long enough = 64L << 10;
    constexpr long frames = 8;
    return static_cast<std::size_t>(std::max(enough, frames * sysconf(_SC_MINSIGSTKSZ)));
}

}  // namespace

// With a page below that nobody may touch: an overflow here must not write into other memory.
CrashStack::CrashStack() {
    if (HasStack()) {
        return;
    }
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t bytes = (StackBytes() + page - 1) / page * page;
    void* const memory =
        mmap(nullptr, page + bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    stack_t stack{};
    stack.ss_sp = static_cast<char*>(memory) + page;
    stack.ss_size = bytes;
    if (mprotect(memory, page, PROT_NONE) != 0 || sigaltstack(&stack, nullptr) != 0) {
        munmap(memory, page + bytes);
        throw std::bad_alloc();
    }
    m_memory = memory;
    m_bytes = page + bytes;
}

CrashStack::~CrashStack() {
    if (m_memory == nullptr) {
        return;
    }
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    // A handler that runs on it at the moment keeps it.
    if (sigaltstack(&none, nullptr) == 0) {
        munmap(m_memory, m_bytes);
    }
}

}  // namespace Metrics
