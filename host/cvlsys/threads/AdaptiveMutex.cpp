#include "cvlsys/host/AdaptiveMutex.h"

#include <new>

namespace cvlsys {

void AdaptiveMutex::LockAsUrgent() {
    BeginUrgent();
    m_mutex.lock();
    EndUrgent();
}

void AdaptiveMutex::BeginUrgent() noexcept {
    m_urgent.fetch_add(1, std::memory_order_relaxed);
}

void AdaptiveMutex::EndUrgent() noexcept {
    m_urgent.fetch_sub(1, std::memory_order_relaxed);
    m_urgent.notify_all();
}

void AdaptiveMutex::ForgetOtherThreads(bool isHeldByThisThread) noexcept {
    m_urgent.store(0, std::memory_order_relaxed);
    if (!isHeldByThisThread) {
        new (&m_mutex) std::mutex;
    }
}

void AdaptiveMutex::AwaitUrgent() noexcept {
    for (uint32 urgent = m_urgent.load(std::memory_order_relaxed); urgent != 0;
         urgent = m_urgent.load(std::memory_order_relaxed)) {
        m_urgent.wait(urgent, std::memory_order_relaxed);
    }
}

}  // namespace cvlsys
