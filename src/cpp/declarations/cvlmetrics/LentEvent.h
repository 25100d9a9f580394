#pragma once

#include "cvlmetrics/Export.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/Scope.h"
#include "cvlmetrics/ValueView.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>

namespace Metrics {

/// An event, lent for the time of a call: nothing is made of its texts until somebody asks for it.
/// The members are those of `MetricsEvent`.
struct EventView {
    uint64 id = 0;
    uint64 contextId = 0;
    uint64 flags = 0;
    int64 time = 0;
    uint64 wallSeconds = 0;
    uint32 wallMicros = 0;
    MetricsEventType type = MetricsEventType{0};
    ValueView name = 0;
    ValueView value = 0;
    PairSpan pairs;

    static EventView Of(const MetricsEvent& event) {
        return {event.id,
                event.contextId,
                event.flags,
                event.time,
                event.wallSeconds,
                event.wallMicros,
                event.type,
                event.name,
                event.value,
                event.pairs};
    }
};

/// The events by which a scope ends, lent together: what it says last, and then that it is over.
/// All happen at one moment.
class EndEvents {
public:
    /// `close` is the last event. The statements are lent as long as this is.
    EndEvents(const EventView& close,
              const Scope::FinalEvent* statements,
              std::size_t count) noexcept
        : m_close(close),
          m_next(statements),
          m_end(statements + count) {}

    bool AreOver() const noexcept { return m_isOver; }

    /// How many there are still.
    std::size_t CountLeft() const noexcept {
        return m_isOver ? 0 : static_cast<std::size_t>(m_end - m_next) + 1;
    }

    /// The next one, where they are not over.
    EventView Take() noexcept {
        EventView event = m_close;
        if (m_next == m_end) {
            m_isOver = true;
            return event;
        }
        event.type = m_next->type;
        event.name = m_next->name;
        event.value = m_next->value;
        event.pairs = m_next->pairs;
        ++m_next;
        return event;
    }

    void TakeAll() noexcept { m_isOver = true; }

    /// The last event.
    const EventView& GetClose() const noexcept { return m_close; }

    /// What is said before it, from the next event on.
    const Scope::FinalEvent* GetStatements() const noexcept { return m_next; }

private:
    const EventView m_close;
    const Scope::FinalEvent* m_next;
    const Scope::FinalEvent* const m_end;
    bool m_isOver = false;
};

/// What a listener may be besides: one that reads events where they lie. Optional for a host: it
/// asks once, when the listener is added (`dynamic_cast`), and then calls this in place of
/// `OnMetricsEvent` wherever it has not made the event anyway. All else that holds for
/// `OnMetricsEvent` holds for this. A host that does not ask calls `OnMetricsEvent`.
class CVLMETRICS_API ILentListener {
public:
    virtual void OnLentEvent(const EventView& event) = 0;

    /// The events of a scope's end, by a host that lends them together: where this listener is the
    /// only one. It takes at least the next one, before anything can fail, and is called again for
    /// those that it leaves.
    virtual void OnLentEnd(EndEvents& events) { OnLentEvent(events.Take()); }

protected:
    ~ILentListener() = default;
};

}  // namespace Metrics
