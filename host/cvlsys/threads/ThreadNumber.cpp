#include "ThreadNumber.h"

#include <atomic>

namespace cvlsys {

namespace {

constinit std::atomic<uint64> s_lastNumber{0};

CVLSYS_FAST_THREAD_LOCAL uint64 t_number = 0;

}  // namespace

uint64 ThreadNumber() noexcept {
    if (t_number == 0) {
        t_number = s_lastNumber.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return t_number;
}

}  // namespace cvlsys
