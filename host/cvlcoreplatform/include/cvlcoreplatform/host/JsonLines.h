#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <memory>
#include <string>

// A sink of spdlog, declared here so that only its users need spdlog's headers.
namespace spdlog::sinks {
class sink;
}

/// The default form of the log: one JSON object a line, in UTF-8, with the fields `time`,
/// `severity`, `event` or `message`, `pid`, `tid`, `session`, `request`, `user`, `site`,
/// `environment`, `activity`, `attributes` and `body` in this order, further fields behind `site`.
/// The fields of a table are sorted by the UTF-16 code units of their names. A field whose object
/// is null is left out, an empty table is `{}`. Lines that belong to no activity have none of the
/// seven fields from `session` to `attributes`; their time, process and thread are those of
/// writing.
namespace TLog {

/// The line, without line end. `now` is the time of an event that has none of its own.
CVLCOREPLATFORM_API std::string FormatJsonLine(Severity severity,
                                               const Event& event,
                                               EventTimePoint now);
CVLCOREPLATFORM_API std::string FormatJsonLine(Severity severity,
                                               const TString& message,
                                               EventTimePoint now);

/// How a log file is kept. When it is full, the file "a.log" becomes "a.1.log", that one becomes
/// "a.2.log", and so on.
struct LogFileLimits {
    uint64 maxBytes = uint64{64} << 20;  ///< a line that goes beyond begins a new file; 0: never
    std::size_t maxFiles = 8;            ///< how many full files are kept beside the current one

    /// If false, a path whose last part is a symbolic link is refused, with `ELOOP`. For folders in
    /// which others may create files.
    bool followSymlinks = true;

    /// Of new files, less what the process's `umask` takes away.
    uint32 mode = 0640;

    /// Lines go into a journal first, the file "a.log.<pid>.journal", which is mapped into the
    /// process: a line costs no system call, and survives the end of the process, a kill included,
    /// as soon as it is logged. The log receives blocks of lines, some milliseconds later. What a
    /// killed process left in its journal goes into the log when the next process opens it, with a
    /// journal or without; until then `tarnview` reads both. If no journal can be made, because the
    /// file system has no locks or no room, lines are written one by one, which is reported once on
    /// the standard error stream. Do not truncate the journal of a running process: the kernel
    /// would kill it.
    bool useJournal = false;
};

/// JSON lines to a file, which is appended to if it exists. Lines are written at once, each whole
/// or not at all. A full disk loses lines, counts them and says so on the standard error stream
/// once a minute; the code that logs notices nothing. When lines can be written again, a message of
/// severity `Warn` before the first of them says how many are missing. Once a second it checks
/// that the file is still at its path; if it was moved, removed or replaced, it opens the path
/// again, with or without `limits`. A relative path is made absolute at once. Links in the path are
/// followed each time that it is opened, and full files lie beside the real file. At the path may
/// also be a named pipe or a device; it is waited for as a standard stream is, and lines are lost
/// while a pipe has no reader. Throws `std::system_error`, whose text names the path and the
/// reason, when the file cannot be opened, and `std::invalid_argument` when no full file is to be
/// kept.
CVLCOREPLATFORM_API std::shared_ptr<LogBackEnd> MakeJsonFileBackEnd(const std::string& path,
                                                                    LogFileLimits limits = {});

/// JSON lines to the standard error stream, or the standard output stream. They go directly to its
/// descriptor, past what the host keeps in buffers of its own (`fflush`). A pipe without a reader
/// loses lines as a full disk does; the signal that goes with it does not reach the host, and its
/// handling stays as it is. A stream that does not take a line, whether its descriptor blocks or
/// not, is waited for, a second in all; then lines are lost without waiting until it takes one. A
/// stream that is closed when the back end is made, or later, loses lines until another back end is
/// made: its number may belong to another file by then.
CVLCOREPLATFORM_API std::shared_ptr<LogBackEnd> MakeJsonStderrBackEnd();
CVLCOREPLATFORM_API std::shared_ptr<LogBackEnd> MakeJsonStdoutBackEnd();

/// JSON lines to any sink of spdlog, whose formatter is replaced. The sink must take lines from
/// several threads at once (the "_mt" kinds do). Lines that it throws for are lost, counted and
/// reported as above. `name` names the sink in such reports. Throws `std::invalid_argument` when
/// the sink is null.
CVLCOREPLATFORM_API std::shared_ptr<LogBackEnd> MakeJsonBackEnd(
    std::shared_ptr<spdlog::sinks::sink> sink, const std::string& name);

}  // namespace TLog
