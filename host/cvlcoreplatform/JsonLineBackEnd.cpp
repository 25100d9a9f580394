#include "JsonLineBackEnd.h"

#include "JsonLine.h"
#include "LogCounters.h"
#include "RotatingFileSink.h"
#include "ThreadObject.h"

#include "cvlcoreplatform/host/JsonLines.h"

#include <chrono>
#include <exception>
#include <spdlog/formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <stdexcept>
#include <utility>

namespace cvlcoreplatform {

namespace {

// The line is complete as it comes.
class LineFormatter final : public spdlog::formatter {
public:
    void format(const spdlog::details::log_msg& msg, spdlog::memory_buf_t& dest) override {
        dest.append(msg.payload.begin(), msg.payload.end());
        dest.push_back('\n');
    }

    std::unique_ptr<spdlog::formatter> clone() const override {
        return std::make_unique<LineFormatter>();
    }
};

spdlog::level::level_enum LevelOf(TLog::Severity severity) noexcept {
    switch (severity) {
        case TLog::Trace:
            return spdlog::level::trace;
        case TLog::Debug:
            return spdlog::level::debug;
        case TLog::Info:
            return spdlog::level::info;
        case TLog::Warn:
            return spdlog::level::warn;
        case TLog::Error:
            return spdlog::level::err;
        case TLog::Fatal:
            break;
    }
    return spdlog::level::critical;
}

}  // namespace

JsonLineBackEnd::JsonLineBackEnd(std::shared_ptr<spdlog::sinks::sink> sink, std::string name)
    : m_sink(std::move(sink)),
      m_name(std::move(name)) {
    if (m_sink == nullptr) {
        throw std::invalid_argument("a log back end needs a sink");
    }
    m_sink->set_formatter(std::make_unique<LineFormatter>());
}

void JsonLineBackEnd::Write(TLog::Severity severity, const TLog::Event& event) {
    FormatAndWrite(severity, event);
}

void JsonLineBackEnd::WriteMessage(TLog::Severity severity, const TString& text) {
    FormatAndWrite(severity, text);
}

void JsonLineBackEnd::Flush() {
    m_sink->flush();
}

template <class Content>
void JsonLineBackEnd::FormatAndWrite(TLog::Severity severity, const Content& content) {
    if (!m_sink->should_log(LevelOf(severity))) {
        return;
    }
    const auto now = std::chrono::system_clock::now();
    const auto time = std::chrono::floor<TLog::EventTimePoint::duration>(now);
    if (JsonLine* const formatter = ThreadObject<JsonLine>::Get()) {
        WriteLine(severity, formatter->Format(severity, content, time), now);
    } else {
        WriteLine(severity, JsonLine().Format(severity, content, time), now);
    }
}

void JsonLineBackEnd::WriteLine(TLog::Severity severity,
                                std::string_view line,
                                std::chrono::system_clock::time_point now) {
    try {
        m_sink->log(spdlog::details::log_msg(now,
                                             spdlog::source_loc(),
                                             spdlog::string_view_t(),
                                             LevelOf(severity),
                                             spdlog::string_view_t(line.data(), line.size())));
    } catch (const std::exception& error) {
        CountAndReport(error.what());
        return;
    }
    Count(logCounters.lines);
    Count(logCounters.bytes, line.size() + 1);
}

void JsonLineBackEnd::CountAndReport(std::string_view reason) noexcept {
    Count(logCounters.writeErrors);
    m_reporter.Report(ErrorReporter::Clock::now(),
                      "cannot write to " + m_name,
                      reason,
                      logCounters.writeErrors.load(std::memory_order_relaxed));
}

}  // namespace cvlcoreplatform

namespace TLog {

std::string FormatJsonLine(Severity severity, const Event& event, EventTimePoint now) {
    return std::string(cvlcoreplatform::JsonLine().Format(severity, event, now));
}

std::string FormatJsonLine(Severity severity, const TString& message, EventTimePoint now) {
    return std::string(cvlcoreplatform::JsonLine().Format(severity, message, now));
}

std::shared_ptr<LogBackEnd> MakeJsonFileBackEnd(const std::string& path, LogFileLimits limits) {
    return MakeJsonBackEnd(std::make_shared<cvlcoreplatform::RotatingFileSink>(path, limits), path);
}

std::shared_ptr<LogBackEnd> MakeJsonStderrBackEnd() {
    return MakeJsonBackEnd(std::make_shared<spdlog::sinks::stderr_sink_mt>(), "standard error");
}

std::shared_ptr<LogBackEnd> MakeJsonBackEnd(std::shared_ptr<spdlog::sinks::sink> sink,
                                            const std::string& name) {
    return std::make_shared<cvlcoreplatform::JsonLineBackEnd>(std::move(sink), name);
}

}  // namespace TLog
