#pragma once

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlcoreplatform/host/LogBackEnd.h"

#include <atomic>
#include <functional>
#include <memory>
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
    void Flush() override;

    std::vector<Message> Messages() const;

    /// The same without the severities.
    std::vector<std::string> MessageTexts() const;

    std::vector<SeverityAndEvent> Events() const;
    void Clear();

    /// How often it was asked to flush.
    int Flushes() const { return m_flushes; }

    /// Runs after each message or event was kept, on the thread that logs. Set it while nothing
    /// is logged.
    void CallOnEach(std::function<void()> action);

private:
    mutable std::mutex m_lock;
    std::vector<Message> m_messages;
    std::vector<SeverityAndEvent> m_events;
    std::function<void()> m_action;
    std::atomic<int> m_flushes{0};
};

/// A new capturing log as the logger's back end, for the time of a block; afterwards the former one
/// is. The logger's threshold stays as it is. What `TarnTest` does for each of its tests.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    CapturingLog* operator->() const { return m_log.get(); }

private:
    std::shared_ptr<CapturingLog> m_log = std::make_shared<CapturingLog>();
    std::shared_ptr<TLog::LogBackEnd> m_former;
};

}  // namespace tarn::test
