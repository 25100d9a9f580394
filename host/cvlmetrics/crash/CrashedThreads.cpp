#include "CrashedThreads.h"

#include "DeliverySide.h"

namespace Metrics {

bool CrashedThreads::IsCurrentInTheMiddle() noexcept {
    const TLog::InterruptedLogging logging = TLog::GetInterruptedLogging();
    return t_deliverySide.HasRole() || logging.held != nullptr || logging.isInsideBackEnd;
}

void CrashedThreads::AddCurrent(uint64 id) noexcept {
    const std::size_t index = m_count.fetch_add(1, std::memory_order_relaxed);
    if (index >= most) {
        return;
    }
    Entry& entry = m_entries[index];
    entry.thread.id = id;
    entry.thread.logging = TLog::GetInterruptedLogging();
    entry.isComplete.store(true, std::memory_order_release);
    // After: what this thread holds back is known to the thread that takes the role in its place.
    if (t_deliverySide.HasRole()) {
        m_haveRole.store(true, std::memory_order_release);
    }
}

void CrashedThreads::Clear() noexcept {
    for (Entry& entry : m_entries) {
        entry.isComplete.store(false, std::memory_order_relaxed);
        entry.isSeen = false;
    }
    m_haveRole.store(false, std::memory_order_relaxed);
    m_count.store(0, std::memory_order_release);
}

}  // namespace Metrics
