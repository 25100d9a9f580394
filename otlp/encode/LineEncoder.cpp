#include "encode/LineEncoder.h"

namespace tarn::otlp {

LineEncoder::LineEncoder(const Options& options, bool keepsLines)
    : m_open(options.openBytes, keepsLines),
      m_resources(options),
      m_encoder(MakeEncoder(options.encoding)) {}

LineEncoder::Result LineEncoder::Take(std::string_view line, EncodedSpan& span) {
    LineFacts facts;
    if (!m_parser.Parse(line, facts)) {
        return Result::Unreadable;
    }
    if (facts.kind == LineFacts::Kind::Begin) {
        return m_open.Begin(facts, line) ? Result::Nothing : Result::BeginLeftOut;
    }
    if (facts.kind != LineFacts::Kind::End) {
        return Result::Nothing;
    }
    if (!facts.host.empty()) {
        m_resources.SetHost(facts.process, facts.host);
    }
    const ActivityFacts activity = m_open.End(facts);
    span.resource = m_resources.Of(activity);
    span.text = m_encoder->Encode(m_builder.Build(activity, IdentityOf(activity)));
    return Result::Span;
}

}  // namespace tarn::otlp
