#pragma once

#include "tarn/Session.h"

#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

namespace packagesearch {

/// Tracing to a log file, and counting for /metrics, from construction to destruction: this is all
/// that the program does to start and stop it. One at a time, constructed and destroyed on one
/// thread, which is the main one; whatever is traced elsewhere must have ended before it goes.
class TracedRun {
public:
    /// Appends to the file, which is made if it is not there. Throws `std::system_error` with a
    /// one-line text when it cannot be written; nothing has been started then.
    explicit TracedRun(const std::filesystem::path& logFile);
    ~TracedRun();

    TracedRun(const TracedRun&) = delete;
    TracedRun& operator=(const TracedRun&) = delete;

    /// How many scopes have begun so far.
    int64 ScopesTraced() const noexcept { return m_scopesOpened.load(); }

    /// How many lines of what has been traced so far could not be written, as on a full disk.
    std::uint64_t LinesLost() const;

private:
    void SetOptions();
    void ResetOptions() noexcept;
    void Stop() noexcept;

    std::uint64_t m_linesLostBefore = 0;
    std::shared_ptr<TLog::LogBackEnd> m_formerBackEnd;
    std::atomic<int64> m_scopesOpened{0};
    std::optional<const tarn::Session> m_session;
};

}  // namespace packagesearch
