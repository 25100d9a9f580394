#include "Admission.h"

namespace Metrics {

// A reader loads m_everything first and m_bits second, and a change of both may fall between the
// two loads. Setting `everything` therefore keeps the old bits: a stale reader still sees a
// superset. Clearing it stores the new bits before the release of false: a reader that sees false
// sees them, too, and one that still sees true needs none.
void Admission::Publish(uint64 bits, bool everything) noexcept {
    const uint64 kept = everything ? m_bits.load(std::memory_order_relaxed) : 0;
    m_bits.store(kept | bits, std::memory_order_relaxed);
    m_everything.store(everything, std::memory_order_release);
}

}  // namespace Metrics
