#pragma once

#include <cerrno>
#include <pthread.h>

namespace cvlsys {

/// A guard around work on a thread of the host: restores `errno` at its end, and defers
/// cancellation until then, which would unwind out of functions that do not throw.
class HostState {
public:
    HostState() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState); }

    ~HostState() {
        pthread_setcancelstate(m_cancelState, nullptr);
        errno = m_errno;
    }

    HostState(const HostState&) = delete;
    HostState& operator=(const HostState&) = delete;

private:
    int m_errno = errno;
    int m_cancelState = PTHREAD_CANCEL_ENABLE;
};

}  // namespace cvlsys
