#include "CapturingLog.h"

#include "EventLine.h"

#include "cvlcoreplatform/host/LoggerControl.h"

#include <utility>

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

void CapturingLog::Flush() {
    ++m_flushes;
}

std::vector<CapturingLog::Message> CapturingLog::Messages() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    return m_messages;
}

std::vector<std::string> CapturingLog::MessageTexts() const {
    const std::lock_guard<std::mutex> guard(m_lock);
    std::vector<std::string> texts;
    for (const auto& [severity, text] : m_messages) {
        texts.push_back(text);
    }
    return texts;
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

LogCapture::LogCapture() : m_former(TLog::ReplaceBackEnd(m_log)) {}

LogCapture::~LogCapture() {
    TLog::ReplaceBackEnd(m_former);
}

}  // namespace tarn::test
