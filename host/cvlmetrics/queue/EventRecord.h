#pragma once

#include "cvlmetrics/LentEvent.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <cstdint>

namespace Metrics {

/// An event as bytes in a queue: the texts are copied, so that what the emitting thread has
/// allocated it also releases, and a queued event asks for no memory. Of a text that lives as long
/// as the process the address is enough. An event that is very large or holds what no event should
/// (values of unknown kinds) is kept on the heap instead, and the record only points to it.
///
/// A record begins on a multiple of eight bytes and is a multiple of eight long. It is written by
/// one thread and read by another.
class EventRecord {
public:
    static constexpr std::size_t alignment = 8;
    static constexpr std::size_t largest = 4096;

    /// How much room the record of an event takes, never more than `largest`. Throws
    /// `std::bad_alloc`.
    static std::size_t BytesFor(const EventView& event);

    /// How many bytes the event takes on the heap, beside a record of so many bytes.
    static std::size_t HeapBytesFor(const EventView& event, std::size_t bytes) noexcept;

    /// Writes the record of an event to `place`, where `room` bytes are free: what `BytesFor` says,
    /// or `largest`. Throws `std::bad_alloc` if the heap is needed and full; nothing has happened
    /// then.
    static EventRecord& Write(std::byte* place, std::size_t room, const EventView& event);

    /// Writes the record of an event to `place`, where `largest` bytes are free, and says how long
    /// it is: 0 if it is no event for a place in the queue.
    static std::size_t TryWrite(std::byte* place, const EventView& event);

    /// The same of a whole end.
    static std::size_t TryWrite(std::byte* place, const EndEvents& events);

    /// Writes a record that stands for nothing, to fill the end of a ring.
    static void WriteGap(std::byte* place, std::size_t bytes) noexcept;

    /// What a record is: nothing, an event, one that is on the heap, or the events of an end.
    enum class Form : std::uint16_t { Gap, Inline, Boxed, End };

    Form GetForm() const noexcept { return m_form; }

    /// Whether the event is on the heap, from where `TakeBoxed` gets it. All others are lent by
    /// `View` and `ViewEnd`.
    bool IsBoxed() const noexcept { return m_form == Form::Boxed; }

    /// So many pairs no event in a record exceeds, and so many statements no end.
    static constexpr std::size_t mostPairs = largest / (2 * sizeof(uint64));
    static constexpr std::size_t mostStatements = 8;
    /// With the end itself.
    static constexpr std::size_t mostEvents = mostStatements + 1;

    /// The event, lent as long as the record. Its pairs are built in `room`, which is for
    /// `mostPairs` of them.
    EventView View(PairView* room) const noexcept;

    /// The events of an end, likewise. The statements are built in `statements`, which has room for
    /// `mostStatements` of them.
    EndEvents ViewEnd(Scope::FinalEvent* statements, PairView* room) const noexcept;

    /// Gives the event away; the record is not read again. The event shares texts with its
    /// emitter.
    MetricsEvent TakeBoxed() noexcept;

    /// How many bytes the event takes on the heap; also after it was read.
    std::size_t GetHeapBytes() const noexcept;

    /// The type of the event, and the scope or context that it is about.
    struct Head {
        MetricsEventType type;
        uint64 id;
    };

    Head GetHead() const noexcept;

    /// Releases what the record holds, unread.
    void Discard() noexcept;

    std::size_t GetBytes() const noexcept { return m_bytes; }

    bool IsGap() const noexcept { return m_form == Form::Gap; }

    /// The event's place among the events of all threads.
    uint64 GetTicket() const noexcept { return m_ticket; }

    void SetTicket(uint64 ticket) noexcept { m_ticket = ticket; }

private:
    struct Fixed;
    struct Box;

    EventRecord(std::size_t bytes, Form form, std::size_t count) noexcept
        : m_bytes(static_cast<uint32>(bytes)),
          m_count(static_cast<std::uint16_t>(count)),
          m_form(form) {}

    static std::size_t TryWrite(std::byte* place, std::size_t room, const EventView& event);
    static EventRecord& WriteBoxed(std::byte* place, const EventView& event);

    static std::size_t Finish(std::byte* place,
                              const std::byte* end,
                              Form form,
                              std::size_t count,
                              const EventView& event) noexcept;

    std::byte* Content() noexcept { return reinterpret_cast<std::byte*>(this + 1); }

    const std::byte* Content() const noexcept {
        return reinterpret_cast<const std::byte*>(this + 1);
    }

    // At the very end of a ring there may be room for these three only; a gap has no ticket.
    uint32 m_bytes;
    std::uint16_t m_count;  ///< of pairs, or of an end's statements
    Form m_form;
    uint64 m_ticket = 0;
};

}  // namespace Metrics
