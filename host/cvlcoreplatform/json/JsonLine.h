#pragma once

#include "FormedEvent.h"
#include "LineText.h"
#include "TimeText.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cvlcoreplatform {

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
    // A field of an object, with what decides on its place.
    struct Field {
        uint64 firstUnits;
        const TString* name;
        const TLog::Value* value;
    };

    void Begin(TLog::EventTimePoint time, TLog::Severity severity);
    std::string_view End();
    void WriteTime(TLog::EventTimePoint time);
    void WriteProcessAndThread(uint32 processId, uint64 threadId);
    void WriteActivityOfMessage();
    void WriteOptional(std::string_view name, const TLog::Value* value);
    void WriteValue(const TLog::Value& value, int depth);
    void WriteLiteral(const TLog::Literal& literal);
    void WriteObject(const TLog::Object& object, int depth);
    void WriteFields(const TLog::Object& object, int depth);
    void WriteFurtherFields(const TLog::Object& object);
    void WriteArray(const TLog::Array& array, int depth);
    void WriteFormed(const TLog::FormedEvent& event);
    void WriteSlot(const TLog::FormedEvent& event,
                   TLog::FieldKind kind,
                   const TLog::StoredValue& value);

    LineText m_line;
    // The second of the last time that was written, and its text up to the point.
    std::chrono::sys_seconds m_second = std::chrono::sys_seconds::min();
    TimeText m_secondText;
    // The last ids that were written, and their fields.
    uint32 m_processId = 0;
    uint64 m_threadId = 0;
    std::string m_processAndThread;
    // The fields of all objects that are open, those of the innermost last.
    std::vector<Field> m_fields;
};

}  // namespace cvlcoreplatform
