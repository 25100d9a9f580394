#pragma once

#include "span/Span.h"

#include "tarn/otlp/Options.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn::otlp {

/// Who the spans are from: names and values, each name once.
struct Resource {
    std::vector<std::pair<std::string, std::string>> texts;
    std::int64_t process = 0;

    bool operator==(const Resource&) const = default;
};

/// The encoded spans of one resource.
struct ResourceSpans {
    const Resource* resource = nullptr;
    std::vector<std::string_view> spans;
};

/// What a receiver has answered to a request that it took.
struct PartialSuccess {
    bool isUnderstood = false;
    std::int64_t rejectedSpans = 0;
    std::string message;
};

/// One encoding of OTLP. A span is encoded by itself, so that it waits in the form in which it is
/// sent and its size is known; requests are put together of encoded spans. Used by one thread at a
/// time for spans, and by one for the rest.
class SpanEncoder {
public:
    SpanEncoder() = default;
    SpanEncoder(const SpanEncoder&) = delete;
    SpanEncoder& operator=(const SpanEncoder&) = delete;
    virtual ~SpanEncoder() = default;

    virtual std::string Encode(const Span& span) = 0;

    /// A whole request.
    virtual std::string Assemble(const std::vector<ResourceSpans>& batch) const = 0;

    virtual PartialSuccess ReadAnswer(std::string_view body) const = 0;

    virtual std::string_view ContentType() const = 0;
};

std::unique_ptr<SpanEncoder> MakeEncoder(Encoding encoding);

/// The text of an error that a receiver has answered with, if it has the form of `contentType`.
std::string ReadErrorMessage(std::string_view contentType, std::string_view body);

}  // namespace tarn::otlp
