#include "LineNumbers.h"

#include "cvlsys/TSystem.h"

#include <atomic>

namespace tarn {
namespace {

// The process and its last number, changed together: a child that is forked finds its parent's.
constexpr int numberBits = 42;
constexpr uint64 numberMask = (uint64{1} << numberBits) - 1;

constinit std::atomic<uint64> s_last{0};

}  // namespace

uint64 DrawLineNumber() noexcept {
    const uint64 process = uint64{TSystem::ProcessID()} << numberBits;
    uint64 last = s_last.load(std::memory_order_relaxed);
    uint64 next = 0;
    do {
        const bool isOwn = (last & ~numberMask) == process;
        next = isOwn ? last + 1 : process + 1;
    } while (!s_last.compare_exchange_weak(last, next, std::memory_order_relaxed));
    return next & numberMask;
}

}  // namespace tarn
