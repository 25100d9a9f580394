#pragma once

#include "encode/Resources.h"
#include "encode/SpanEncoder.h"
#include "span/LineParser.h"
#include "span/OpenActivities.h"
#include "span/SpanBuilder.h"

#include "tarn/otlp/Options.h"

#include <memory>
#include <string>
#include <string_view>

namespace tarn::otlp {

/// A span that is ready to be sent.
struct EncodedSpan {
    std::shared_ptr<const Resource> resource;
    std::string text;
};

/// Makes encoded spans of the lines of a log, one for each activity that has ended. What is sent
/// depends on the lines alone, so a log that is pushed later yields what was sent while it was
/// written. Used by one thread.
class LineEncoder {
public:
    enum class Result {
        Nothing,       ///< no activity has ended
        BeginLeftOut,  ///< and there was no room for one that begins
        Span,
        Unreadable,
    };

    /// `keepsLines` is for those who ask for the lines of what is open.
    explicit LineEncoder(const Options& options, bool keepsLines = false);

    /// At least `simdjson::SIMDJSON_PADDING` bytes behind `line` must be readable.
    Result Take(std::string_view line, EncodedSpan& span);

    /// As Resources::SetHost().
    void SetHost(std::int64_t process, std::string_view host) {
        m_resources.SetHost(process, host);
    }

    const OpenActivities& Open() const { return m_open; }

private:
    LineParser m_parser;
    OpenActivities m_open;
    SpanBuilder m_builder;
    Resources m_resources;
    std::unique_ptr<SpanEncoder> m_encoder;
};

}  // namespace tarn::otlp
