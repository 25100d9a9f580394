#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

namespace TLog {

enum Severity : int32 { Trace = 0, Debug = 1, Info = 2, Warn = 3, Error = 4, Fatal = 5 };

/// A severity for call sites that never report errors.
class NonErrorSeverity {
public:
    constexpr explicit NonErrorSeverity(Severity severity) noexcept : m_severity(severity) {}

    // Usable wherever a severity is asked for.
    // NOLINTNEXTLINE(google-explicit-constructor): see above
    constexpr operator Severity() const noexcept { return m_severity; }

private:
    Severity m_severity;
};

/// The process's logger. Any thread may call it at any time, static destructors included. No
/// operation throws: what cannot be written is counted by the host.
class CVLCOREPLATFORM_API Logger {
public:
    static Logger& Get() noexcept;

    /// Whether something of this severity would be written. Costs one load.
    bool IsEnabled(Severity severity) const noexcept;

    /// Writes the event if its severity is enabled.
    void Log(Severity severity, const Event& event) noexcept;

    /// Writes one line of plain text if its severity is enabled.
    void LogMessage(Severity severity, const TString& text) noexcept;

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

private:
    Logger() = default;
    ~Logger() = default;
};

}  // namespace TLog
