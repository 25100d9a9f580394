#pragma once

#include "span/ResourceFigures.h"
#include "span/Timestamp.h"

#include <cstdint>
#include <simdjson.h>
#include <string>
#include <string_view>

namespace tarn::otlp {

/// What a line of the log says, as far as spans need it. The texts point into the line and the
/// parser, and are valid until the next line is parsed. What a line does not hold is empty or 0.
struct LineFacts {
    enum class Kind { Other, Begin, End };

    Kind kind = Kind::Other;
    Microseconds time = 0;
    std::int64_t process = 0;
    std::int64_t thread = 0;
    std::string_view session;
    std::string_view request;
    std::string_view user;
    std::string_view site;
    std::string_view host;

    std::string_view id;
    std::string_view name;
    std::string_view sponsor;
    std::string_view caller;
    std::string_view root;
    std::string_view description;
    double elapsed = 0;  ///< seconds
    std::string_view result;
    ResourceFigures figures;

    // JSON texts of tables.
    std::string_view resultDetails;
    std::string_view attributes;
    std::string_view body;
};

/// Reads lines of the log: JSON objects. Fields that it does not know are passed over. Used by one
/// thread.
class LineParser {
public:
    /// At least `simdjson::SIMDJSON_PADDING` bytes behind `line` must be readable. False if it is
    /// no JSON object, has a field of a wrong kind, or is of an activity and has no id, name or
    /// time.
    bool Parse(std::string_view line, LineFacts& facts);

    /// The same for a text without such bytes behind it, which is enlarged.
    bool Parse(std::string& line, LineFacts& facts);

private:
    simdjson::ondemand::parser m_parser;
};

}  // namespace tarn::otlp
