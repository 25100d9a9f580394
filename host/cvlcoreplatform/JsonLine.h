#pragma once

#include "RapidJson.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cvlcoreplatform {

/// Throws when there is no memory, which RapidJSON's own allocator does not notice.
class LineAllocator {
public:
    // Named by RapidJSON.
    static constexpr bool kNeedFree = true;  // NOLINT(readability-identifier-naming)

    void* Malloc(std::size_t bytes);
    void* Realloc(void* block, std::size_t oldBytes, std::size_t newBytes);
    static void Free(void* block) noexcept;
};

using LineBuffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, LineAllocator>;

/// RapidJSON's writer with a short cut for texts that stand in JSON as they are. Nearly all names,
/// ids and values are such.
class LineWriter
    : public rapidjson::Writer<LineBuffer, rapidjson::UTF8<>, rapidjson::UTF8<>, LineAllocator> {
public:
    using Writer::Writer;

    // Texts stand in an object or an array always, a line being an object.

    /// Writes `text` if all its characters are ASCII and none needs an escape; else does nothing.
    bool WritePlain(std::u16string_view text);

    /// `text` is known to be plain.
    void WritePlain(std::string_view text);

private:
    // Two quotation marks and a separator.
    static constexpr std::size_t mostAround = 3;

    std::size_t SeparatorBefore(char* to) noexcept;
    void CountValue() noexcept;
};

/// Makes JSON lines. Its buffers live on between lines, so that an ordinary line allocates
/// nothing. One thread at a time.
class JsonLine {
public:
    JsonLine() = default;
    ~JsonLine() = default;
    JsonLine(const JsonLine&) = delete;
    JsonLine& operator=(const JsonLine&) = delete;

    /// The line without line end, valid until the next call. `now` is the time of an event that
    /// has none of its own.
    std::string_view Format(TLog::Severity severity,
                            const TLog::Event& event,
                            TLog::EventTimePoint now);
    std::string_view Format(TLog::Severity severity,
                            const TString& message,
                            TLog::EventTimePoint now);

private:
    // A field of a table, with what decides on its place.
    struct Field {
        uint64 firstUnits;
        const TString* name;
        const TLog::Value* value;
    };

    void Begin();
    std::string_view End();
    void WriteTime(TLog::EventTimePoint time);
    void WriteProcessAndThread(uint32 processId, uint64 threadId);
    void WriteName(std::string_view name);
    void WriteText(std::string_view name, const TString& text);
    void WriteText(const TString& text);
    void WriteOptional(std::string_view name, const TLog::Value* value);
    void WriteValue(const TLog::Value& value, int depth);
    void WriteLiteral(const TLog::Literal& literal);
    void WriteTable(const TLog::NameTable& table, int depth);
    void WriteNumber(double value, bool fixed);

    LineBuffer m_out;
    LineWriter m_writer{m_out};
    std::string m_utf8;
    std::size_t m_lastLength = 0;
    // The fields of all tables that are open, those of the innermost last.
    std::vector<Field> m_fields;
};

}  // namespace cvlcoreplatform
