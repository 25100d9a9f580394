#include "JsonLine.h"

#include "LineTemplate.h"

#include "cvlcoreplatform/host/MessageActivity.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>

namespace cvlcoreplatform {

namespace {

// Deeper values are cut off: nobody reads them, and writing them must not exhaust the stack.
constexpr int mostLevels = 200;

// One huge event must not hold a thread's memory for good.
constexpr std::size_t mostBytesKept = std::size_t{256} << 10;

constinit std::atomic<TLog::MessageActivityFunction> s_findActivity{nullptr};

std::string_view NameOf(TLog::Severity severity) noexcept {
    switch (severity) {
        case TLog::Trace:
            return "trace";
        case TLog::Debug:
            return "debug";
        case TLog::Info:
            return "info";
        case TLog::Warn:
            return "warn";
        case TLog::Error:
            return "error";
        case TLog::Fatal:
            break;
    }
    return "fatal";
}

// The first four units as one number that compares as they do. A shorter text counts as if it
// went on with NULs.
uint64 FirstUnits(std::u16string_view text) noexcept {
    constexpr std::size_t count = 4;
    std::array<char16_t, count> first{};
    std::copy_n(text.data(), std::min(text.size(), count), first.data());
    return uint64{first[0]} << 48 | uint64{first[1]} << 32 | uint64{first[2]} << 16 | first[3];
}

}  // namespace

std::string_view JsonLine::Format(TLog::Severity severity,
                                  const TLog::Event& event,
                                  TLog::EventTimePoint now) {
    if (const TLog::FormedEvent* const formed = TLog::AsFormed(event.GetFields())) {
        Begin(formed->time, severity);
        WriteFormed(*formed);
        return End();
    }
    const TLog::ActivityInfo* const info = event.GetActivityInfo();
    Begin(info != nullptr ? info->GetTime() : now, severity);
    m_line.Append(R"(,"event":)");
    m_line.AppendText(event.GetName().View());
    if (info != nullptr) {
        WriteProcessAndThread(info->GetProcessId(), info->GetThreadId());
        m_line.Append(R"(,"session":)");
        m_line.AppendText(info->GetSessionId().View());
        m_line.Append(R"(,"request":)");
        m_line.AppendText(info->GetRequestId().View());
        m_line.Append(R"(,"user":)");
        m_line.AppendText(info->GetUser().View());
        m_line.Append(R"(,"site":)");
        m_line.AppendText(info->GetSite().View());
        if (info->GetFurtherFields() != nullptr) {
            WriteFurtherFields(*info->GetFurtherFields());
        }
        WriteOptional(R"(,"environment":)", info->GetEnvironment().get());
        WriteOptional(R"(,"activity":)", info->GetActivity().get());
        WriteOptional(R"(,"attributes":)", info->GetAttributes().get());
    } else {
        WriteProcessAndThread(TSystem::ProcessID(), TSystem::ThreadID());
    }
    WriteOptional(R"(,"body":)", event.GetBody().get());
    return End();
}

std::string_view JsonLine::Format(TLog::Severity severity,
                                  const TString& message,
                                  TLog::EventTimePoint now) {
    Begin(now, severity);
    m_line.Append(R"(,"message":)");
    m_line.AppendText(message.View());
    WriteProcessAndThread(TSystem::ProcessID(), TSystem::ThreadID());
    WriteActivityOfMessage();
    return End();
}

void JsonLine::WriteActivityOfMessage() {
    const TLog::MessageActivityFunction find = s_findActivity.load(std::memory_order_acquire);
    if (TLog::MessageActivity activity; find != nullptr && find(activity)) {
        m_line.Append(R"(,"activity":{"id":)");
        m_line.AppendText(activity.id.View());
        m_line.Append(R"(,"root":)");
        m_line.AppendText(activity.root.View());
        m_line.Append('}');
    }
}

void JsonLine::Begin(TLog::EventTimePoint time, TLog::Severity severity) {
    if (m_line.View().size() > mostBytesKept) {
        m_line.Release();
        m_fields = std::vector<Field>();
    }
    m_line.Clear();
    // A line that broke off for want of memory may have left some.
    m_fields.clear();
    m_line.Append(R"({"time":")");
    WriteTime(time);
    m_line.Append(R"(Z","severity":")");
    m_line.Append(NameOf(severity));
    m_line.Append('"');
}

std::string_view JsonLine::End() {
    m_line.Append('}');
    return m_line.View();
}

void JsonLine::WriteTime(TLog::EventTimePoint time) {
    // In microseconds, because the second that the earliest times lie in begins before the first
    // tick.
    const auto rounded = ClampToForm(time);
    const auto second = std::chrono::floor<std::chrono::seconds>(rounded);
    if (second != m_second) {
        m_secondText = FormatUtcUpToSecond(second);
        m_second = second;
    }
    m_line.Append(m_secondText.View());
    m_line.AppendFraction(static_cast<uint32>((rounded - second).count()));
}

void JsonLine::WriteProcessAndThread(uint32 processId, uint64 threadId) {
    if (processId != m_processId || threadId != m_threadId || m_processAndThread.empty()) {
        m_processAndThread =
            R"(,"pid":)" + std::to_string(processId) + R"(,"tid":)" + std::to_string(threadId);
        m_processId = processId;
        m_threadId = threadId;
    }
    m_line.Append(m_processAndThread);
}

void JsonLine::WriteOptional(std::string_view name, const TLog::Value* value) {
    if (value != nullptr) {
        m_line.Append(name);
        WriteValue(*value, 1);
    }
}

void JsonLine::WriteValue(const TLog::Value& value, int depth) {
    if (depth > mostLevels) {
        m_line.Append("null");
        return;
    }
    switch (value.GetKind()) {
        case TLog::ValueKind::Literal:
            WriteLiteral(static_cast<const TLog::Literal&>(value));
            break;
        case TLog::ValueKind::Object:
            WriteObject(static_cast<const TLog::Object&>(value), depth);
            break;
        case TLog::ValueKind::Array:
            WriteArray(static_cast<const TLog::Array&>(value), depth);
            break;
    }
}

void JsonLine::WriteArray(const TLog::Array& array, int depth) {
    char before = '[';
    for (const auto& item : array.GetItems()) {
        m_line.Append(before);
        before = ',';
        // A missing item keeps its place.
        WriteValue(item != nullptr ? *item : *TLog::Literal::Null(), depth + 1);
    }
    m_line.Append(array.GetItems().empty() ? "[]" : "]");
}

void JsonLine::WriteObject(const TLog::Object& object, int depth) {
    m_line.Append('{');
    WriteFields(object, depth);
    m_line.Append('}');
}

void JsonLine::WriteFurtherFields(const TLog::Object& object) {
    TLog::NameTable fields;
    for (const auto& [name, value] : object.GetFields()) {
        if (value != nullptr && TLog::IsFurtherField(name.View())) {
            fields.emplace(name, value);
        }
    }
    if (!fields.empty()) {
        m_line.Append(',');
        WriteFields(*TLog::Object::Make(std::move(fields)), 1);
    }
}

void JsonLine::WriteFields(const TLog::Object& object, int depth) {
    const std::size_t first = m_fields.size();
    for (const auto& [name, value] : object.GetFields()) {
        if (value != nullptr) {
            m_fields.push_back(Field{FirstUnits(name.View()), &name, value.get()});
        }
    }
    std::sort(m_fields.begin() + static_cast<std::ptrdiff_t>(first),
              m_fields.end(),
              [](const Field& a, const Field& b) {
                  return a.firstUnits != b.firstUnits ? a.firstUnits < b.firstUnits
                                                      : *a.name < *b.name;
              });

    // By index, because objects inside this one lengthen the list while they are written.
    for (std::size_t i = first, end = m_fields.size(); i != end; ++i) {
        const Field field = m_fields[i];
        if (i != first) {
            m_line.Append(',');
        }
        m_line.AppendText(field.name->View());
        m_line.Append(':');
        WriteValue(*field.value, depth + 1);
    }
    m_fields.resize(first);
}

void JsonLine::WriteFormed(const TLog::FormedEvent& event) {
    m_line.Append(R"(,"event":)");
    m_line.AppendText(event.GetName().View());
    WriteProcessAndThread(event.processId, event.threadId);
    const auto& lineTemplate = event.GetForm().GetNotes<LineTemplate>();
    LineText::Cursor cursor(m_line, lineTemplate.RoomFor(event.CountTextBytes()));
    for (const LineTemplate::Gap& gap : lineTemplate.GetGaps()) {
        cursor.Append(gap.before);
        const TLog::StoredValue& value = event.GetValues()[gap.slot];
        if (gap.isText && value.text.IsPlain()) {
            cursor.AppendText(value.text.Plain());
        } else {
            cursor.Pause();
            WriteSlot(event, gap.kind, value);
            cursor.Resume();
        }
    }
    cursor.Append(lineTemplate.AfterAll());
    cursor.Pause();
}

void JsonLine::WriteSlot(const TLog::FormedEvent& event,
                         TLog::FieldKind kind,
                         const TLog::StoredValue& value) {
    switch (kind) {
        case TLog::FieldKind::Integer:
            m_line.AppendNumber(value.integer);
            break;
        case TLog::FieldKind::Real:
            m_line.AppendReal(value.real, false);
            break;
        case TLog::FieldKind::Boolean:
            m_line.Append(value.integer != 0 ? "true" : "false");
            break;
        case TLog::FieldKind::Value:
            WriteValue(*event.GetShared(value), 2);
            break;
        default:
            m_line.AppendText(value.text.Units());
    }
}

void JsonLine::WriteLiteral(const TLog::Literal& literal) {
    switch (literal.GetType()) {
        case TLog::LiteralType::String:
            m_line.AppendText(literal.GetString().View());
            break;
        case TLog::LiteralType::Integer:
            m_line.AppendNumber(literal.GetInt());
            break;
        case TLog::LiteralType::Double:
            m_line.AppendReal(literal.GetDouble(), false);
            break;
        case TLog::LiteralType::FixedDouble:
            m_line.AppendReal(literal.GetDouble(), true);
            break;
        case TLog::LiteralType::Boolean:
            m_line.Append(literal.GetBool() ? "true" : "false");
            break;
        case TLog::LiteralType::Null:
            m_line.Append("null");
            break;
    }
}

}  // namespace cvlcoreplatform

void TLog::SetMessageActivityFunction(MessageActivityFunction function) noexcept {
    cvlcoreplatform::s_findActivity.store(function, std::memory_order_release);
}
