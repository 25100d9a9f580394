#include "encode/JsonEncoder.h"

#include <charconv>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

namespace tarn::otlp {

namespace {

using Buffer = rapidjson::StringBuffer;
using Writer = rapidjson::Writer<Buffer>;

void Text(Writer& json, std::string_view text) {
    json.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void Key(Writer& json, std::string_view name) {
    json.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
}

// For readers that keep numbers as doubles.
template <class Number>
void NumberAsText(Writer& json, Number number) {
    char text[24];
    const auto end = std::to_chars(text, text + sizeof(text), number).ptr;
    Text(json, {text, static_cast<std::size_t>(end - text)});
}

void Nanoseconds(Writer& json, Microseconds time) {
    NumberAsText(json, static_cast<std::uint64_t>(time) * 1000);
}

void Hexadecimal(Writer& json, const std::uint8_t* bytes, std::size_t count) {
    constexpr char digits[] = "0123456789abcdef";
    char text[2 * sizeof(TraceId)];
    for (std::size_t index = 0; index < count; ++index) {
        text[2 * index] = digits[bytes[index] >> 4];
        text[2 * index + 1] = digits[bytes[index] & 15];
    }
    Text(json, {text, 2 * count});
}

void Hexadecimal(Writer& json, SpanId id) {
    std::uint8_t bytes[8];
    for (int index = 0; index < 8; ++index) {
        bytes[index] = static_cast<std::uint8_t>(id >> (56 - 8 * index));
    }
    Hexadecimal(json, bytes, sizeof(bytes));
}

void WriteValue(Writer& json, const Value& value) {
    json.StartObject();
    switch (value.kind) {
        case Value::Kind::Text:
            Key(json, "stringValue");
            Text(json, value.text);
            break;
        case Value::Kind::Integer:
            Key(json, "intValue");
            NumberAsText(json, value.integer);
            break;
        case Value::Kind::Double:
            Key(json, "doubleValue");
            json.Double(value.real);
            break;
        case Value::Kind::Boolean:
            Key(json, "boolValue");
            json.Bool(value.integer != 0);
            break;
    }
    json.EndObject();
}

void WriteAttribute(Writer& json, const Attribute& attribute) {
    json.StartObject();
    Key(json, "key");
    if (attribute.prefix.empty()) {
        Text(json, attribute.name);
    } else {
        Text(json, std::string(attribute.prefix).append(attribute.name));
    }
    Key(json, "value");
    WriteValue(json, attribute.value);
    json.EndObject();
}

void WriteAttributes(Writer& json, const Attributes& attributes) {
    Key(json, "attributes");
    json.StartArray();
    for (const Attribute& attribute : attributes) {
        WriteAttribute(json, attribute);
    }
    json.EndArray();
}

void WriteEvents(Writer& json, const std::vector<SpanEvent>& events) {
    if (events.empty()) {
        return;
    }
    Key(json, "events");
    json.StartArray();
    for (const SpanEvent& event : events) {
        json.StartObject();
        Key(json, "timeUnixNano");
        Nanoseconds(json, event.time);
        Key(json, "name");
        Text(json, event.name);
        WriteAttributes(json, event.attributes);
        json.EndObject();
    }
    json.EndArray();
}

void WriteLinks(Writer& json, const std::vector<SpanLink>& links) {
    if (links.empty()) {
        return;
    }
    Key(json, "links");
    json.StartArray();
    for (const SpanLink& link : links) {
        json.StartObject();
        Key(json, "traceId");
        Hexadecimal(json, link.trace.data(), link.trace.size());
        Key(json, "spanId");
        Hexadecimal(json, link.span);
        WriteAttributes(json, link.attributes);
        json.EndObject();
    }
    json.EndArray();
}

void WriteStatus(Writer& json, const Span& span) {
    Key(json, "status");
    json.StartObject();
    if (!span.message.empty()) {
        Key(json, "message");
        Text(json, span.message);
    }
    if (span.status != StatusCode::Unset) {
        Key(json, "code");
        json.Int(static_cast<int>(span.status));
    }
    json.EndObject();
}

void WriteResource(Writer& json, const Resource& resource) {
    Attributes attributes;
    for (const auto& [name, text] : resource.texts) {
        attributes.push_back({{}, name, {.text = text}});
    }
    attributes.push_back(
        {{}, "process.pid", {.kind = Value::Kind::Integer, .integer = resource.process}});
    json.StartObject();
    WriteAttributes(json, attributes);
    json.EndObject();
}

}  // namespace

std::string JsonEncoder::Encode(const Span& span) {
    Buffer buffer;
    Writer json(buffer);
    json.StartObject();
    Key(json, "traceId");
    Hexadecimal(json, span.identity.trace.data(), span.identity.trace.size());
    Key(json, "spanId");
    Hexadecimal(json, span.identity.span);
    if (span.identity.parent != 0) {
        Key(json, "parentSpanId");
        Hexadecimal(json, span.identity.parent);
    }
    Key(json, "name");
    Text(json, span.name);
    Key(json, "kind");
    json.Int(static_cast<int>(span.kind));
    Key(json, "startTimeUnixNano");
    Nanoseconds(json, span.begin);
    Key(json, "endTimeUnixNano");
    Nanoseconds(json, span.end);
    WriteAttributes(json, span.attributes);
    WriteEvents(json, span.events);
    WriteLinks(json, span.links);
    WriteStatus(json, span);
    json.EndObject();
    return {buffer.GetString(), buffer.GetSize()};
}

std::string JsonEncoder::Assemble(const std::vector<ResourceSpans>& batch) const {
    std::string out = "{\"resourceSpans\":[";
    for (const ResourceSpans& part : batch) {
        Buffer resource;
        Writer json(resource);
        WriteResource(json, *part.resource);
        out += out.back() == '[' ? "" : ",";
        out.append("{\"resource\":").append(resource.GetString(), resource.GetSize());
        out += ",\"scopeSpans\":[{\"scope\":{\"name\":\"tarn\"},\"spans\":[";
        for (const std::string_view span : part.spans) {
            out += out.back() == '[' ? "" : ",";
            out += span;
        }
        out += "]}]}";
    }
    return out + "]}";
}

PartialSuccess JsonEncoder::ReadAnswer(std::string_view body) const {
    PartialSuccess result;
    simdjson::dom::parser parser;
    simdjson::dom::object answer;
    if (parser.parse(body.data(), body.size()).get(answer) != simdjson::SUCCESS) {
        return result;
    }
    result.isUnderstood = true;
    simdjson::dom::object partial;
    if (answer["partialSuccess"].get(partial) != simdjson::SUCCESS) {
        return result;
    }
    // A number, or a text as 64-bit integers are.
    std::string_view text;
    if (partial["rejectedSpans"].get(text) == simdjson::SUCCESS) {
        std::from_chars(text.data(), text.data() + text.size(), result.rejectedSpans);
    } else if (partial["rejectedSpans"].get(result.rejectedSpans) != simdjson::SUCCESS) {
        result.rejectedSpans = 0;
    }
    if (partial["errorMessage"].get(text) == simdjson::SUCCESS) {
        result.message = text;
    }
    return result;
}

}  // namespace tarn::otlp
