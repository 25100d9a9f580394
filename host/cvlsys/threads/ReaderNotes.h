#pragma once

#include "cvlsys/IntegerTypes.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace cvlsys {

class ReadWriteLock;

/// The locks that one thread holds for reading. It writes them down here with plain stores, and a
/// writer looks into the notes of all threads. Never freed, as a writer may be looking: notes of a
/// thread that has ended are the next one's.
class alignas(128) ReaderNotes {
public:
    static constexpr std::size_t most = 4;

    /// The calling thread's; null where it has none yet, and gets none: at its end, or without
    /// memory for them.
    static ReaderNotes* OfThisThread() noexcept { return t_own != nullptr ? t_own : Begin(); }

    /// The same, of which there are some if the thread has noted anything.
    static ReaderNotes* Known() noexcept { return t_own; }

    /// Whether there was room. Afterwards it is to be looked whether a writer has come: the writer
    /// sees the note then, or the thread sees the writer, if the writer calls `Publish` in between
    /// closing its lock and looking.
    bool Note(const ReadWriteLock& lock) noexcept {
        const bool isNoted = Replace(nullptr, &lock);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return isNoted;
    }

    /// Whether it was there. Wakes writers that wait for it; does not touch the lock.
    bool Forget(const ReadWriteLock& lock) noexcept {
        const bool wasNoted = Replace(&lock, nullptr);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (m_isAwaited.load(std::memory_order_relaxed) != 0) [[unlikely]] {
            WakeWriters();
        }
        return wasNoted;
    }

    bool Contains(const ReadWriteLock& lock) const noexcept;

    /// For writers, which visit all threads' notes: those of threads that begin to read after
    /// `Publish` can be left out.
    static ReaderNotes* First() noexcept;

    ReaderNotes* Next() const noexcept { return m_next; }

    /// Where a writer sleeps, while the word is 1.
    std::atomic<uint32>& IsAwaited() noexcept { return m_isAwaited; }

    /// Whether writers can see notes at all. The same for the life of the process.
    static bool AreSeen() noexcept;

    /// For a writer: what each thread has noted before is seen afterwards, and what it reads
    /// after that is what the writer has written before. Keeps `errno`.
    static void Publish() noexcept;

    /// For the only thread of a forked child: nobody else holds or waits for anything.
    static void KeepThoseOfThisThread() noexcept;

    /// For `host::ThreadEnd`.
    static void AtThreadEnd() noexcept;

private:
    using Lock = std::atomic<const ReadWriteLock*>;

    // Release: what was read under the lock was read before.
    bool Replace(const ReadWriteLock* known, const ReadWriteLock* replacement) noexcept {
        for (Lock& lock : m_locks) {
            if (lock.load(std::memory_order_relaxed) == known) {
                lock.store(replacement, std::memory_order_release);
                return true;
            }
        }
        return false;
    }

    static ReaderNotes* Begin() noexcept;
    static ReaderNotes* Take() noexcept;
    bool IsEmpty() const noexcept;
    void WakeWriters() noexcept;

    // As `CVLSYS_FAST_THREAD_LOCAL`.
    [[gnu::tls_model("initial-exec")]] static inline constinit thread_local ReaderNotes* t_own =
        nullptr;

    // In any order; null where there is room.
    std::array<Lock, most> m_locks{};
    std::atomic<uint32> m_isAwaited{0};
    std::atomic<bool> m_isTaken{true};
    ReaderNotes* m_next = nullptr;
};

}  // namespace cvlsys
