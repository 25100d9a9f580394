#pragma once

#include <csignal>

namespace tarn::otlp {

/// Blocks all signals for the calling thread, and for the threads that it starts meanwhile: these
/// keep it so, and no signal handler of the host's runs on them.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &m_before);
    }

    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t m_before{};
};

}  // namespace tarn::otlp
