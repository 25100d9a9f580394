#include "cvlsys/TReadWriteLock.h"

#include "ThreadNumber.h"

#include "cvlsys/IntegerTypes.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <memory>
#include <mutex>
#include <thread>

namespace {

// Two cache lines: processors fetch them in pairs.
constexpr std::size_t separation = 128;

// Where the readers of some threads are counted.
struct alignas(separation) ReaderSlot {
    std::atomic<uint32> readers{0};
};

// Threads that read at the same moment should seldom share a slot; a writer visits them all.
std::size_t ChooseSlotCount() noexcept {
    const std::size_t processors = std::thread::hardware_concurrency();
    return std::bit_ceil(std::clamp<std::size_t>(2 * processors, 8, 128));
}

}  // namespace

// A reader announces itself in its slot and then looks for writers; a writer announces itself and
// then looks into the slots. All four steps are sequentially consistent, so at least one of the
// two sees the other, and it is the reader that steps back.
struct TReadWriteLock::State {
    // Writers that wait or hold the lock. Readers only read it, until a writer comes.
    alignas(separation) std::atomic<uint32> writers{0};
    alignas(separation) std::mutex oneWriter;
    std::size_t slotCount = ChooseSlotCount();
    std::unique_ptr<ReaderSlot[]> slots = std::make_unique<ReaderSlot[]>(slotCount);

    ReaderSlot& SlotOfThisThread() const noexcept {
        return slots[cvlsys::ThreadNumber() & (slotCount - 1)];
    }

    void Leave(ReaderSlot& slot) noexcept {
        if (slot.readers.fetch_sub(1, std::memory_order_seq_cst) == 1 &&
            writers.load(std::memory_order_seq_cst) != 0) {
            slot.readers.notify_all();
        }
    }
};

TReadWriteLock::TReadWriteLock(int /*options*/) : m_state(std::make_unique<State>()) {}

TReadWriteLock::~TReadWriteLock() = default;

void TReadWriteLock::LockRead() noexcept {
    State& state = *m_state;
    ReaderSlot& slot = state.SlotOfThisThread();
    slot.readers.fetch_add(1, std::memory_order_seq_cst);
    for (;;) {
        uint32 writers = state.writers.load(std::memory_order_seq_cst);
        if (writers == 0) {
            return;
        }
        state.Leave(slot);
        for (; writers != 0; writers = state.writers.load(std::memory_order_relaxed)) {
            state.writers.wait(writers, std::memory_order_relaxed);
        }
        slot.readers.fetch_add(1, std::memory_order_seq_cst);
    }
}

void TReadWriteLock::UnlockRead() noexcept {
    m_state->Leave(m_state->SlotOfThisThread());
}

void TReadWriteLock::LockWrite() noexcept {
    State& state = *m_state;
    state.writers.fetch_add(1, std::memory_order_seq_cst);
    state.oneWriter.lock();
    for (std::size_t i = 0; i < state.slotCount; ++i) {
        std::atomic<uint32>& readers = state.slots[i].readers;
        for (uint32 count = readers.load(std::memory_order_seq_cst); count != 0;
             count = readers.load(std::memory_order_seq_cst)) {
            readers.wait(count, std::memory_order_seq_cst);
        }
    }
}

void TReadWriteLock::UnlockWrite() noexcept {
    State& state = *m_state;
    state.oneWriter.unlock();
    if (state.writers.fetch_sub(1, std::memory_order_seq_cst) == 1) {
        state.writers.notify_all();
    }
}
