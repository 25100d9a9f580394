#include "cvlsys/TReadWriteLock.h"

#include "ThreadNumber.h"

#include "cvlsys/host/ForkOrder.h"
#include "cvlsys/host/ReadWriteLock.h"

#include <atomic>
#include <list>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace {

using cvlsys::ForkParticipant;

struct ListedLock : cvlsys::ReadWriteLock {
    std::list<std::shared_ptr<ListedLock>>::iterator place;
};

/// All there are, so that a fork can lock them: a child finds what they guard as it is between two
/// holds.
class AllLocks final : private ForkParticipant {
public:
    static AllLocks& Get() {
        static AllLocks& all = *new AllLocks;
        return all;
    }

    void Add(const std::shared_ptr<ListedLock>& lock) {
        std::list<std::shared_ptr<ListedLock>> newcomer{lock};
        lock->place = newcomer.begin();
        const std::lock_guard guard(m_mutex);
        m_all.splice(m_all.end(), newcomer);
    }

    void Remove(const ListedLock& lock) noexcept {
        std::list<std::shared_ptr<ListedLock>> gone;
        const std::lock_guard guard(m_mutex);
        gone.splice(gone.end(), m_all, lock.place);
    }

private:
    using Locks = std::vector<std::shared_ptr<ListedLock>>;

    AllLocks() noexcept : ForkParticipant(cvlsys::ForkRank::ReadWriteLocks) {}

    ~AllLocks() = default;

    // The list is not locked while it waits for those in it: who holds one may be making another.
    void BeforeFork(ForkClock::time_point end) noexcept override {
        Locks locks = Copy();
        for (std::shared_ptr<ListedLock>& lock : locks) {
            // Those that cannot be had are only made free in the child.
            if (lock->IsHeldByThisThread() || !lock->LockUntil(end)) {
                lock.reset();
            }
        }
        m_mutex.lock();
        m_forker.store(cvlsys::ThreadNumber(), std::memory_order_relaxed);
        m_locked.swap(locks);
    }

    Locks Copy() noexcept {
        const std::lock_guard guard(m_mutex);
        try {
            return {m_all.begin(), m_all.end()};
        } catch (const std::bad_alloc&) {
            return {};
        }
    }

    bool IsForker() const noexcept {
        return m_forker.load(std::memory_order_relaxed) == cvlsys::ThreadNumber();
    }

    void AfterForkInParent() noexcept override {
        if (!IsForker()) {
            return;
        }
        const Locks locked = std::exchange(m_locked, {});
        for (const std::shared_ptr<ListedLock>& lock : locked) {
            if (lock != nullptr) {
                lock->unlock();
            }
        }
        m_forker.store(0, std::memory_order_relaxed);
        m_mutex.unlock();
    }

    void AfterForkInChild() noexcept override {
        if (IsForker()) {
            AfterForkInParent();
        } else {
            new (&m_mutex) std::mutex;
        }
        for (const std::shared_ptr<ListedLock>& lock : m_all) {
            lock->FreeInForkedChild();
        }
    }

    std::mutex m_mutex;
    std::list<std::shared_ptr<ListedLock>> m_all;
    // Of the thread that forks, which holds the mutex meanwhile.
    Locks m_locked;
    std::atomic<uint64> m_forker{0};
};

// While this library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const AllLocks& madeAtLoad = AllLocks::Get();

}  // namespace

struct TReadWriteLock::State : ListedLock {};

TReadWriteLock::TReadWriteLock(int /*options*/) : m_state(std::make_shared<State>()) {
    AllLocks::Get().Add(m_state);
}

TReadWriteLock::~TReadWriteLock() {
    AllLocks::Get().Remove(*m_state);
}

void TReadWriteLock::LockRead() noexcept {
    m_state->lock_shared();
}

void TReadWriteLock::UnlockRead() noexcept {
    m_state->unlock_shared();
}

void TReadWriteLock::LockWrite() noexcept {
    m_state->lock();
}

void TReadWriteLock::UnlockWrite() noexcept {
    m_state->unlock();
}
