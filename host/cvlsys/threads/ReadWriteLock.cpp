#include "cvlsys/host/ReadWriteLock.h"

#include "ReaderNotes.h"
#include "ThreadNumber.h"

#include "cvlsys/host/Futex.h"

#include <algorithm>
#include <bit>
#include <thread>

// A reader notes the lock among those that its thread holds (`ReaderNotes`) and then looks at the
// gate; a writer closes the gate and then looks into the notes of all threads. The reader's steps
// are a plain store and a plain load. The writer makes up for it: before it looks it has the kernel
// run a barrier on every processor that runs a thread of the process. At any moment a reader has
// noted before that barrier, and the writer sees it, or looks at the gate after it, sees it closed,
// and steps back. In the same way one of the two sees the other when a reader leaves and a writer
// waits for it.
//
// Where the kernel has no such barrier, and for a reader that has no room for a note, readers are
// counted in slots of the lock. Both then take sequentially consistent operations.
//
// The gate's word also counts the readers that have stepped back. A writer closes the gate only
// while there are none, in one step with looking: so all of them get in before the next writer,
// and while the gate is open none can be added.
//
// Who leaves changes one word and wakes those who sleep on it by its address: it does not read the
// lock any more. The same word says whether a thread sleeps.
//
// test/protocol runs all interleavings of a model of this.

namespace cvlsys {

namespace {

// In the gate's word.
constexpr uint32 closed = 1;
constexpr uint32 somebodySleeps = 2;
constexpr uint32 oneLateReader = 4;

// In the word of a thread's notes.
constexpr uint32 awaited = 1;

// In a slot's word.
constexpr uint32 writerSleeps = 1;
constexpr uint32 oneReader = 2;

// Threads that read at the same moment should seldom share a slot; a writer visits them all.
std::size_t ChooseSlotCount() noexcept {
    const std::size_t processors = std::thread::hardware_concurrency();
    return std::bit_ceil(std::clamp<std::size_t>(2 * processors, 8, 128));
}

/// Sleeps while `word` is `seen` with `flag`, which it sets for those who change the word. False
/// if it is past the end.
bool Sleep(std::atomic<uint32>& word,
           uint32 seen,
           uint32 flag,
           std::optional<ReadWriteLock::Clock::time_point> end) noexcept {
    std::chrono::nanoseconds time = std::chrono::hours(1);
    if (end.has_value()) {
        time = *end - ReadWriteLock::Clock::now();
        if (time <= std::chrono::nanoseconds::zero()) {
            return false;
        }
    }
    if ((seen & flag) != 0 || word.compare_exchange_strong(seen, seen | flag)) {
        Futex::Wait(word, seen | flag, time);
    }
    return true;
}

}  // namespace

// Where the readers of some threads are counted.
struct alignas(ReadWriteLock::separation) ReadWriteLock::ReaderSlot {
    std::atomic<uint32> word{0};

    void Enter() noexcept { word.fetch_add(oneReader); }

    void Leave() noexcept {
        if (word.fetch_sub(oneReader) == oneReader + writerSleeps) {
            Futex::WakeAll(word);
        }
    }
};

ReadWriteLock::ReadWriteLock()
    : m_readersAreNoted(ReaderNotes::AreSeen()),
      m_slotCount(ChooseSlotCount()),
      m_slots(std::make_unique<ReaderSlot[]>(m_slotCount)) {}

ReadWriteLock::~ReadWriteLock() = default;

ReadWriteLock::ReaderSlot& ReadWriteLock::SlotOfThisThread() const noexcept {
    return m_slots[ThreadNumber() & (m_slotCount - 1)];
}

void ReadWriteLock::lock_shared() noexcept {
    ReaderNotes* const notes = ReaderNotes::OfThisThread();
    const bool isNoted = notes != nullptr && notes->Note(*this);
    const bool isCounted = !m_readersAreNoted || !isNoted;
    if (isCounted) {
        SlotOfThisThread().Enter();
    }
    // Sequentially consistent, which is a plain load where it matters.
    if ((m_gate.load() & closed) != 0) {
        StepBackAndWait(isCounted);
    }
}

void ReadWriteLock::StepBackAndWait(bool isCounted) noexcept {
    unlock_shared();
    m_gate.fetch_add(oneLateReader);
    for (uint32 gate = m_gate.load(); (gate & closed) != 0; gate = m_gate.load()) {
        Sleep(m_gate, gate, somebodySleeps, std::nullopt);
    }
    // Nobody closes the gate before this thread is inside.
    if (isCounted) {
        SlotOfThisThread().Enter();
    }
    if (ReaderNotes* const notes = ReaderNotes::OfThisThread()) {
        notes->Note(*this);
    }
    const uint32 before = m_gate.fetch_sub(oneLateReader);
    if (before == oneLateReader + somebodySleeps) {
        Futex::WakeAll(m_gate);
    }
}

// When it has left, the lock may be gone.
void ReadWriteLock::unlock_shared() noexcept {
    const bool areNoted = m_readersAreNoted;
    ReaderNotes* const notes = ReaderNotes::Known();
    if (notes == nullptr || !notes->Forget(*this) || !areNoted) [[unlikely]] {
        LeaveSlot();
    }
}

[[gnu::noinline]] void ReadWriteLock::LeaveSlot() noexcept {
    SlotOfThisThread().Leave();
}

bool ReadWriteLock::CloseGate(std::optional<Clock::time_point> end) noexcept {
    for (;;) {
        uint32 gate = m_gate.load();
        if ((gate & ~somebodySleeps) == 0) {
            if (m_gate.compare_exchange_strong(gate, gate | closed)) {
                return true;
            }
        } else if (!Sleep(m_gate, gate, somebodySleeps, end)) {
            return false;
        }
    }
}

void ReadWriteLock::OpenGate() noexcept {
    if ((m_gate.fetch_and(~(closed | somebodySleeps)) & somebodySleeps) != 0) {
        Futex::WakeAll(m_gate);
    }
}

bool ReadWriteLock::LockUntil(std::optional<Clock::time_point> end) noexcept {
    if (!CloseGate(end)) {
        return false;
    }
    if (!AwaitNoted(end) || !AwaitCounted(end)) {
        OpenGate();
        return false;
    }
    m_writer.store(ThreadNumber(), std::memory_order_relaxed);
    return true;
}

bool ReadWriteLock::AwaitNoted(std::optional<Clock::time_point> end) const noexcept {
    if (!m_readersAreNoted) {
        return true;
    }
    ReaderNotes::Publish();
    for (ReaderNotes* notes = ReaderNotes::First(); notes != nullptr; notes = notes->Next()) {
        while (notes->Contains(*this)) {
            notes->IsAwaited().store(awaited);
            ReaderNotes::Publish();
            if (notes->Contains(*this) && !Sleep(notes->IsAwaited(), awaited, awaited, end)) {
                return false;
            }
        }
    }
    return true;
}

bool ReadWriteLock::AwaitCounted(std::optional<Clock::time_point> end) const noexcept {
    for (std::size_t i = 0; i < m_slotCount; ++i) {
        std::atomic<uint32>& word = m_slots[i].word;
        bool isInTime = true;
        for (uint32 seen = word.load(); isInTime && seen >= oneReader; seen = word.load()) {
            isInTime = Sleep(word, seen, writerSleeps, end);
        }
        word.fetch_and(~writerSleeps);
        if (!isInTime) {
            return false;
        }
    }
    return true;
}

void ReadWriteLock::unlock() noexcept {
    m_writer.store(0, std::memory_order_relaxed);
    OpenGate();
}

bool ReadWriteLock::IsHeldByThisThread() const noexcept {
    const ReaderNotes* const notes = ReaderNotes::OfThisThread();
    return m_writer.load(std::memory_order_relaxed) == ThreadNumber() ||
           (notes != nullptr && notes->Contains(*this));
}

void ReadWriteLock::FreeInForkedChild() noexcept {
    const bool isWriting = m_writer.load(std::memory_order_relaxed) == ThreadNumber();
    const bool isReading = !isWriting && IsHeldByThisThread();
    for (std::size_t i = 0; i < m_slotCount; ++i) {
        m_slots[i].word.store(0);
    }
    if (isReading && !m_readersAreNoted) {
        SlotOfThisThread().Enter();
    }
    m_writer.store(isWriting ? ThreadNumber() : 0, std::memory_order_relaxed);
    m_gate.store(isWriting ? closed : 0);
}

}  // namespace cvlsys
