#pragma once

#include "read/HarmlessJson.h"

#include <ostream>
#include <rapidjson/writer.h>
#include <string>
#include <string_view>

namespace tarnview {

/// Writes JSON to a stream, a member at a time, so that it does no harm to a terminal.
class Json {
public:
    explicit Json(std::ostream& out) : m_stream(out), m_writer(m_stream) {}

    void BeginObject() { m_writer.StartObject(); }

    void EndObject() { m_writer.EndObject(); }

    void BeginArray() { m_writer.StartArray(); }

    void EndArray() { m_writer.EndArray(); }

    void Key(std::string_view name) { m_writer.Key(name.data(), Length(name)); }

    void Text(std::string_view text) { m_writer.String(text.data(), Length(text)); }

    void Number(long long number) { m_writer.Int64(number); }

    void Number(double number) { m_writer.Double(number); }

    void Boolean(bool value) { m_writer.Bool(value); }

    void Nothing() { m_writer.Null(); }

    /// A text that is JSON.
    void Raw(std::string_view json) {
        m_writer.RawValue(json.data(), json.size(), rapidjson::kObjectType);
    }

    void Member(std::string_view name, std::string_view text) {
        Key(name);
        Text(text);
    }

    void Member(std::string_view name, long long number) {
        Key(name);
        Number(number);
    }

    /// Ends the text, so that another one can follow.
    void NextText() { m_writer.Reset(m_stream); }

    /// Ends the text and the line.
    void EndLine() {
        m_stream.Put('\n');
        NextText();
    }

private:
    static rapidjson::SizeType Length(std::string_view text) {
        return static_cast<rapidjson::SizeType>(text.size());
    }

    HarmlessJson m_stream;
    rapidjson::Writer<HarmlessJson> m_writer;
};

}  // namespace tarnview
