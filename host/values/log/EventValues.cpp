#include "EventValues.h"

namespace TLog {

EventFields::~EventFields() {
    if (!HasGivenValues()) {
        delete m_values.load(std::memory_order_relaxed);
    }
}

// Threads that ask at the same time may both make the values; the first one that is done wins.
const EventValues& EventFields::MakeValues() const {
    auto made = std::make_unique<const EventValues>(m_make(*this));
    const EventValues* expected = nullptr;
    if (m_values.compare_exchange_strong(
            expected, made.get(), std::memory_order_acq_rel, std::memory_order_acquire)) {
        return *made.release();
    }
    return *expected;
}

}  // namespace TLog
