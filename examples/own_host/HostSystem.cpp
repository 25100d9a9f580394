// A custom host, lowest layer: threads and locks.
#include "cvlsys/RefCntObject.h"
#include "cvlsys/TReadWriteLock.h"
#include "cvlsys/TSystem.h"

#include <shared_mutex>
#include <unistd.h>

RefCntObject::~RefCntObject() = default;

uint64 TSystem::ThreadID() noexcept {
    return static_cast<uint64>(gettid());
}

uint32 TSystem::ProcessID() noexcept {
    return static_cast<uint32>(getpid());
}

struct TReadWriteLock::State {
    std::shared_mutex mutex;
};

TReadWriteLock::TReadWriteLock(int /*options*/) : m_state(std::make_shared<State>()) {}

TReadWriteLock::~TReadWriteLock() = default;

void TReadWriteLock::LockRead() noexcept {
    m_state->mutex.lock_shared();
}

void TReadWriteLock::UnlockRead() noexcept {
    m_state->mutex.unlock_shared();
}

void TReadWriteLock::LockWrite() noexcept {
    m_state->mutex.lock();
}

void TReadWriteLock::UnlockWrite() noexcept {
    m_state->mutex.unlock();
}
