#pragma once

#include "ErrorReporter.h"
#include "FileSink.h"
#include "HeldLines.h"
#include "UnreportedLosses.h"

#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LogBackEnd.h"

#include <chrono>
#include <cstddef>
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
    JsonLineBackEnd(
        std::shared_ptr<spdlog::sinks::sink> sink,
        std::string name,
        std::shared_ptr<UnreportedLosses> losses = std::make_shared<UnreportedLosses>());

    void Write(TLog::Severity severity, const TLog::Event& event) override;
    void WriteMessage(TLog::Severity severity, const TString& text) override;
    void Flush() override;

    /// One for the same stream; none for a sink of the host's.
    std::shared_ptr<TLog::LogBackEnd> MakeSuccessor() const override;

protected:
    /// What happens to a line that is complete.
    virtual void WriteLine(TLog::Severity severity,
                           std::string_view line,
                           std::chrono::system_clock::time_point now);

    /// Hands lines to the sink at once, with a line end between any two. Throws what the sink
    /// throws.
    void HandOver(TLog::Severity severity,
                  std::string_view text,
                  uint64 lines,
                  std::chrono::system_clock::time_point now);

    /// Where lines are missing, a line says so before the next one.
    void MentionLosses(std::chrono::system_clock::time_point now);

private:
    template <class Content>
    void FormatAndWrite(TLog::Severity severity, const Content& content);

    void CountAndReport(std::string_view reason) noexcept;

    const std::shared_ptr<spdlog::sinks::sink> m_sink;
    const std::string m_name;
    const std::shared_ptr<UnreportedLosses> m_losses;
    ErrorReporter m_reporter;
};

/// The same with a file that can be changed on request. In a batch, lines are held back.
class JsonFileBackEnd final : public JsonLineBackEnd,
                              public HeldLinesTarget,
                              public std::enable_shared_from_this<JsonFileBackEnd> {
public:
    /// Throws what the sink throws.
    JsonFileBackEnd(const std::string& path, TLog::LogFileLimits limits);

    bool Rotate() override;
    bool Reopen() override;

    /// Writes to the file that is at the path.
    std::shared_ptr<TLog::LogBackEnd> MakeSuccessor() const override;

    void Write(TLog::Severity severity, const TLog::Event& event) override;
    void WriteMessage(TLog::Severity severity, const TString& text) override;
    void Flush() override;

    void WriteHeld(std::string_view text,
                   uint64 lines,
                   std::chrono::system_clock::time_point time) noexcept override;
    void WriteHeld(TLog::Severity severity, const TLog::Event& event) noexcept override;
    void WriteHeld(TLog::Severity severity, const TString& message) noexcept override;

protected:
    void WriteLine(TLog::Severity severity,
                   std::string_view line,
                   std::chrono::system_clock::time_point now) override;

private:
    JsonFileBackEnd(const std::string& path,
                    TLog::LogFileLimits limits,
                    const std::shared_ptr<UnreportedLosses>& losses);
    JsonFileBackEnd(std::shared_ptr<FileSink> file,
                    const std::string& path,
                    const std::shared_ptr<UnreportedLosses>& losses,
                    std::size_t mostHeld);

    const std::shared_ptr<FileSink> m_file;
    const std::size_t m_mostHeld;  // together, in bytes
};

}  // namespace cvlcoreplatform
