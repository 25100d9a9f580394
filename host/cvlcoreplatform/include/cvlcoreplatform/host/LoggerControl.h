#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlsys/IntegerTypes.h"

#include <memory>

/// How a host program sets up the process's logger. Any thread may call these operations at any
/// time, also while others log. Without any set-up the logger writes JSON lines to the standard
/// error stream, from `Info` on.
namespace TLog {

/// Drops what is less severe than the threshold.
CVLCOREPLATFORM_API void SetThreshold(Severity threshold) noexcept;
CVLCOREPLATFORM_API Severity GetThreshold() noexcept;

/// Makes `backEnd` the receiver of all that is logged from now on, and returns the one before.
/// When it returns nobody is inside the former back end any more, and what threads have held back
/// for it (`LineBatch`) is written; a batch that goes on is waited for five seconds. Null switches
/// logging off: no severity is enabled then. The back end that is current at the end of the process
/// is never destroyed, because static destructors may log; flush it if it buffers. Throws
/// `std::logic_error` when called from inside a back end.
CVLCOREPLATFORM_API std::shared_ptr<LogBackEnd> ReplaceBackEnd(std::shared_ptr<LogBackEnd> backEnd);

/// Calls `Flush` of the current back end. Never throws; a failure is counted.
CVLCOREPLATFORM_API void FlushLog() noexcept;

/// Makes the current back end begin a new log file at once, as if the one in use were full; an
/// empty one stays. Every line is in one of the two. False if that failed (it is tried again with a
/// line a second later) or if the back end writes to no file.
CVLCOREPLATFORM_API bool RotateLog() noexcept;

/// Makes the current back end open the path of its log file again: call it after the file was
/// moved away by other means. When it returns, nothing is written to the file that was moved any
/// more, and a new one is at the path. False as above.
CVLCOREPLATFORM_API bool ReopenLog() noexcept;

/// As the two above, for signal handlers: they only set a flag. Every log file of the process acts
/// on it before its next line, or when the log is flushed; so what is emitted after the request
/// does not go into the file that was moved.
CVLCOREPLATFORM_API void RequestLogRotation() noexcept;
CVLCOREPLATFORM_API void RequestLogReopening() noexcept;

/// What has happened since the process started; the numbers only grow.
struct LogStatistics {
    uint64 lines = 0;              ///< lines that a JSON back end handed to its sink
    uint64 bytes = 0;              ///< their length with line ends
    uint64 writeErrors = 0;        ///< lines that could not be written, or went with a removed file
    uint64 rotations = 0;          ///< files that were begun because one was full, or on request
    uint64 reopenings = 0;         ///< files that were opened again: on request, or moved away
    uint64 rotationErrors = 0;     ///< attempts at either of these that failed; no line was lost
    uint64 backEndExceptions = 0;  ///< exceptions out of a back end
    uint64 nestedCalls = 0;        ///< lines and scopes from inside a back end, which are dropped
};

CVLCOREPLATFORM_API LogStatistics GetLogStatistics() noexcept;

}  // namespace TLog
