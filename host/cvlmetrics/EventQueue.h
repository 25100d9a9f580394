#pragma once

#include "EventRecord.h"
#include "EventView.h"

#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <cstddef>
#include <memory>

namespace Metrics {

/// What one thread has emitted and nobody has delivered yet: a ring of records that one thread
/// writes and one thread at a time reads, without a lock. It never grows.
///
/// A record becomes visible in two steps: `Prepare` finds room and writes it, `Publish` shows it to
/// the reader. Between the two the writer draws the record's ticket.
class EventQueue {
public:
    /// `bytes` is rounded up to a power of two, and to what a largest record needs. Throws
    /// `std::bad_alloc`.
    explicit EventQueue(std::size_t bytes);
    ~EventQueue();

    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    // For the thread that writes.

    /// Writes an event where the reader does not see it yet; null when there is no room for it now.
    /// Throws `std::bad_alloc`.
    EventRecord* Prepare(const EventView& event);

    /// Shows the reader the record that was prepared last.
    void Publish() noexcept;

    /// Whether so many quarters of the ring are free.
    bool HasFreeQuarters(unsigned quarters) noexcept;

    /// Sleeps until the reader has made room, but not for long: the caller looks again.
    void WaitForRoom() noexcept;

    // For the thread that reads.

    /// The oldest record; null when there is none.
    EventRecord* Peek() noexcept;

    /// Gives the room of the record that was peeked back to the writer.
    void Pop() noexcept;

    /// Wakes the writer if it waits for room and there is some again.
    void WakeWriter() noexcept;

    // For every thread.

    /// How many bytes were in use at most when the reader looked.
    std::size_t GetHighestFill() const noexcept {
        return m_highestFill.load(std::memory_order_relaxed);
    }

    std::size_t GetCapacity() const noexcept { return m_capacity; }

    /// Whether a thread writes to it. A queue whose thread has ended goes to another one when it is
    /// empty.
    std::atomic<bool> hasOwner{true};

private:
    bool HasRoom(uint64 begin, std::size_t bytes) noexcept;

    std::byte* At(uint64 position) const noexcept { return m_ring.get() + (position & m_mask); }

    struct Free {
        void operator()(std::byte* ring) const noexcept;
    };

    const std::size_t m_capacity;
    const uint64 m_mask;
    const std::unique_ptr<std::byte, Free> m_ring;

    // Positions count bytes from the beginning of time; each side keeps to its own cache line and
    // looks at the other's only when what it knows does not suffice.
    static constexpr std::size_t cacheLine = 64;

    alignas(cacheLine) std::atomic<uint64> m_written{0};
    uint64 m_prepared = 0;
    uint64 m_readAsKnown = 0;

    alignas(cacheLine) std::atomic<uint64> m_read{0};
    uint64 m_writtenAsKnown = 0;
    std::atomic<std::size_t> m_highestFill{0};

    alignas(cacheLine) std::atomic<uint32> m_writerWaits{0};
};

}  // namespace Metrics
