#pragma once

#include "ErrorReporter.h"
#include "Losses.h"
#include "RotatingFileSink.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LogBackEnd.h"

#include <chrono>
#include <memory>
#include <spdlog/sinks/sink.h>
#include <string>
#include <string_view>

namespace cvlcoreplatform {

/// Formats on the calling thread, outside any lock, and hands the line to the sink. When the sink
/// takes lines again after it has not, a message says how many are missing.
class JsonLineBackEnd : public TLog::LogBackEnd {
public:
    /// `losses` may be shared with the sink. Throws `std::invalid_argument` when `sink` is null.
    JsonLineBackEnd(std::shared_ptr<spdlog::sinks::sink> sink,
                    std::string name,
                    std::shared_ptr<Losses> losses = std::make_shared<Losses>());

    void Write(TLog::Severity severity, const TLog::Event& event) override;
    void WriteMessage(TLog::Severity severity, const TString& text) override;
    void Flush() override;

private:
    template <class Content>
    void FormatAndWrite(TLog::Severity severity, const Content& content);

    void WriteLine(TLog::Severity severity,
                   std::string_view line,
                   std::chrono::system_clock::time_point now);
    void MentionLosses(std::chrono::system_clock::time_point now);
    void HandOver(TLog::Severity severity,
                  std::string_view line,
                  std::chrono::system_clock::time_point now);
    void CountAndReport(std::string_view reason) noexcept;

    const std::shared_ptr<spdlog::sinks::sink> m_sink;
    const std::string m_name;
    const std::shared_ptr<Losses> m_losses;
    ErrorReporter m_reporter;
};

/// The same with a file that can be changed on request.
class JsonFileBackEnd final : public JsonLineBackEnd {
public:
    /// Throws what the sink throws.
    JsonFileBackEnd(const std::string& path, TLog::LogFileLimits limits);

    bool Rotate() override;
    bool Reopen() override;

private:
    JsonFileBackEnd(const std::string& path,
                    TLog::LogFileLimits limits,
                    const std::shared_ptr<Losses>& losses);
    JsonFileBackEnd(std::shared_ptr<RotatingFileSink> file,
                    const std::string& path,
                    const std::shared_ptr<Losses>& losses);

    const std::shared_ptr<RotatingFileSink> m_file;
};

}  // namespace cvlcoreplatform
