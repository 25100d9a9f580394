#pragma once

#include "EventRecord.h"

#include "cvlmetrics/LentEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <new>

namespace Metrics {

/// What one thread has emitted and nobody has delivered yet: a ring of records that one thread
/// writes and one thread at a time reads, without a lock. It never grows; what its events take on
/// the heap, because they are too large for a record, counts against its room.
///
/// Records become visible in two steps: `Prepare` finds room and writes one, `Publish` makes all
/// that were prepared visible to the reader. Between the two the writer draws their tickets.
class EventQueue {
public:
    /// How much room a queue of `bytes` has: a power of two, enough for largest records, and not
    /// more than 256 MiB.
    static std::size_t CapacityFor(std::size_t bytes) noexcept;

    /// Throws `std::bad_alloc`.
    explicit EventQueue(std::size_t bytes);
    ~EventQueue();

    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    // For the thread that writes.

    /// Writes an event, behind what was prepared before, where the reader does not see it yet.
    /// False when there is no room for it now. One event that takes more of the heap than the queue
    /// may is let in when no other one is there. Throws `std::bad_alloc`.
    bool Prepare(const EventView& event);

    /// The same where the largest record would find room, so that the event need not be measured
    /// before it is written. False otherwise, and for an event that has no place in a queue.
    template <class Lent>
    bool TryToPrepare(const Lent& event) {
        const uint64 begin = m_prepared;
        if (begin > m_roomUntil && !FindRoom()) {
            return false;
        }
        const std::size_t bytes = EventRecord::TryWrite(At(begin), event);
        if (bytes == 0) {
            return false;
        }
        m_prepared = begin + bytes;
        ++m_preparedCount;
        return true;
    }

    /// How many records are prepared and not yet published.
    uint32 GetPreparedCount() const noexcept { return m_preparedCount; }

    /// Gives the prepared records their tickets, from this one on, and makes them visible to the
    /// reader.
    void Publish(uint64 firstTicket) noexcept;

    /// Whether so many quarters of the room are free, and `beside` bytes besides.
    bool HasFreeQuarters(unsigned quarters, std::size_t beside = 0) noexcept;

    /// Whether an event that is written now leaves so many quarters free. Throws `std::bad_alloc`.
    bool LeavesFreeQuarters(unsigned quarters, const EventView& event);

    /// Sleeps until the reader has made room, but not for long: the caller looks again.
    void WaitForRoom() noexcept;

    // For the thread that reads.

    /// The oldest record; null when there is none.
    EventRecord* Peek() noexcept;

    /// Gives the room of the record that was peeked back to the writer.
    void Pop() noexcept;

    /// Wakes the writer if it waits for room and there is some again.
    void WakeWriter() noexcept;

    // For a forked child, in which there is no other thread.

    /// Calls `action` with the head of each record that was not read yet, the oldest first.
    template <class Action>
    void ForEachHead(const Action& action) const {
        ForEachRecord([&action](const EventRecord& record) { action(record.GetHead()); });
    }

    /// Takes out those records that `drops` says of their heads, and gives the others new tickets,
    /// from this one on. How many others there are.
    template <class Condition>
    uint64 Renumber(uint64 firstTicket, const Condition& drops) noexcept {
        uint64 ticket = firstTicket;
        ForEachRecord([&](EventRecord& record) {
            if (drops(record.GetHead())) {
                TakeOut(record);
            } else {
                record.SetTicket(ticket);
                ++ticket;
            }
        });
        return ticket - firstTicket;
    }

    // For every thread.

    /// How many bytes were in use at most when the reader looked.
    std::size_t GetHighestFill() const noexcept {
        return m_highestFill.load(std::memory_order_relaxed);
    }

    std::size_t GetCapacity() const noexcept { return m_capacity; }

    /// Whether a thread writes to it. A queue whose thread has ended goes to another one, with what
    /// is still in it.
    std::atomic<bool> hasOwner{true};

private:
    template <class Action>
    void ForEachRecord(const Action& action) const {
        const uint64 end = m_written.load(std::memory_order_relaxed);
        for (uint64 position = m_read.load(std::memory_order_relaxed); position != end;) {
            auto* const record = std::launder(reinterpret_cast<EventRecord*>(At(position)));
            position += record->GetBytes();
            if (!record->IsGap()) {
                action(*record);
            }
        }
    }

    void TakeOut(EventRecord& record) noexcept;

    bool HasRoom(uint64 begin, std::size_t bytes) noexcept;
    bool HasHeapRoom(std::size_t bytes) noexcept;
    bool FindRoom() noexcept;

    std::byte* At(uint64 position) const noexcept { return m_ring.get() + (position & m_mask); }

    struct Free {
        void operator()(std::byte* ring) const noexcept;
    };

    const std::size_t m_capacity;
    const uint64 m_mask;
    const std::unique_ptr<std::byte, Free> m_ring;

    // Positions count bytes from the beginning of time; each side keeps to its own cache lines
    // (processors fetch them in pairs) and looks at the other's only when what it knows does not
    // suffice.
    static constexpr std::size_t cacheLine = 128;

    alignas(cacheLine) std::atomic<uint64> m_written{0};
    uint64 m_prepared = 0;
    uint64 m_readAsKnown = 0;
    // From the next position up to this one, the largest record finds room in one piece.
    uint64 m_roomUntil = 0;
    uint32 m_preparedCount = 0;
    // What the events that were ever prepared took on the heap, and those that were read.
    uint64 m_heapPrepared = 0;
    uint64 m_heapReadAsKnown = 0;

    alignas(cacheLine) std::atomic<uint64> m_read{0};
    std::atomic<uint64> m_heapRead{0};
    uint64 m_writtenAsKnown = 0;
    std::atomic<std::size_t> m_highestFill{0};

    alignas(cacheLine) std::atomic<uint32> m_writerWaits{0};
};

}  // namespace Metrics
