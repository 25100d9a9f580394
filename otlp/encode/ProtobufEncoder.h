#pragma once

#include "encode/SpanEncoder.h"

namespace tarn::otlp {

/// The binary encoding.
class ProtobufEncoder final : public SpanEncoder {
public:
    std::string Encode(const Span& span) override;
    std::string Assemble(const std::vector<ResourceSpans>& batch) const override;
    PartialSuccess ReadAnswer(std::string_view body) const override;

    std::string_view ContentType() const override { return "application/x-protobuf"; }

private:
    std::string m_scratch;
};

}  // namespace tarn::otlp
