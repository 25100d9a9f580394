#pragma once

#include "cvlsys/host/HostState.h"
#include "cvlsys/host/MemoryCharging.h"

#include <memory>

namespace TLog {

// Of the logger.
void LockBackEnd() noexcept;
void UnlockBackEnd() noexcept;

/// A share in the use of the current back end, for work that is left for later: `ReplaceBackEnd`
/// waits until it is given back. Inside the back end only.
using BackEndUse = std::shared_ptr<const void>;
const BackEndUse& CurrentBackEndUse() noexcept;

}  // namespace TLog

namespace cvlcoreplatform {

/// Around all work of a back end, whether the logger asks for it or it was left for later. While
/// one exists, the thread's `errno` and its cancellation are not touched, what it allocates is
/// charged to nobody, no fork happens, and what the back end logs itself is dropped. Not within
/// another one on the same thread.
class BackEndGuard {
public:
    BackEndGuard() noexcept { TLog::LockBackEnd(); }

    ~BackEndGuard() { TLog::UnlockBackEnd(); }

    BackEndGuard(const BackEndGuard&) = delete;
    BackEndGuard& operator=(const BackEndGuard&) = delete;

private:
    const cvlsys::HostState m_hostState;
    const corvala::memory::UnchargedAllocations m_uncharged;
};

}  // namespace cvlcoreplatform
