#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/ForkOrder.h"

#include <atomic>
#include <mutex>

namespace cvlsys {

/// A mutex that is unlocked in a forked child, with the data that it guards in a whole state: a
/// fork waits for the holder, without a limit. So do nothing under it that may take long, and call
/// nothing of the host's. As every `ForkParticipant`, it lives as long as the process.
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
