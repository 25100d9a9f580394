#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/ForkOrder.h"

#include <atomic>
#include <mutex>

namespace cvlsys {

/// A mutex that a forked child finds unlocked, with what it guards as it is between two holds: a
/// fork waits for its holder, without a limit. So nothing that may take long, and nothing of the
/// host's, is done under it. As every `ForkParticipant`, it lives as long as the process.
class CVLSYS_API ForkAwareMutex final : private ForkParticipant {
public:
    explicit ForkAwareMutex(ForkRank rank) noexcept : ForkParticipant(rank) {}

    ~ForkAwareMutex() = default;
    ForkAwareMutex(const ForkAwareMutex&) = delete;
    ForkAwareMutex& operator=(const ForkAwareMutex&) = delete;

    // NOLINTBEGIN(readability-identifier-naming): named by the language

    void lock() { m_mutex.lock(); }

    bool try_lock() { return m_mutex.try_lock(); }

    void unlock() { m_mutex.unlock(); }

    // NOLINTEND(readability-identifier-naming)

private:
    void BeforeFork(ForkClock::time_point end) noexcept override;
    void AfterForkInParent() noexcept override;
    void AfterForkInChild() noexcept override;

    std::mutex m_mutex;
    // The number of the thread that has locked it to fork.
    std::atomic<uint64> m_forker{0};
};

}  // namespace cvlsys
