#pragma once

#include "JournalledSink.h"

#include "cvlsys/host/ForkOrder.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace cvlcoreplatform {

/// Looks after all journals of the process: a thread of its own, which runs while there are any,
/// writes blocks that are old enough; around a fork and at the end of the process the keeper sees
/// to what must not be left. There is one, which is never destroyed.
class JournalKeeper final : private cvlsys::ForkParticipant {
public:
    static JournalKeeper& Get() noexcept;

    JournalKeeper(const JournalKeeper&) = delete;
    JournalKeeper& operator=(const JournalKeeper&) = delete;

    /// Throws `std::bad_alloc`.
    void Add(const std::shared_ptr<JournalledSink>& sink);

    /// Whether there is a thread to write blocks; if not, it is tried to start one.
    bool HasThread() noexcept;

    /// To be told when a block has got its first line, and when a journal goes.
    void Wake() noexcept;

    /// At the end of the process.
    void RetireAll() noexcept;

private:
    JournalKeeper() noexcept;
    ~JournalKeeper() = default;

    void BeforeFork(ForkClock::time_point end) noexcept override;
    void AfterForkInParent() noexcept override;
    void AfterForkInChild() noexcept override;

    using Sinks = std::vector<std::shared_ptr<JournalledSink>>;

    Sinks TakeSinks();
    void Run() noexcept;
    bool WriteOldBlocks();

    // Nothing of a sink's runs under it.
    std::mutex m_mutex;
    std::vector<std::weak_ptr<JournalledSink>> m_sinks;
    Sinks m_lockedToFork;
    bool m_isLockedToFork = false;
    std::atomic<bool> m_hasThread{false};
    std::atomic<uint32> m_wakes{0};
};

}  // namespace cvlcoreplatform
