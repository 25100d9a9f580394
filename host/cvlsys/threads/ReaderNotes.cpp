#include "ReaderNotes.h"

#include "ThreadEnd.h"

#include "cvlsys/host/ForkOrder.h"
#include "cvlsys/host/Futex.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <linux/membarrier.h>
#include <new>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace cvlsys {

namespace {

// Nothing is ever taken out.
constinit std::atomic<ReaderNotes*> s_first{nullptr};

// How many are in nobody's use.
constinit std::atomic<int> s_free{0};

bool Membarrier(int command) noexcept {
    return syscall(SYS_membarrier, command, 0, 0) == 0;
}

bool Register() noexcept {
#if defined(__SANITIZE_THREAD__)
    return false;  // it knows nothing of such barriers, and would report a race
#else
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
    return false;
#endif
#endif
    return Membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED);
#endif
}

}  // namespace

bool ReaderNotes::AreSeen() noexcept {
    static const bool areSeen = Register();
    return areSeen;
}

namespace {

// While this library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const bool registeredAtLoad = ReaderNotes::AreSeen();

}  // namespace

// A sandbox that was set up later may refuse it. Processors do not keep a store to themselves for a
// ten thousandth of that time.
void ReaderNotes::Publish() noexcept {
    constexpr std::chrono::milliseconds longEnough{10};
    const int hostErrno = errno;
    if (!Membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) &&
        !(Register() && Membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED))) {
        std::this_thread::sleep_for(longEnough);
    }
    errno = hostErrno;
}

ReaderNotes* ReaderNotes::First() noexcept {
    return s_first.load(std::memory_order_acquire);
}

bool ReaderNotes::IsEmpty() const noexcept {
    return std::all_of(m_locks.begin(), m_locks.end(), [](const Lock& noted) {
        return noted.load(std::memory_order_relaxed) == nullptr;
    });
}

bool ReaderNotes::Contains(const ReadWriteLock& lock) const noexcept {
    return std::any_of(m_locks.begin(), m_locks.end(), [&](const Lock& noted) {
        return noted.load(std::memory_order_acquire) == &lock;
    });
}

void ReaderNotes::WakeWriters() noexcept {
    m_isAwaited.store(0);
    Futex::WakeAll(m_isAwaited);
}

ReaderNotes* ReaderNotes::Begin() noexcept {
    if (host::ThreadEnd<ReaderNotes>::Watch()) {
        t_own = Take();
    }
    return t_own;
}

// Not from `operator new`: a thread's first lock is nothing that a scope has allocated.
ReaderNotes* ReaderNotes::Take() noexcept {
    if (s_free.load(std::memory_order_relaxed) > 0) {
        for (ReaderNotes* notes = First(); notes != nullptr; notes = notes->m_next) {
            if (!notes->m_isTaken.exchange(true, std::memory_order_acquire)) {
                s_free.fetch_sub(1, std::memory_order_relaxed);
                return notes;
            }
        }
    }
    void* const room = std::aligned_alloc(alignof(ReaderNotes), sizeof(ReaderNotes));
    if (room == nullptr) {
        return nullptr;
    }
    auto* const notes = new (room) ReaderNotes;
    notes->m_next = s_first.load(std::memory_order_relaxed);
    while (!s_first.compare_exchange_weak(notes->m_next, notes)) {
    }
    return notes;
}

// A thread that ends with a lock keeps it for ever, and its notes with it.
void ReaderNotes::AtThreadEnd() noexcept {
    if (t_own != nullptr && t_own->IsEmpty()) {
        t_own->m_isTaken.store(false, std::memory_order_release);
        s_free.fetch_add(1, std::memory_order_relaxed);
        t_own = nullptr;
    }
}

// Only this thread is there.
void ReaderNotes::KeepThoseOfThisThread() noexcept {
    int free = 0;
    for (ReaderNotes* notes = First(); notes != nullptr; notes = notes->m_next) {
        notes->m_isAwaited.store(0, std::memory_order_relaxed);
        if (notes != t_own) {
            for (Lock& lock : notes->m_locks) {
                lock.store(nullptr, std::memory_order_relaxed);
            }
            notes->m_isTaken.store(false, std::memory_order_relaxed);
            ++free;
        }
    }
    s_free.store(free, std::memory_order_relaxed);
}

[[maybe_unused]] InForkedChild keepThoseOfThisThread(ReaderNotes::KeepThoseOfThisThread);

}  // namespace cvlsys
