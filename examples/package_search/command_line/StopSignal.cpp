#include "StopSignal.h"

#include <cerrno>

namespace packagesearch {

StopSignal::StopSignal() {
    sigemptyset(&m_signals);
    sigaddset(&m_signals, SIGTERM);
    sigaddset(&m_signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &m_signals, &m_formerMask);
}

StopSignal::~StopSignal() {
    pthread_sigmask(SIG_SETMASK, &m_formerMask, nullptr);
}

void StopSignal::Wait() const {
    int signal = 0;
    while (sigwait(&m_signals, &signal) == EINTR) {
    }
}

}  // namespace packagesearch
