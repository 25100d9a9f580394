#include "encode/ProtobufEncoder.h"

#include "encode/WireReader.h"
#include "encode/WireWriter.h"

#include <bit>

namespace tarn::otlp {

namespace {

// The numbers of the fields, by message, as the protocol's schema has them.
namespace request {
constexpr unsigned resourceSpans = 1;
}

namespace resourceSpans {
constexpr unsigned resource = 1;
constexpr unsigned scopeSpans = 2;
}  // namespace resourceSpans

namespace resource {
constexpr unsigned attributes = 1;
}

namespace scopeSpans {
constexpr unsigned scope = 1;
constexpr unsigned spans = 2;
}  // namespace scopeSpans

namespace scope {
constexpr unsigned name = 1;
}

namespace keyValue {
constexpr unsigned key = 1;
constexpr unsigned value = 2;
}  // namespace keyValue

namespace anyValue {
constexpr unsigned text = 1;
constexpr unsigned boolean = 2;
constexpr unsigned integer = 3;
constexpr unsigned real = 4;
}  // namespace anyValue

namespace spanField {
constexpr unsigned traceId = 1;
constexpr unsigned spanId = 2;
constexpr unsigned parentSpanId = 4;
constexpr unsigned name = 5;
constexpr unsigned kind = 6;
constexpr unsigned begin = 7;
constexpr unsigned end = 8;
constexpr unsigned attributes = 9;
constexpr unsigned events = 11;
constexpr unsigned links = 13;
constexpr unsigned status = 15;
}  // namespace spanField

namespace event {
constexpr unsigned time = 1;
constexpr unsigned name = 2;
constexpr unsigned attributes = 3;
}  // namespace event

namespace link {
constexpr unsigned traceId = 1;
constexpr unsigned spanId = 2;
constexpr unsigned attributes = 4;
}  // namespace link

namespace status {
constexpr unsigned message = 2;
constexpr unsigned code = 3;
}  // namespace status

namespace answer {
constexpr unsigned partialSuccess = 1;
constexpr unsigned rejectedSpans = 1;
constexpr unsigned message = 2;
}  // namespace answer

constexpr std::size_t fixed64 = 9;  // with its tag

std::uint64_t Nanoseconds(Microseconds time) {
    return static_cast<std::uint64_t>(time) * 1000;
}

std::size_t SizeOf(const Value& value) {
    switch (value.kind) {
        case Value::Kind::Text:
            return WireWriter::SizeOfBytes(value.text.size());
        case Value::Kind::Integer:
            return 1 + WireWriter::SizeOfVarint(static_cast<std::uint64_t>(value.integer));
        case Value::Kind::Double:
            return fixed64;
        case Value::Kind::Boolean:
            break;
    }
    return 2;
}

std::size_t SizeOf(const Attribute& attribute) {
    return WireWriter::SizeOfBytes(attribute.prefix.size() + attribute.name.size()) +
           WireWriter::SizeOfBytes(SizeOf(attribute.value));
}

void WriteAttribute(WireWriter& out, unsigned field, const Attribute& attribute) {
    const Value& value = attribute.value;
    out.BeginBytes(field, SizeOf(attribute));
    out.BeginBytes(keyValue::key, attribute.prefix.size() + attribute.name.size());
    out.Raw(attribute.prefix);
    out.Raw(attribute.name);
    out.BeginBytes(keyValue::value, SizeOf(value));
    switch (value.kind) {
        case Value::Kind::Text:
            out.BytesField(anyValue::text, value.text);
            break;
        case Value::Kind::Integer:
            out.VarintField(anyValue::integer, static_cast<std::uint64_t>(value.integer));
            break;
        case Value::Kind::Double:
            out.Fixed64Field(anyValue::real, std::bit_cast<std::uint64_t>(value.real));
            break;
        case Value::Kind::Boolean:
            out.VarintField(anyValue::boolean, value.integer != 0 ? 1 : 0);
            break;
    }
}

std::size_t SizeOf(const SpanEvent& event) {
    std::size_t size = fixed64 + WireWriter::SizeOfBytes(event.name.size());
    for (const Attribute& attribute : event.attributes) {
        size += WireWriter::SizeOfBytes(SizeOf(attribute));
    }
    return size;
}

void WriteEvent(WireWriter& out, const SpanEvent& event) {
    out.BeginBytes(spanField::events, SizeOf(event));
    out.Fixed64Field(event::time, Nanoseconds(event.time));
    out.BytesField(event::name, event.name);
    for (const Attribute& attribute : event.attributes) {
        WriteAttribute(out, event::attributes, attribute);
    }
}

void WriteStatus(WireWriter& out, const Span& span) {
    const std::size_t messageSize =
        span.message.empty() ? 0 : WireWriter::SizeOfBytes(span.message.size());
    const std::size_t codeSize = span.status == StatusCode::Unset ? 0 : 2;
    out.BeginBytes(spanField::status, messageSize + codeSize);
    if (messageSize != 0) {
        out.BytesField(status::message, span.message);
    }
    if (codeSize != 0) {
        out.VarintField(status::code, static_cast<std::uint64_t>(span.status));
    }
}

void WriteSpanId(WireWriter& out, unsigned field, SpanId id) {
    char bytes[8];
    for (int index = 0; index < 8; ++index) {
        bytes[index] = static_cast<char>(id >> (56 - 8 * index));
    }
    out.BytesField(field, {bytes, sizeof(bytes)});
}

void WriteTraceId(WireWriter& out, unsigned field, const TraceId& id) {
    out.BytesField(field, {reinterpret_cast<const char*>(id.data()), id.size()});
}

std::size_t SizeOf(const SpanLink& link) {
    std::size_t size =
        WireWriter::SizeOfBytes(link.trace.size()) + WireWriter::SizeOfBytes(sizeof(SpanId));
    for (const Attribute& attribute : link.attributes) {
        size += WireWriter::SizeOfBytes(SizeOf(attribute));
    }
    return size;
}

void WriteLink(WireWriter& out, const SpanLink& link) {
    out.BeginBytes(spanField::links, SizeOf(link));
    WriteTraceId(out, link::traceId, link.trace);
    WriteSpanId(out, link::spanId, link.span);
    for (const Attribute& attribute : link.attributes) {
        WriteAttribute(out, link::attributes, attribute);
    }
}

std::string EncodeResource(const Resource& from) {
    std::string out;
    WireWriter writer(out);
    for (const auto& [name, text] : from.texts) {
        WriteAttribute(writer, resource::attributes, {{}, name, {.text = text}});
    }
    WriteAttribute(writer,
                   resource::attributes,
                   {{}, "process.pid", {.kind = Value::Kind::Integer, .integer = from.process}});
    return out;
}

}  // namespace

std::string ProtobufEncoder::Encode(const Span& span) {
    m_scratch.clear();
    WireWriter out(m_scratch);
    WriteTraceId(out, spanField::traceId, span.identity.trace);
    WriteSpanId(out, spanField::spanId, span.identity.span);
    if (span.identity.parent != 0) {
        WriteSpanId(out, spanField::parentSpanId, span.identity.parent);
    }
    out.BytesField(spanField::name, span.name);
    out.VarintField(spanField::kind, static_cast<std::uint64_t>(span.kind));
    out.Fixed64Field(spanField::begin, Nanoseconds(span.begin));
    out.Fixed64Field(spanField::end, Nanoseconds(span.end));
    for (const Attribute& attribute : span.attributes) {
        WriteAttribute(out, spanField::attributes, attribute);
    }
    for (const SpanEvent& event : span.events) {
        WriteEvent(out, event);
    }
    for (const SpanLink& link : span.links) {
        WriteLink(out, link);
    }
    WriteStatus(out, span);
    return m_scratch;
}

std::string ProtobufEncoder::Assemble(const std::vector<ResourceSpans>& batch) const {
    std::string out;
    WireWriter writer(out);
    std::string scopeText;
    WireWriter(scopeText).BytesField(scope::name, "tarn");
    for (const ResourceSpans& part : batch) {
        const std::string resourceText = EncodeResource(*part.resource);
        std::size_t spansSize = WireWriter::SizeOfBytes(scopeText.size());
        for (const std::string_view span : part.spans) {
            spansSize += WireWriter::SizeOfBytes(span.size());
        }
        const std::size_t size =
            WireWriter::SizeOfBytes(resourceText.size()) + WireWriter::SizeOfBytes(spansSize);
        out.reserve(out.size() + WireWriter::SizeOfBytes(size));
        writer.BeginBytes(request::resourceSpans, size);
        writer.BytesField(resourceSpans::resource, resourceText);
        writer.BeginBytes(resourceSpans::scopeSpans, spansSize);
        writer.BytesField(scopeSpans::scope, scopeText);
        for (const std::string_view span : part.spans) {
            writer.BytesField(scopeSpans::spans, span);
        }
    }
    return out;
}

PartialSuccess ProtobufEncoder::ReadAnswer(std::string_view body) const {
    PartialSuccess result;
    WireReader answerReader(body);
    while (answerReader.Next()) {
        if (answerReader.field != answer::partialSuccess) {
            continue;
        }
        WireReader reader(answerReader.bytes);
        while (reader.Next()) {
            if (reader.field == answer::rejectedSpans) {
                result.rejectedSpans = static_cast<std::int64_t>(reader.number);
            } else if (reader.field == answer::message) {
                result.message = reader.bytes;
            }
        }
        if (reader.IsBroken()) {
            return {};
        }
    }
    result.isUnderstood = !answerReader.IsBroken();
    return result.isUnderstood ? result : PartialSuccess{};
}

}  // namespace tarn::otlp
