#pragma once

#include "ErrorReporter.h"

#include "cvlcoreplatform/host/LogBackEnd.h"

#include <chrono>
#include <memory>
#include <spdlog/sinks/sink.h>
#include <string>
#include <string_view>

namespace cvlcoreplatform {

/// Formats on the calling thread, outside any lock, and hands the line to the sink.
class JsonLineBackEnd final : public TLog::LogBackEnd {
public:
    JsonLineBackEnd(std::shared_ptr<spdlog::sinks::sink> sink, std::string name);

    void Write(TLog::Severity severity, const TLog::Event& event) override;
    void WriteMessage(TLog::Severity severity, const TString& text) override;
    void Flush() override;

private:
    template <class Content>
    void FormatAndWrite(TLog::Severity severity, const Content& content);

    void WriteLine(TLog::Severity severity,
                   std::string_view line,
                   std::chrono::system_clock::time_point now);
    void CountAndReport(std::string_view reason) noexcept;

    const std::shared_ptr<spdlog::sinks::sink> m_sink;
    const std::string m_name;
    ErrorReporter m_reporter;
};

}  // namespace cvlcoreplatform
