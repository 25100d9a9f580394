#include "TracedRun.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/CpuTime.h"
#include "cvlsys/MemoryTracking.h"

#include <utility>

namespace packagesearch {

TracedRun::TracedRun(const std::filesystem::path& logFile) {
    std::shared_ptr<TLog::LogBackEnd> backEnd = TLog::MakeJsonFileBackEnd(logFile.string());
    m_linesLostBefore = TLog::GetLogStatistics().writeErrors;
    m_formerBackEnd = TLog::ReplaceBackEnd(std::move(backEnd));
    try {
        SetOptions();
        m_session.emplace();
    } catch (...) {
        Stop();
        throw;
    }
}

TracedRun::~TracedRun() {
    Stop();
}

std::uint64_t TracedRun::LinesLost() const {
    TLog::FlushLog();
    return TLog::GetLogStatistics().writeErrors - m_linesLostBefore;
}

void TracedRun::SetOptions() {
    // Gives each activity an identity that can be handed to another thread.
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    // Requests say which site they are for; otherwise it would be one for the whole process.
    OptTarn::SetIsServer(true);
    OptTarn::SetServerEnvironment(TString(u"example"));
    OptTarn::SetCorvalaCounterScopesOpened(&m_scopesOpened);
    // End lines tell what memory and processor time each activity took.
    OptTarn::SetIsTarnPlatforms(true);
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingAll);
    corvala::cputime::SetCpuTrackingEnabled(true);
}

void TracedRun::ResetOptions() noexcept {
    corvala::cputime::SetCpuTrackingEnabled(false);
    corvala::memory::SetMemoryTrackingMode(corvala::memory::MemoryTrackingOff);
    OptTarn::SetIsTarnPlatforms(false);
    OptTarn::SetCorvalaCounterScopesOpened(nullptr);
    OptTarn::SetServerEnvironment(TString());
    OptTarn::SetIsServer(false);
    OptTarn::SetIsForegroundThreadContextEnabled(false);
}

void TracedRun::Stop() noexcept {
    m_session.reset();
    ResetOptions();
    TLog::FlushLog();
    TLog::ReplaceBackEnd(std::move(m_formerBackEnd));
}

}  // namespace packagesearch
