#pragma once

#include <csignal>

namespace packagesearch {

/// The request to end the program: SIGTERM or SIGINT. Make it first of all, on
/// the main thread: these signals then interrupt no thread, and wait until they are asked for.
class StopSignal {
public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Returns when there was one, at any time since the construction.
    void Wait() const;

private:
    sigset_t m_signals{};
    sigset_t m_formerMask{};
};

}  // namespace packagesearch
