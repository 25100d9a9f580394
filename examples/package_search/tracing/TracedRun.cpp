#include "TracedRun.h"

#include "tarn/OptTarn.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <utility>

namespace packagesearch {

namespace {

tarn::SessionOptions OptionsOfTheRun() {
    tarn::SessionOptions options;
    // The log stays the one that is there; which file that is the command line says.
    options.readEnvironment = false;
    options.environment = "example";
    // Requests have ids of their own.
    options.requestIds = false;
    // End lines tell what memory and processor time each activity took.
    options.cpu = true;
    options.memory = tarn::MemoryFigures::All;
    options.counters = true;
    // Each line names the activity that started it, also across processes.
    options.extras = true;
    return options;
}

}  // namespace

TracedRun::TracedRun(const std::filesystem::path& logFile) {
    std::shared_ptr<TLog::LogBackEnd> backEnd = TLog::MakeJsonFileBackEnd(logFile.string());
    m_linesLostBefore = TLog::GetLogStatistics().writeErrors;
    m_formerBackEnd = TLog::ReplaceBackEnd(std::move(backEnd));
    try {
        SetOptions();
        m_session.emplace(OptionsOfTheRun());
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
    // Requests say which site they are for; otherwise it would be one for the whole process.
    OptTarn::SetIsServer(true);
    OptTarn::SetCorvalaCounterScopesOpened(&m_scopesOpened);
}

void TracedRun::ResetOptions() noexcept {
    OptTarn::SetCorvalaCounterScopesOpened(nullptr);
    OptTarn::SetServerEnvironment(TString());
    OptTarn::SetIsServer(false);
}

void TracedRun::Stop() noexcept {
    m_session.reset();
    ResetOptions();
    TLog::FlushLog();
    TLog::ReplaceBackEnd(std::move(m_formerBackEnd));
}

}  // namespace packagesearch
