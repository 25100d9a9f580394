#pragma once

#include "cvlcoreplatform/Export.h"

namespace TLog {

/// How far a thread has got with the log at a moment when it is stopped for good, by a crash.
struct InterruptedLogging {
    void* held = nullptr;          ///< the lines and events that it holds back, if it ever did
    bool isInsideBackEnd = false;  ///< and may have locked what that uses
};

/// That of the calling thread. For signal handlers: it takes no lock and allocates nothing.
CVLCOREPLATFORM_API InterruptedLogging GetInterruptedLogging() noexcept;

/// Logs what the interrupted thread holds back, on another thread; the interrupted one must not go
/// on meanwhile. If that one is inside the back end, the calling thread logs to the back end's
/// successor from then on (`LogBackEnd::MakeSuccessor`), if there is one. The lines that were just
/// being written are left alone: some of them may be in the log.
CVLCOREPLATFORM_API void TakeOverLogging(const InterruptedLogging& interrupted) noexcept;

/// Ends the use of the successor on the calling thread.
CVLCOREPLATFORM_API void EndTakingOverLogging() noexcept;

}  // namespace TLog
