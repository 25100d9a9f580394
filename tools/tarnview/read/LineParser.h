#pragma once

#include "read/LogLine.h"

#include <cstdint>
#include <memory_resource>
#include <simdjson.h>
#include <string>
#include <string_view>

namespace tarnview {

/// What of a line is read beyond what all commands need.
struct ParserOptions {
    bool wantsTables = false;  ///< environment, resultDetails, attributes and body
    bool isStrict = false;     ///< the whole line must be valid, also what is not read
    std::string_view host{};   ///< of which the processes are; kept until the program ends
};

/// Reads lines of the log. Used by one thread.
///
/// One pass over the fields in their order; unknown ones are skipped. Of a duplicate field the
/// first value counts.
class LineParser {
public:
    enum class Result {
        Good,
        Flawed,      ///< readable, but with a field that is duplicate or of a wrong kind
        Unreadable,  ///< no JSON object, more than one, or none of a log
    };

    explicit LineParser(ParserOptions options = {}) : m_options(options) {}

    /// At least `simdjson::SIMDJSON_PADDING` bytes behind `text` must be readable. What is wrong
    /// with a line that is not good is in Detail(). The texts of `line` are parts of `text`; those
    /// that have escapes there are in `unescaped`, or are valid until the next call.
    Result Parse(std::string_view text, LogLine& line, std::pmr::memory_resource& unescaped);
    Result Parse(std::string_view text, LogLine& line);

    const std::string& Detail() const { return m_detail; }

    bool HasDuplicate() const { return m_hasDuplicate; }

private:
    using Value = simdjson::ondemand::value;
    using Object = simdjson::ondemand::object;

    Result Fail(std::string_view detail);
    void NoteDuplicate(std::string_view name);
    void NoteWrongKind(std::string_view name);
    bool IsValid(std::string_view text);

    // Each reads one field, or the fields of one table; false if the line is broken.
    template <class Field>
    bool ReadField(const Field& field, Value& value, LogLine& line);
    bool ReadActivity(Value& value, LogLine& line);
    bool ReadResources(Value& value, Figures& figures);
    bool ReadGroup(Value& value, Figures& figures);
    bool ReadTime(Value& value, LogLine& line);
    bool ReadPhase(Value& value, LogLine& line);
    bool ReadText(std::string_view key, Value& value, std::string_view& text);
    bool ReadTable(std::string_view key, Value& value, std::string_view& table);
    template <class Number>
    bool ReadNumber(std::string_view key, Value& value, Number& number);

    // Calls `read` with each field that is known, a member of `known`, and its value.
    template <class Field, std::size_t N, class Read>
    bool ForEachField(Object& object, const Field (&known)[N], const Read& read);

    ParserOptions m_options;
    simdjson::ondemand::parser m_parser;
    simdjson::dom::parser m_strictParser;
    std::pmr::monotonic_buffer_resource m_ownTexts;
    std::pmr::memory_resource* m_unescaped = nullptr;  // of the line that is read
    std::string m_detail;
    bool m_hasDuplicate = false;
    bool m_hasWrongKind = false;
    bool m_hasActivity = false;
};

}  // namespace tarnview
