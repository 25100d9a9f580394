#include "EventQueue.h"

#include "cvlsys/host/Futex.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <new>
#include <utility>

namespace Metrics {

namespace {

constexpr std::size_t smallestCapacity = 4 * EventRecord::largest;
constexpr std::size_t largestCapacity = std::size_t{256} << 20;
constexpr std::align_val_t ringAlignment{64};

std::byte* AllocateRing(std::size_t bytes) {
    return static_cast<std::byte*>(operator new(bytes, ringAlignment));
}

}  // namespace

void EventQueue::Free::operator()(std::byte* ring) const noexcept {
    operator delete(ring, ringAlignment);
}

std::size_t EventQueue::CapacityFor(std::size_t bytes) noexcept {
    return std::bit_ceil(std::clamp(bytes, smallestCapacity, largestCapacity));
}

EventQueue::EventQueue(std::size_t bytes)
    : m_capacity(CapacityFor(bytes)),
      m_mask(m_capacity - 1),
      m_ring(AllocateRing(m_capacity)) {}

EventQueue::~EventQueue() {
    while (EventRecord* const record = Peek()) {
        record->Discard();
        Pop();
    }
}

bool EventQueue::HasRoom(uint64 begin, std::size_t bytes) noexcept {
    if (begin + bytes - m_readAsKnown > m_capacity) {
        m_readAsKnown = m_read.load(std::memory_order_acquire);
    }
    return begin + bytes - m_readAsKnown <= m_capacity;
}

// The reader's position is read before the heap that it has given back: a thread that finds too
// little must not sleep if the reader has moved since (see `WaitForRoom`).
bool EventQueue::HasHeapRoom(std::size_t bytes) noexcept {
    if (bytes == 0 || m_heapPrepared == m_heapReadAsKnown) {
        return true;
    }
    m_readAsKnown = m_read.load(std::memory_order_acquire);
    m_heapReadAsKnown = m_heapRead.load(std::memory_order_acquire);
    const uint64 heapInUse = m_heapPrepared - m_heapReadAsKnown;
    return heapInUse == 0 || m_prepared - m_readAsKnown + heapInUse + bytes <= m_capacity;
}

bool EventQueue::FindRoom() noexcept {
    const uint64 endOfRing = (m_prepared | m_mask) + 1;
    if (!HasRoom(m_prepared, EventRecord::largest) ||
        endOfRing - m_prepared < EventRecord::largest) {
        return false;
    }
    m_roomUntil = std::min(endOfRing, m_readAsKnown + m_capacity) - EventRecord::largest;
    return true;
}

bool EventQueue::Prepare(const EventView& event) {
    const uint64 begin = m_prepared;
    const std::size_t atEnd = m_capacity - (begin & m_mask);
    const std::size_t bytes = EventRecord::BytesFor(event);
    // A record lies in one piece: what is left at the end of the ring may be too little for it.
    const std::size_t gap = atEnd < bytes ? atEnd : 0;
    const std::size_t heapBytes = EventRecord::HeapBytesFor(event, bytes);
    if (!HasRoom(begin, gap + bytes) || !HasHeapRoom(heapBytes)) {
        return false;
    }
    EventRecord::Write(At(begin + gap), bytes, event);
    if (gap != 0) {
        EventRecord::WriteGap(At(begin), gap);
    }
    m_prepared = begin + gap + bytes;
    m_heapPrepared += heapBytes;
    ++m_preparedCount;
    return true;
}

void EventQueue::Publish(uint64 firstTicket) noexcept {
    uint64 ticket = firstTicket;
    for (uint64 position = m_written.load(std::memory_order_relaxed); position != m_prepared;) {
        auto* const record = std::launder(reinterpret_cast<EventRecord*>(At(position)));
        if (!record->IsGap()) {
            record->SetTicket(ticket);
            ++ticket;
        }
        position += record->GetBytes();
    }
    m_preparedCount = 0;
    m_written.store(m_prepared, std::memory_order_release);
}

bool EventQueue::HasFreeQuarters(unsigned quarters, std::size_t beside) noexcept {
    const auto inUse = [this, beside] {
        return m_prepared - m_readAsKnown + m_heapPrepared - m_heapReadAsKnown + beside;
    };
    const uint64 inUseAtMost = m_capacity / 4 * (4 - quarters);
    if (inUse() > inUseAtMost) {
        m_readAsKnown = m_read.load(std::memory_order_acquire);
        m_heapReadAsKnown = m_heapRead.load(std::memory_order_acquire);
    }
    return inUse() <= inUseAtMost;
}

// In front of a record there may be a gap, which is shorter than the record.
bool EventQueue::LeavesFreeQuarters(unsigned quarters, const EventView& event) {
    return HasFreeQuarters(quarters, 2 * EventRecord::largest) ||
           HasFreeQuarters(quarters, 2 * EventRecord::BytesFor(event));
}

// The reader may look for waiting writers just before this one says that it waits. It looks again
// after its next batch, and a writer that was missed all the same wakes up by itself.
void EventQueue::WaitForRoom() noexcept {
    constexpr std::chrono::milliseconds timeout{20};
    m_writerWaits.store(1, std::memory_order_seq_cst);
    if (m_read.load(std::memory_order_seq_cst) == m_readAsKnown) {
        cvlsys::Futex::Wait(m_writerWaits, 1, timeout);
    }
    m_writerWaits.store(0, std::memory_order_relaxed);
}

void EventQueue::TakeOut(EventRecord& record) noexcept {
    m_heapRead.store(m_heapRead.load(std::memory_order_relaxed) + record.GetHeapBytes(),
                     std::memory_order_relaxed);
    record.Discard();
    EventRecord::WriteGap(reinterpret_cast<std::byte*>(&record), record.GetBytes());
}

EventRecord* EventQueue::Peek() noexcept {
    uint64 read = m_read.load(std::memory_order_relaxed);
    for (;;) {
        if (read == m_writtenAsKnown) {
            m_writtenAsKnown = m_written.load(std::memory_order_acquire);
            if (read == m_writtenAsKnown) {
                return nullptr;
            }
            const std::size_t fill = m_writtenAsKnown - read;
            if (fill > m_highestFill.load(std::memory_order_relaxed)) {
                m_highestFill.store(fill, std::memory_order_relaxed);
            }
        }
        auto* const record = std::launder(reinterpret_cast<EventRecord*>(At(read)));
        if (!record->IsGap()) {
            return record;
        }
        read += record->GetBytes();
        m_read.store(read, std::memory_order_release);
    }
}

void EventQueue::Pop() noexcept {
    const uint64 read = m_read.load(std::memory_order_relaxed);
    const auto* const record = std::launder(reinterpret_cast<const EventRecord*>(At(read)));
    if (record->IsBoxed()) {
        m_heapRead.store(m_heapRead.load(std::memory_order_relaxed) + record->GetHeapBytes(),
                         std::memory_order_release);
    }
    m_read.store(read + record->GetBytes(), std::memory_order_release);
}

// A writer that waits is worth waking once it can go on for a while.
void EventQueue::WakeWriter() noexcept {
    if (m_writerWaits.load(std::memory_order_relaxed) == 0) {
        return;
    }
    const uint64 read = m_read.load(std::memory_order_relaxed);
    const bool isMostlyFree = m_written.load(std::memory_order_acquire) - read <= m_capacity / 2;
    if (isMostlyFree && m_writerWaits.exchange(0, std::memory_order_acq_rel) != 0) {
        cvlsys::Futex::WakeAll(m_writerWaits);
    }
}

}  // namespace Metrics
