#pragma once

#include "EventRecord.h"

#include "cvlmetrics/LentEvent.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlmetrics/ValueView.h"

#include <array>
#include <cstddef>
#include <vector>

namespace Metrics {

/// The event that the consumers are receiving: lent, or made for those who want one of their own.
/// Reuses the previous event of the same type as storage: events of one type mostly hold texts in
/// the same places, and a text that no consumer has kept is overwritten. For the thread that
/// delivers.
class ReceivedEvents {
public:
    /// Throws `std::bad_alloc`.
    ReceivedEvents() { m_shared.reserve(fewShared); }

    ~ReceivedEvents() = default;
    ReceivedEvents(const ReceivedEvents&) = delete;
    ReceivedEvents& operator=(const ReceivedEvents&) = delete;

    /// The event of a record that is not boxed, until the next one; the record may go.
    EventView Lend(const EventRecord& record) noexcept { return CopyOf(record).View(Pairs()); }

    /// The same of an end.
    EndEvents LendEnd(const EventRecord& record) noexcept {
        return CopyOf(record).ViewEnd(reinterpret_cast<Scope::FinalEvent*>(m_statements.data()),
                                      Pairs());
    }

    /// The event of a boxed record, until `Release`; the record is not read again.
    const MetricsEvent& TakeBoxed(EventRecord& record) noexcept;

    /// Makes the event of what is lent, until `Release`. Throws `std::bad_alloc`.
    const MetricsEvent& Make(const EventView& event);

    /// Releases what was taken or made last, except for memory to use again. The event's emitter
    /// still holds what it is made of.
    void Release() noexcept {
        if (m_made != nullptr) {
            ReleaseMade();
        }
    }

private:
    static constexpr std::size_t types = 13;
    static constexpr std::size_t mostPairsKept = 64;
    static constexpr std::size_t fewShared = 64;

    const EventRecord& CopyOf(const EventRecord& record) noexcept;

    PairView* Pairs() noexcept { return reinterpret_cast<PairView*>(m_pairs.data()); }

    void ReleaseMade() noexcept;
    void ReleaseShared() noexcept;
    static void Clear(MetricsEvent& event) noexcept;

    MetricsEvent& Last(MetricsEventType type) noexcept;

    // Whose record was lent.
    alignas(EventRecord::alignment) std::array<std::byte, EventRecord::largest> m_record{};
    alignas(PairView) std::array<std::byte, EventRecord::mostPairs * sizeof(PairView)> m_pairs{};
    alignas(Scope::FinalEvent)
        std::array<std::byte,
                   EventRecord::mostStatements * sizeof(Scope::FinalEvent)> m_statements{};
    // By type; unknown types share the first one, which no known type has.
    std::array<MetricsEvent, types> m_last;
    MetricsEvent m_boxed;
    MetricsEvent* m_made = nullptr;
    // Values of the made event that its emitter holds, too.
    std::vector<MetricsValue*> m_shared;
};

}  // namespace Metrics
