#include "tarn/Session.h"

#include "SessionState.h"

#include "cvlcoreplatform/TLogger.h"

#include <atomic>
#include <memory>
#include <utility>

namespace tarn {
namespace {

constinit std::atomic<bool> s_isTaken{false};

bool Take() {
    if (!s_isTaken.exchange(true)) {
        return true;
    }
    TLog::Logger& logger = TLog::Logger::Get();
    if (logger.IsEnabled(TLog::Warn)) {
        logger.LogMessage(TLog::Warn,
                          u"A tarn::Session was made while there is another one. It does nothing.");
    }
    return false;
}

}  // namespace

Session::Session(SessionOptions options) {
    if (!Take()) {
        return;
    }
    try {
        m_state = std::make_unique<State>(std::move(options));
    } catch (...) {
        s_isTaken.store(false);
        throw;
    }
}

Session::~Session() {
    if (m_state != nullptr) {
        m_state.reset();
        s_isTaken.store(false);
    }
}

void Session::SetSink(std::shared_ptr<IMetricsMonitorSink> sink) const {
    if (m_state != nullptr) {
        m_state->SetSink(std::move(sink));
    }
}

}  // namespace tarn
