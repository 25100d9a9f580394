#pragma once

#include "span/ResourceFigures.h"
#include "span/Timestamp.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarn::otlp {

/// Whether an activity works for a caller in another process, or calls into one. The numbers are
/// those of a span's kind.
enum class SpanKind { Internal = 1, Server = 2, Client = 3 };

/// One activity as the log tells it: what a span is made of. The texts belong to the caller.
struct ActivityFacts {
    std::string_view id;
    std::string_view name;
    std::string_view sponsor;
    std::string_view caller;
    std::string_view root;
    std::string_view session;
    std::string_view request;
    std::string_view user;
    std::string_view site;
    std::string_view description;
    std::int64_t process = 0;
    std::int64_t thread = 0;  ///< on which it began
    Microseconds begin = 0;
    Microseconds end = 0;
    bool hasEnd = true;
    bool isForked = false;  ///< begun by the parent of the process, which may end it, too

    SpanKind kind = SpanKind::Internal;

    std::string_view result;
    ResourceFigures figures;
    std::optional<Microseconds> exclusive;  ///< its time less its children's

    // JSON texts of tables; empty for none. Well-formed, or they count as none.
    std::string_view resultDetails;
    std::string_view attributes;
    std::string_view beginBody;
    std::string_view endBody;
};

}  // namespace tarn::otlp
