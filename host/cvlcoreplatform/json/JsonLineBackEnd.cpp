#include "JsonLineBackEnd.h"

#include "EnabledSeverities.h"
#include "FormedEvent.h"
#include "JournalRecovery.h"
#include "JournalledSink.h"
#include "JsonLine.h"
#include "LogCounters.h"
#include "RotatingFileSink.h"
#include "StreamSink.h"
#include "ThreadLocalObject.h"

#include "cvlcoreplatform/host/JsonLines.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <spdlog/formatter.h>
#include <stdexcept>
#include <unistd.h>
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

using SystemTime = std::chrono::system_clock::time_point;

/// A time as sinks take it. What is too far away for them is now.
SystemTime TimeForSink(TLog::EventTimePoint time) {
    using Ticks = TLog::EventTimePoint::duration;
    return time > std::chrono::ceil<Ticks>(SystemTime::min()) &&
                   time < std::chrono::floor<Ticks>(SystemTime::max())
               ? SystemTime(time.time_since_epoch())
               : std::chrono::system_clock::now();
}

/// When it happened. A message happens now, and so does an event that says nothing else.
SystemTime TimeOf(const TLog::Event& event) {
    if (const TLog::FormedEvent* const formed = TLog::AsFormed(event.GetFields())) {
        return TimeForSink(formed->time);
    }
    const TLog::ActivityInfo* const info = event.GetActivityInfo();
    return info != nullptr ? TimeForSink(info->GetTime()) : std::chrono::system_clock::now();
}

SystemTime TimeOf(const TString& /*message*/) {
    return std::chrono::system_clock::now();
}

/// As the logger does with what a back end throws.
template <class Call>
void CountExceptions(const Call& call) noexcept {
    try {
        call();
    } catch (...) {
        Count(logCounters.backEndExceptions);
    }
}

/// Counts the lines of a text whose first `bytes` were written. How far they go.
std::size_t CountWhole(std::string_view text, std::size_t bytes) noexcept {
    // A line is there with its last character; its end comes with the next line.
    const std::size_t next = text.find('\n', bytes == 0 ? 0 : bytes - 1);
    std::size_t whole = 0;
    if (bytes >= text.size()) {
        whole = text.size();
    } else if (next == bytes || next + 1 == bytes) {
        whole = next + 1;
    } else {
        whole = text.rfind('\n', bytes - 1) + 1;  // 0 if there is none
    }
    const std::string_view there = text.substr(0, whole);
    Count(logCounters.bytes, whole);
    Count(logCounters.lines,
          static_cast<uint64>(std::count(there.begin(), there.end(), '\n')) +
              (there.empty() || there.back() == '\n' ? 0 : 1));
    return whole;
}

// Beyond 64 KiB, writing lines together wins nothing more. A file of limited size is to become
// nearly full all the same.
std::size_t MostHeld(TLog::LogFileLimits limits) noexcept {
    constexpr uint64 most = uint64{64} << 10;
    return static_cast<std::size_t>(
        limits.maxBytes == 0 ? most : std::min<uint64>(most, limits.maxBytes / 16));
}

/// What killed processes have left for the file goes there first.
std::shared_ptr<FileSink> OpenFile(const std::string& path,
                                   const TLog::LogFileLimits& limits,
                                   const std::shared_ptr<UnreportedLosses>& losses) {
    const auto mode = static_cast<mode_t>(limits.mode);
    if (limits.followSymlinks || !std::filesystem::is_symlink(path)) {
        RecoverJournals(std::filesystem::weakly_canonical(path).string(), mode);
    }
    auto file = std::make_shared<RotatingFileSink>(path, limits, losses);
    if (limits.useJournal) {
        return JournalledSink::Make(std::move(file), mode);
    }
    return file;
}

}  // namespace

JsonLineBackEnd::JsonLineBackEnd(std::shared_ptr<spdlog::sinks::sink> sink,
                                 std::string name,
                                 std::shared_ptr<UnreportedLosses> losses)
    : m_sink(std::move(sink)),
      m_name(std::move(name)),
      m_losses(std::move(losses)) {
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
    try {
        MentionLosses(std::chrono::system_clock::now());
    } catch (const std::exception&) {
        // Nothing is lost by it: the next line tries again.
        return;
    }
}

std::shared_ptr<TLog::LogBackEnd> JsonLineBackEnd::MakeSuccessor() const {
    const auto* const stream = dynamic_cast<const StreamSink*>(m_sink.get());
    if (stream == nullptr) {
        return nullptr;
    }
    return std::make_shared<JsonLineBackEnd>(std::make_shared<StreamSink>(stream->Descriptor()),
                                             m_name);
}

template <class Content>
void JsonLineBackEnd::FormatAndWrite(TLog::Severity severity, const Content& content) {
    if (!m_sink->should_log(LevelOf(severity))) {
        return;
    }
    const auto now = TimeOf(content);
    const auto time = std::chrono::floor<TLog::EventTimePoint::duration>(now);
    if (JsonLine* const formatter = host::ThreadObject<JsonLine>::Get()) {
        WriteLine(severity, formatter->Format(severity, content, time), now);
    } else {
        WriteLine(severity, JsonLine().Format(severity, content, time), now);
    }
}

// Where lines are missing, this is said first. A sink that does not even take that is not tried
// with the line.
void JsonLineBackEnd::WriteLine(TLog::Severity severity,
                                std::string_view line,
                                std::chrono::system_clock::time_point now) {
    try {
        MentionLosses(now);
        HandOver(severity, line, 1, now);
    } catch (const std::exception& error) {
        CountAndReport(error.what());
    }
}

void JsonLineBackEnd::MentionLosses(std::chrono::system_clock::time_point now) {
    constexpr TLog::Severity severity = TLog::Warn;
    if (m_losses->IsEmpty() || !m_sink->should_log(LevelOf(severity)) ||
        !EnabledSeverities::Contain(severity)) {
        return;
    }
    const uint64 lines = m_losses->Take();
    if (lines == 0) {
        return;
    }
    try {
        // The thread's own formatter holds the line that comes next.
        JsonLine formatter;
        HandOver(severity,
                 formatter.Format(severity,
                                  TString("Missing in this log: lines that could not be written: " +
                                          std::to_string(lines)),
                                  std::chrono::floor<TLog::EventTimePoint::duration>(now)),
                 1,
                 now);
    } catch (...) {
        m_losses->Add(lines);
        throw;
    }
}

void JsonLineBackEnd::HandOver(TLog::Severity severity,
                               std::string_view text,
                               uint64 lines,
                               std::chrono::system_clock::time_point now) {
    m_sink->log(spdlog::details::log_msg(now,
                                         spdlog::source_loc(),
                                         spdlog::string_view_t(),
                                         LevelOf(severity),
                                         spdlog::string_view_t(text.data(), text.size())));
    Count(logCounters.lines, lines);
    Count(logCounters.bytes, text.size() + 1);
}

void JsonLineBackEnd::CountAndReport(std::string_view reason) noexcept {
    Count(logCounters.writeErrors);
    m_losses->Add(1);
    m_reporter.Report(ErrorReporter::Clock::now(),
                      "cannot write to " + m_name,
                      reason,
                      logCounters.writeErrors.load(std::memory_order_relaxed));
}

JsonFileBackEnd::JsonFileBackEnd(const std::string& path, TLog::LogFileLimits limits)
    : JsonFileBackEnd(path, limits, std::make_shared<UnreportedLosses>()) {}

JsonFileBackEnd::JsonFileBackEnd(const std::string& path,
                                 TLog::LogFileLimits limits,
                                 const std::shared_ptr<UnreportedLosses>& losses)
    : JsonFileBackEnd(OpenFile(path, limits, losses), path, losses, MostHeld(limits)) {}

JsonFileBackEnd::JsonFileBackEnd(std::shared_ptr<FileSink> file,
                                 const std::string& path,
                                 const std::shared_ptr<UnreportedLosses>& losses,
                                 std::size_t mostHeld)
    : JsonLineBackEnd(file, path, losses),
      m_file(std::move(file)),
      m_mostHeld(mostHeld) {}

void JsonFileBackEnd::WriteLine(TLog::Severity severity,
                                std::string_view line,
                                std::chrono::system_clock::time_point now) {
    const auto self = HeldLines::AreLinesHeld() ? weak_from_this().lock() : nullptr;
    if (self != nullptr && line.size() < m_mostHeld) {
        HeldLines::Hold(self, line, now, m_mostHeld);
        return;
    }
    HeldLines::WriteLines();
    JsonLineBackEnd::WriteLine(severity, line, now);
}

// What cannot be written together may go one by one, as far as there is room, but for the lines
// that are there already.
void JsonFileBackEnd::WriteHeld(std::string_view text,
                                uint64 lines,
                                std::chrono::system_clock::time_point time) noexcept {
    constexpr TLog::Severity severity = TLog::Info;
    try {
        MentionLosses(time);
        HandOver(severity, text, lines, time);
        return;
    } catch (const PartlyWritten& partly) {
        text.remove_prefix(CountWhole(text, partly.bytes));
    } catch (...) {  // NOLINT(bugprone-empty-catch): the lines below say what is wrong
    }
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        CountExceptions([&] { JsonLineBackEnd::WriteLine(severity, line, time); });
    }
}

void JsonFileBackEnd::Write(TLog::Severity severity, const TLog::Event& event) {
    const auto self = HeldLines::AreEventsHeld() ? weak_from_this().lock() : nullptr;
    if (self == nullptr || !HeldLines::Hold(self, severity, event)) {
        JsonLineBackEnd::Write(severity, event);
    }
}

void JsonFileBackEnd::WriteMessage(TLog::Severity severity, const TString& text) {
    const auto self = HeldLines::AreEventsHeld() ? weak_from_this().lock() : nullptr;
    if (self == nullptr || !HeldLines::Hold(self, severity, text)) {
        JsonLineBackEnd::WriteMessage(severity, text);
    }
}

void JsonFileBackEnd::Flush() {
    HeldLines::Write();
    JsonLineBackEnd::Flush();
}

void JsonFileBackEnd::WriteHeld(TLog::Severity severity, const TLog::Event& event) noexcept {
    CountExceptions([&] { JsonLineBackEnd::Write(severity, event); });
}

void JsonFileBackEnd::WriteHeld(TLog::Severity severity, const TString& message) noexcept {
    CountExceptions([&] { JsonLineBackEnd::WriteMessage(severity, message); });
}

std::shared_ptr<TLog::LogBackEnd> JsonFileBackEnd::MakeSuccessor() const {
    TLog::LogFileLimits none;
    none.maxBytes = 0;
    return std::make_shared<JsonFileBackEnd>(m_file->Path(), none);
}

bool JsonFileBackEnd::Rotate() {
    return m_file->Rotate();
}

bool JsonFileBackEnd::Reopen() {
    return m_file->Reopen();
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
    return std::make_shared<cvlcoreplatform::JsonFileBackEnd>(path, limits);
}

std::shared_ptr<LogBackEnd> MakeJsonStderrBackEnd() {
    return MakeJsonBackEnd(std::make_shared<cvlcoreplatform::StreamSink>(STDERR_FILENO),
                           "standard error");
}

std::shared_ptr<LogBackEnd> MakeJsonStdoutBackEnd() {
    return MakeJsonBackEnd(std::make_shared<cvlcoreplatform::StreamSink>(STDOUT_FILENO),
                           "standard output");
}

std::shared_ptr<LogBackEnd> MakeJsonBackEnd(std::shared_ptr<spdlog::sinks::sink> sink,
                                            const std::string& name) {
    return std::make_shared<cvlcoreplatform::JsonLineBackEnd>(std::move(sink), name);
}

}  // namespace TLog
