#pragma once

#include <csignal>

namespace cvlcoreplatform {

/// While it lives, a write into a pipe without a reader fails with `EPIPE` and does not end the
/// process. It concerns the calling thread alone: what the process does about the signal stays the
/// host's affair. Costs two system calls.
class PipeSignalGuard {
public:
    PipeSignalGuard() noexcept;

    /// Leaves `errno` alone.
    ~PipeSignalGuard();

    PipeSignalGuard(const PipeSignalGuard&) = delete;
    PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

    /// To be called after a write that failed with `EPIPE`: takes the signal back.
    void TakeBack() const noexcept;

private:
    sigset_t m_before{};
    bool m_wasBlocked = false;
    // A signal that was there before belongs to somebody else.
    bool m_wasPending = false;
};

}  // namespace cvlcoreplatform
