#include "CapturingLog.h"

#include "EventLine.h"

#include <gtest/gtest.h>

namespace tarn::test {

CapturingLog::~CapturingLog() = default;

void CapturingLog::Write(TLog::Severity severity, const TLog::Event& event) {
    if (const std::string difference = DifferenceOfLine(severity, event); !difference.empty()) {
        ADD_FAILURE() << difference;
    }
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_events.emplace_back(severity, event);
    }
    if (m_action) {
        m_action();
    }
}

void CapturingLog::WriteMessage(TLog::Severity severity, const TString& text) {
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_messages.emplace_back(severity, text.ToUtf8());
    }
    if (m_action) {
        m_action();
    }
}

std::vector<CapturingLog::Message> CapturingLog::Messages() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_messages;
}

std::vector<CapturingLog::SeverityAndEvent> CapturingLog::Events() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_events;
}

void CapturingLog::Clear() {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_messages.clear();
    m_events.clear();
}

void CapturingLog::CallOnEach(std::function<void()> action) {
    m_action = std::move(action);
}

}  // namespace tarn::test
