#include "cvlsys/host/ForkAwareMutex.h"

#include "ThreadNumber.h"

#include <new>

namespace cvlsys {

void ForkAwareMutex::BeforeFork(ForkClock::time_point /*end*/) noexcept {
    m_mutex.lock();
    m_forker.store(ThreadNumber(), std::memory_order_relaxed);
}

void ForkAwareMutex::AfterForkInParent() noexcept {
    // Otherwise it was made during the fork, and somebody else may hold it.
    if (m_forker.load(std::memory_order_relaxed) == ThreadNumber()) {
        m_forker.store(0, std::memory_order_relaxed);
        m_mutex.unlock();
    }
}

void ForkAwareMutex::AfterForkInChild() noexcept {
    if (m_forker.load(std::memory_order_relaxed) == ThreadNumber()) {
        AfterForkInParent();
    } else {
        new (&m_mutex) std::mutex;
    }
}

}  // namespace cvlsys
