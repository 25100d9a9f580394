#include "Admission.h"

namespace Metrics {

// A reader takes m_everything first and m_bits second, and a change of both may fall between the
// two loads. On the way to "everything" the bits therefore only grow: who still saw false finds the
// old bits among them. On the way back the new bits are stored before the release of false: who
// sees that false finds them, who still saw true needs none.
void Admission::Publish(uint64 bits, bool everything) noexcept {
    const uint64 kept = everything ? m_bits.load(std::memory_order_relaxed) : 0;
    m_bits.store(kept | bits, std::memory_order_relaxed);
    m_everything.store(everything, std::memory_order_release);
}

}  // namespace Metrics
