#include "BackEndGuard.h"

#include "LogCounters.h"

#include "cvlcoreplatform/host/InsideBackEnd.h"

#include <utility>

namespace TLog {

namespace {

// What is to be called when this thread has left the back end.
using Action = void (*)() noexcept;
constinit thread_local Action t_afterBackEnd = nullptr;

}  // namespace

// Where this is set, the thread holds the lock for reading.
__thread bool t_isInsideBackEnd = false;

void CountNestedCall() noexcept {
    cvlcoreplatform::Count(cvlcoreplatform::logCounters.nestedCalls);
}

void CallAfterBackEnd(void (*action)() noexcept) noexcept {
    t_afterBackEnd = action;
}

}  // namespace TLog

namespace cvlcoreplatform {

BackEndAccess& BackEndAccess::Get() {
    static BackEndAccess& access = *new BackEndAccess;
    return access;
}

BackEndGuard::BackEndGuard() noexcept {
    BackEndAccess::Get().lock.lock_shared();
    TLog::t_isInsideBackEnd = true;
}

BackEndGuard::~BackEndGuard() {
    TLog::t_isInsideBackEnd = false;
    BackEndAccess::Get().lock.unlock_shared();
    if (const auto action = std::exchange(TLog::t_afterBackEnd, nullptr)) {
        action();
    }
}

}  // namespace cvlcoreplatform
