#pragma once

#include "encode/SpanEncoder.h"

namespace tarn::otlp {

/// The encoding in JSON: ids in hexadecimal, 64-bit integers as texts, enumerations as numbers.
class JsonEncoder final : public SpanEncoder {
public:
    std::string Encode(const Span& span) override;
    std::string Assemble(const std::vector<ResourceSpans>& batch) const override;
    PartialSuccess ReadAnswer(std::string_view body) const override;

    std::string_view ContentType() const override { return "application/json"; }
};

}  // namespace tarn::otlp
