#pragma once

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/LogBackEnd.h"

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test {

/// A back end of the logger that keeps what it is given. The test fails when an event's line says
/// otherwise than the event. Any thread may read it at any time.
class CapturingLog : public TLog::LogBackEnd {
public:
    /// Severity and text.
    using Message = std::pair<TLog::Severity, std::string>;
    using SeverityAndEvent = std::pair<TLog::Severity, TLog::Event>;

    ~CapturingLog() override;

    void Write(TLog::Severity severity, const TLog::Event& event) override;
    void WriteMessage(TLog::Severity severity, const TString& text) override;

    std::vector<Message> Messages() const;
    std::vector<SeverityAndEvent> Events() const;
    void Clear();

    /// Runs after each message or event was kept, on the thread that logs. Set it while nothing
    /// is logged.
    void CallOnEach(std::function<void()> action);

private:
    mutable std::mutex m_lock;
    std::vector<Message> m_messages;
    std::vector<SeverityAndEvent> m_events;
    std::function<void()> m_action;
};

}  // namespace tarn::test
