#pragma once

#include "cvlsys/Export.h"

#include <atomic>
#include <chrono>

namespace cvlsys {

/// The limit on what all participants add to a fork, even when a listener or a log hangs.
inline constexpr std::chrono::milliseconds forkLimit{1000};

/// The participants in a fork, in locking order: a thread that holds one of them locks later ones
/// only. A fork locks all of them in this order and frees them in the
/// opposite one. Locks after `Logger` are short: nothing of the host's runs under them.
enum class ForkRank {
    Bus,     ///< listeners run under its lock
    Logger,  ///< log back ends run under its lock
    Sinks,   ///< what sinks of a monitor keep
    DeliveryChoice,
    DeliveringThread,
    LateQueue,
    Queues,
    PendingContexts,
    Removals,
    TarnEnabled,
    ReadWriteLocks,  ///< all that there are of `TReadWriteLock`
    Values           ///< no lock: what is another value in the child
};

/// Something that has to be put right around a fork. One handler of the process, registered when
/// this library is loaded, calls all of them in the order of their ranks; so they need not be made
/// in any order. An object registers itself for good: it is made while its library is loaded (no
/// first use of it can meet a fork then) and lives as long as the process.
class CVLSYS_API ForkParticipant {
public:
    ForkParticipant(const ForkParticipant&) = delete;
    ForkParticipant& operator=(const ForkParticipant&) = delete;

    using ForkClock = std::chrono::steady_clock;

    /// On the thread that forks. What may be held for long is waited for until `end`; then the fork
    /// happens all the same.
    virtual void BeforeFork(ForkClock::time_point end) noexcept = 0;

    /// On the thread that has forked. It may be called for what was registered during the fork,
    /// too.
    virtual void AfterForkInParent() noexcept = 0;

    /// On the only thread of the child. The other threads may have been anywhere if `BeforeFork`
    /// did not lock them out.
    virtual void AfterForkInChild() noexcept = 0;

    /// The next one in the order; null for the last.
    ForkParticipant* Next() const noexcept { return m_next.load(std::memory_order_acquire); }

protected:
    explicit ForkParticipant(ForkRank rank) noexcept;
    ~ForkParticipant() = default;

private:
    const ForkRank m_rank;
    std::atomic<ForkParticipant*> m_next{nullptr};
};

/// Calls a function in each forked child, before any lock is freed there.
class CVLSYS_API InForkedChild final : private ForkParticipant {
public:
    using Function = void (*)();

    explicit InForkedChild(Function function) noexcept
        : ForkParticipant(ForkRank::Values),
          m_function(function) {}

    ~InForkedChild() = default;
    InForkedChild(const InForkedChild&) = delete;
    InForkedChild& operator=(const InForkedChild&) = delete;

private:
    void BeforeFork(ForkClock::time_point end) noexcept override;
    void AfterForkInParent() noexcept override;
    void AfterForkInChild() noexcept override;

    const Function m_function;
};

}  // namespace cvlsys
