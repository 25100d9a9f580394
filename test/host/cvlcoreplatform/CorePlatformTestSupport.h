#pragma once

#include "CapturingLog.h"
#include "TemporaryFolder.h"

#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/host/LogBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"

#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

/// What the tests of the logger and its files have in common.
namespace LogTest {

/// Restores the logger's set-up, and tells how its figures have changed since the test began.
class LoggerTest : public testing::Test {
protected:
    LoggerTest() : m_backEndBefore(TLog::ReplaceBackEnd(nullptr)) {
        TLog::SetThreshold(TLog::Info);
    }

    ~LoggerTest() override {
        TLog::ReplaceBackEnd(m_backEndBefore);
        TLog::SetThreshold(m_thresholdBefore);
    }

    const std::shared_ptr<TLog::LogBackEnd>& BackEndBefore() const { return m_backEndBefore; }

    uint64 Increase(uint64 TLog::LogStatistics::*figure) const {
        return TLog::GetLogStatistics().*figure - m_statisticsBefore.*figure;
    }

    static void LogMessage(const std::string& text, TLog::Severity severity = TLog::Info) {
        TLog::Logger::Get().LogMessage(severity, TString(text));
    }

private:
    TLog::LogStatistics m_statisticsBefore = TLog::GetLogStatistics();
    TLog::Severity m_thresholdBefore = TLog::GetThreshold();
    std::shared_ptr<TLog::LogBackEnd> m_backEndBefore;
};

using tarn::test::TemporaryFolder;

inline std::string ContentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

inline void SetContentOf(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

/// The lines of a text that ends with a line end; one that does not gives a last "<open>..." line.
inline std::vector<std::string> LinesIn(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            lines.push_back("<open>" + text.substr(start));
            break;
        }
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

}  // namespace LogTest
