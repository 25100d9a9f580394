#pragma once

#include "span/ActivityFacts.h"
#include "span/Span.h"

#include <deque>
#include <simdjson.h>
#include <string>
#include <string_view>

namespace tarn::otlp {

/// Makes spans of activities: the one place that says what of an activity becomes which part of a
/// span, for whatever sends or writes them. Used by one thread; it keeps its memory between spans.
class SpanBuilder {
public:
    SpanBuilder() = default;
    SpanBuilder(const SpanBuilder&) = delete;
    SpanBuilder& operator=(const SpanBuilder&) = delete;

    /// `callerNote` says how the parent was guessed; empty if it was not. The span refers to the
    /// texts of `activity`, and is valid as long as these, and until the next call.
    const Span& Build(const ActivityFacts& activity,
                      const SpanIdentity& identity,
                      std::string_view callerNote = {});

    /// Adds a link to the sponsor to the span that was built last: where somebody else is the
    /// parent, because it was the caller.
    const Span& LinkSponsor(const SpanIdentity& sponsor);

private:
    using Members = simdjson::dom::object;

    /// One table: its text, with the bytes behind it that the parser wants, and its parser.
    struct Table {
        simdjson::dom::parser parser;
        Members members;
        bool isFilled = false;
    };

    static void Read(std::string_view text, Table& table);

    void AddAttributes(const ActivityFacts& activity, std::string_view callerNote);
    void AddFigures(const ResourceFigures& figures);
    void AddTable(std::string_view prefix, const Table& table, const Table* except = nullptr);
    void AddContextAttributes();
    void AddSupplements(Microseconds end);
    void SetStatus(const ActivityFacts& activity);
    void AddValue(Attributes& attributes,
                  std::string_view prefix,
                  std::string_view name,
                  const simdjson::dom::element& value);

    Span m_span;
    Table m_attributes;
    Table m_beginBody;
    Table m_endBody;
    Table m_resultDetails;
    std::deque<std::string> m_texts;
};

}  // namespace tarn::otlp
