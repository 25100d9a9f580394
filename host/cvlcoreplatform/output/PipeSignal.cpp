#include "PipeSignal.h"

#include <cerrno>
#include <ctime>

namespace cvlcoreplatform {

namespace {

sigset_t PipeSignalAlone() noexcept {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    return signals;
}

}  // namespace

PipeSignalGuard::PipeSignalGuard() noexcept {
    const sigset_t signals = PipeSignalAlone();
    pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    m_wasBlocked = sigismember(&m_before, SIGPIPE) == 1;
    // It cannot be waiting for a thread that would have taken it.
    if (m_wasBlocked) {
        sigset_t pending;
        sigemptyset(&pending);
        m_wasPending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    }
}

PipeSignalGuard::~PipeSignalGuard() {
    if (!m_wasBlocked) {
        pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
}

void PipeSignalGuard::TakeBack() const noexcept {
    if (m_wasPending) {
        return;
    }
    const int error = errno;
    const sigset_t signals = PipeSignalAlone();
    const timespec atOnce{};
    while (sigtimedwait(&signals, nullptr, &atOnce) < 0 && errno == EINTR) {
    }
    errno = error;
}

}  // namespace cvlcoreplatform
