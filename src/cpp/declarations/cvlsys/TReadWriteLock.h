#pragma once

#include "cvlsys/Export.h"

#include <memory>

/// Lock for data that is read all the time and written seldom: any number of readers, or one
/// writer. Readers on different threads do not slow each other down. Not recursive: a thread
/// that holds the lock in either way and takes it again may wait for ever. A waiting writer
/// keeps new readers out; readers that wait when a writer leaves get in before the next one. Who
/// has locked it last may destroy it, once all others have begun to leave.
///
/// A forked child finds the lock free, unless the thread that forked holds it, and what it guards
/// as it is between two holds: the fork waits for those inside, for a second at most. So nobody
/// should wait for a thread that forks while it holds the lock. A thread that forks may hold four
/// of them for reading.
class CVLSYS_API TReadWriteLock {
public:
    /// `options` is reserved; pass 0.
    explicit TReadWriteLock(int options);
    ~TReadWriteLock();
    TReadWriteLock(const TReadWriteLock&) = delete;
    TReadWriteLock& operator=(const TReadWriteLock&) = delete;

    void LockRead() noexcept;
    void UnlockRead() noexcept;
    void LockWrite() noexcept;
    void UnlockWrite() noexcept;

    /// Holds the lock for reading from construction to destruction.
    class ReadGuard {
    public:
        explicit ReadGuard(TReadWriteLock& lock) noexcept : m_lock(lock) { m_lock.LockRead(); }

        ~ReadGuard() { m_lock.UnlockRead(); }

        ReadGuard(const ReadGuard&) = delete;
        ReadGuard& operator=(const ReadGuard&) = delete;

    private:
        TReadWriteLock& m_lock;
    };

    /// Holds the lock for writing from construction to destruction.
    class WriteGuard {
    public:
        explicit WriteGuard(TReadWriteLock& lock) noexcept : m_lock(lock) { m_lock.LockWrite(); }

        ~WriteGuard() { m_lock.UnlockWrite(); }

        WriteGuard(const WriteGuard&) = delete;
        WriteGuard& operator=(const WriteGuard&) = delete;

    private:
        TReadWriteLock& m_lock;
    };

private:
    struct State;
    std::shared_ptr<State> m_state;
};
