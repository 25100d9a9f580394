#pragma once

#include <cerrno>
#include <pthread.h>

namespace cvlsys {

/// Around work on a thread of the host's, from construction to destruction on that thread: `errno`
/// is afterwards what it was, and the thread is not cancelled meanwhile, which would unwind out of
/// functions that do not throw.
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
