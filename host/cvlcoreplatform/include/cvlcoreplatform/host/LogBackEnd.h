#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"

#include <memory>

namespace TLog {

/// Where the logger's events and messages go. Called by any number of threads at once, so it
/// guards its own data. What it throws is counted and goes no further. What it logs itself is
/// dropped and counted, as are the scopes that it opens; it must not replace the logger's back end
/// either, nor fork. An event may be kept.
class CVLCOREPLATFORM_API LogBackEnd {
public:
    LogBackEnd() = default;
    LogBackEnd(const LogBackEnd&) = delete;
    LogBackEnd& operator=(const LogBackEnd&) = delete;
    virtual ~LogBackEnd();

    /// Gets only what passed the logger's threshold.
    virtual void Write(Severity severity, const Event& event) = 0;
    virtual void WriteMessage(Severity severity, const TString& text) = 0;

    /// Writes out what is buffered. The default does nothing.
    virtual void Flush();

    /// Begins a new file, or opens the one at its path again. False if that failed, or if there is
    /// no file. The defaults return false: this back end has no file.
    virtual bool Rotate();
    virtual bool Reopen();

    /// Another back end that writes to the same place and shares no lock with this one. It is used
    /// after a thread has crashed inside this one, whose locks then stay locked. The default
    /// returns null: there is no successor.
    virtual std::shared_ptr<LogBackEnd> MakeSuccessor() const;
};

}  // namespace TLog
