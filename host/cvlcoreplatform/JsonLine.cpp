#include "JsonLine.h"

#include "TimeText.h"

#include "cvlsys/TSystem.h"
#include "cvlsys/host/Transcoding.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace cvlcoreplatform {

namespace {

// Deeper values are cut off: nobody reads them, and writing them must not exhaust the stack.
constexpr int mostLevels = 200;

// Whoever logs a huge event once shall not keep its memory for good.
constexpr std::size_t mostBytesKept = std::size_t{256} << 10;

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
    uint64 units = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        units = units << 16 | (i < text.size() ? text[i] : 0);
    }
    return units;
}

// Whether a unit stands in JSON as it is.
constexpr bool IsPlain(char16_t unit) noexcept {
    return unit >= u' ' && unit <= u'~' && unit != u'"' && unit != u'\\';
}

#ifdef __SSE2__

// Eight units at once: checked, and narrowed to bytes. False if one of them is not plain.
bool CopyEightPlain(const char16_t* from, char* to) noexcept {
    const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    // Compared as signed numbers, what is above 0x7FFF counts as too small.
    const __m128i outside = _mm_or_si128(_mm_cmplt_epi16(units, _mm_set1_epi16(u' ')),
                                         _mm_cmpgt_epi16(units, _mm_set1_epi16(u'~')));
    const __m128i escaped = _mm_or_si128(_mm_cmpeq_epi16(units, _mm_set1_epi16(u'"')),
                                         _mm_cmpeq_epi16(units, _mm_set1_epi16(u'\\')));
    if (_mm_movemask_epi8(_mm_or_si128(outside, escaped)) != 0) {
        return false;
    }
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(units, units));
    return true;
}

#else

bool CopyEightPlain(const char16_t* from, char* to) noexcept {
    for (std::size_t i = 0; i < 8; ++i) {
        if (!IsPlain(from[i])) {
            return false;
        }
        to[i] = static_cast<char>(from[i]);
    }
    return true;
}

#endif

/// Copies a text of plain units. False if there is another one; part of the text may be copied
/// then.
bool CopyPlain(std::u16string_view text, char* to) noexcept {
    constexpr std::size_t block = 8;
    const char16_t* from = text.data();
    std::size_t left = text.size();
    if (left < block) {
        for (; left != 0; --left) {
            if (!IsPlain(*from)) {
                return false;
            }
            *to++ = static_cast<char>(*from++);
        }
        return true;
    }
    for (; left >= block; left -= block, from += block, to += block) {
        if (!CopyEightPlain(from, to)) {
            return false;
        }
    }
    // The last block overlaps what is done already.
    return left == 0 || CopyEightPlain(from + left - block, to + left - block);
}

}  // namespace

void* LineAllocator::Malloc(std::size_t bytes) {
    return bytes != 0 ? ::operator new(bytes) : nullptr;
}

void* LineAllocator::Realloc(void* block, std::size_t oldBytes, std::size_t newBytes) {
    void* const larger = Malloc(newBytes);
    if (larger != nullptr && block != nullptr) {
        std::memcpy(larger, block, std::min(oldBytes, newBytes));
    }
    Free(block);
    return larger;
}

void LineAllocator::Free(void* block) noexcept {
    ::operator delete(block);
}

bool LineWriter::WritePlain(std::u16string_view text) {
    // Into room that counts only once the text is known to be plain.
    char* const quoted = os_->Push(text.size() + mostAround);
    char* next = quoted;
    next += SeparatorBefore(next);
    *next++ = '"';
    if (!CopyPlain(text, next)) {
        os_->Pop(text.size() + mostAround);
        return false;
    }
    next += text.size();
    *next++ = '"';
    os_->Pop(text.size() + mostAround - static_cast<std::size_t>(next - quoted));
    CountValue();
    return true;
}

void LineWriter::WritePlain(std::string_view text) {
    char* const quoted = os_->Push(text.size() + mostAround);
    char* next = quoted;
    next += SeparatorBefore(next);
    *next++ = '"';
    std::memcpy(next, text.data(), text.size());
    next += text.size();
    *next++ = '"';
    os_->Pop(text.size() + mostAround - static_cast<std::size_t>(next - quoted));
    CountValue();
}

// What parts the next text from what stands before it, as RapidJSON's own `Prefix` writes it. Texts
// are values in arrays, and names and values in objects by turns.
std::size_t LineWriter::SeparatorBefore(char* to) noexcept {
    const Level* const level = level_stack_.template Top<Level>();
    if (level->valueCount == 0) {
        return 0;
    }
    *to = level->inArray || level->valueCount % 2 == 0 ? ',' : ':';
    return 1;
}

void LineWriter::CountValue() noexcept {
    ++level_stack_.template Top<Level>()->valueCount;
}

std::string_view JsonLine::Format(TLog::Severity severity,
                                  const TLog::Event& event,
                                  TLog::EventTimePoint now) {
    const TLog::ActivityInfo* const info = event.GetActivityInfo();
    Begin();
    WriteTime(info != nullptr ? info->GetTime() : now);
    WriteName("severity");
    m_writer.WritePlain(NameOf(severity));
    WriteText("event", event.GetName());
    if (info != nullptr) {
        WriteProcessAndThread(info->GetProcessId(), info->GetThreadId());
        WriteText("session", info->GetSessionId());
        WriteText("request", info->GetRequestId());
        WriteText("user", info->GetUser());
        WriteText("site", info->GetSite());
        WriteOptional("environment", info->GetEnvironment().get());
        WriteOptional("activity", info->GetActivity().get());
        WriteOptional("attributes", info->GetAttributes().get());
    } else {
        WriteProcessAndThread(TSystem::ProcessID(), TSystem::ThreadID());
    }
    WriteOptional("body", event.GetBody().get());
    return End();
}

std::string_view JsonLine::Format(TLog::Severity severity,
                                  const TString& message,
                                  TLog::EventTimePoint now) {
    Begin();
    WriteTime(now);
    WriteName("severity");
    m_writer.WritePlain(NameOf(severity));
    WriteText("message", message);
    WriteProcessAndThread(TSystem::ProcessID(), TSystem::ThreadID());
    return End();
}

void JsonLine::Begin() {
    m_out.Clear();
    if (m_lastLength > mostBytesKept) {
        m_out.ShrinkToFit();
        m_utf8 = std::string();
        m_fields = std::vector<Field>();
    }
    // A line that broke off for want of memory may have left some.
    m_fields.clear();
    m_writer.Reset(m_out);
    m_writer.StartObject();
}

std::string_view JsonLine::End() {
    m_writer.EndObject();
    m_lastLength = m_out.GetSize();
    return {m_out.GetString(), m_lastLength};
}

void JsonLine::WriteTime(TLog::EventTimePoint time) {
    WriteName("time");
    m_writer.WritePlain(FormatUtc(time).View());
}

void JsonLine::WriteProcessAndThread(uint32 processId, uint64 threadId) {
    WriteName("pid");
    m_writer.Uint(processId);
    WriteName("tid");
    m_writer.Uint64(threadId);
}

void JsonLine::WriteName(std::string_view name) {
    m_writer.WritePlain(name);
}

void JsonLine::WriteText(std::string_view name, const TString& text) {
    WriteName(name);
    WriteText(text);
}

void JsonLine::WriteText(const TString& text) {
    if (m_writer.WritePlain(text.View())) {
        return;
    }
    m_utf8.clear();
    cvlsys::AppendUtf8(text.View(), m_utf8);
    m_writer.String(m_utf8.data(), m_utf8.size());
}

void JsonLine::WriteOptional(std::string_view name, const TLog::Value* value) {
    if (value != nullptr) {
        WriteName(name);
        WriteValue(*value, 1);
    }
}

void JsonLine::WriteValue(const TLog::Value& value, int depth) {
    if (depth > mostLevels) {
        m_writer.Null();
        return;
    }
    switch (value.GetKind()) {
        case TLog::ValueKind::Literal:
            WriteLiteral(static_cast<const TLog::Literal&>(value));
            break;
        case TLog::ValueKind::Object:
            WriteTable(static_cast<const TLog::Object&>(value).GetFields(), depth);
            break;
        case TLog::ValueKind::Array:
            m_writer.StartArray();
            for (const auto& item : static_cast<const TLog::Array&>(value).GetItems()) {
                // A missing item keeps its place.
                WriteValue(item != nullptr ? *item : *TLog::Literal::Null(), depth + 1);
            }
            m_writer.EndArray();
            break;
    }
}

void JsonLine::WriteTable(const TLog::NameTable& table, int depth) {
    const std::size_t first = m_fields.size();
    for (const auto& [name, value] : table) {
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

    m_writer.StartObject();
    // By index, because tables inside this one lengthen the list while they are written.
    for (std::size_t i = first, end = m_fields.size(); i != end; ++i) {
        const Field field = m_fields[i];
        WriteText(*field.name);
        WriteValue(*field.value, depth + 1);
    }
    m_writer.EndObject();
    m_fields.resize(first);
}

void JsonLine::WriteLiteral(const TLog::Literal& literal) {
    switch (literal.GetType()) {
        case TLog::LiteralType::String:
            WriteText(literal.GetString());
            break;
        case TLog::LiteralType::Integer:
            m_writer.Int64(literal.GetInt());
            break;
        case TLog::LiteralType::Double:
            WriteNumber(literal.GetDouble(), false);
            break;
        case TLog::LiteralType::FixedDouble:
            WriteNumber(literal.GetDouble(), true);
            break;
        case TLog::LiteralType::Boolean:
            m_writer.Bool(literal.GetBool());
            break;
        case TLog::LiteralType::Null:
            m_writer.Null();
            break;
    }
}

// The shortest digits that read back as the same value, always recognisable as a real number.
void JsonLine::WriteNumber(double value, bool fixed) {
    if (!std::isfinite(value)) {
        m_writer.Null();
        return;
    }
    // The smallest numbers in fixed notation are the longest.
    constexpr int mostDecimals = 1100;
    std::array<char, mostDecimals> text;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    char* const room = text.data() + text.size() - 2;
    char* end = fixed ? std::to_chars(text.data(), room, value, std::chars_format::fixed).ptr
                      : std::to_chars(text.data(), room, value).ptr;
    const std::string_view digits(text.data(), static_cast<std::size_t>(end - text.data()));
    if (digits.find_first_of(".e") == std::string_view::npos) {
        *end++ = '.';
        *end++ = '0';
    }
    m_writer.RawValue(
        text.data(), static_cast<std::size_t>(end - text.data()), rapidjson::kNumberType);
}

}  // namespace cvlcoreplatform
