#pragma once

#include "cvlcoreplatform/Export.h"

/// For a library above the logger whose own work is logged: what it did inside a log back end would
/// be logged in turn, for ever. Any thread may use these.
namespace TLog {

// Written by the logger alone. Not `thread_local`: that would be read through a function, because
// its initialisation could be anything.
extern CVLCOREPLATFORM_API __thread bool t_isInsideBackEnd
    __attribute__((tls_model("initial-exec")));

/// Whether the calling thread is inside a back end, or works for one.
inline bool IsInsideBackEnd() noexcept {
    return t_isInsideBackEnd;
}

/// Counts something that was refused for that reason, in `LogStatistics::nestedCalls`.
CVLCOREPLATFORM_API void CountNestedCall() noexcept;

/// Calls `action` once on this thread, as soon as it has left the back end and holds no lock of the
/// logger. Inside a back end only. A second call replaces the action.
CVLCOREPLATFORM_API void CallAfterBackEnd(void (*action)() noexcept) noexcept;

}  // namespace TLog
