#include "CrashedThreads.h"

#include "ThreadSide.h"

namespace Metrics {

void CrashedThreads::AddCurrent(uint64 id) noexcept {
    const std::size_t index = m_count.fetch_add(1, std::memory_order_relaxed);
    if (index >= most) {
        return;
    }
    Entry& entry = m_entries[index];
    entry.thread.id = id;
    entry.thread.isDelivering = t_side.delivery != nullptr || t_side.ownDelivery != nullptr;
    entry.thread.logging = TLog::GetInterruptedLogging();
    entry.isComplete.store(true, std::memory_order_release);
}

bool CrashedThreads::HaveRole() const noexcept {
    for (const Entry& entry : m_entries) {
        if (entry.isComplete.load(std::memory_order_acquire) && entry.thread.isDelivering) {
            return true;
        }
    }
    return false;
}

void CrashedThreads::Clear() noexcept {
    for (Entry& entry : m_entries) {
        entry.isComplete.store(false, std::memory_order_relaxed);
        entry.isSeen = false;
    }
    m_count.store(0, std::memory_order_release);
}

}  // namespace Metrics
