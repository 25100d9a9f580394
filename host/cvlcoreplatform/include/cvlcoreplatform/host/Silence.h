#pragma once

#include "cvlcoreplatform/Export.h"

namespace TLog {

class LogBackEnd;

/// While a thread has one, what it logs is dropped and not counted: the log has it already, or gets
/// it from another process.
class CVLCOREPLATFORM_API Silence {
public:
    Silence() noexcept;
    ~Silence();
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

    /// Whether the calling thread has one.
    static bool IsOnThisThread() noexcept;

private:
    LogBackEnd* const m_before;
};

}  // namespace TLog
