#include "LogValue.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <ostream>
#include <string_view>

namespace tarn::test {

namespace {

std::string Quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            quoted += '\\';
        }
        if (character == '\n') {
            quoted += "\\n";
        } else if (character == '\0') {
            quoted += "\\0";
        } else {
            quoted += character;
        }
    }
    return quoted + '"';
}

// UTF-8 has no place for half of a surrogate pair, which must not look like a replacement
// character.
std::string Quoted(const TString& text) {
    const auto isHighHalf = [](char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; };
    const auto isLowHalf = [](char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; };
    const std::u16string_view units = text.View();
    std::string quoted = "\"";
    for (std::size_t i = 0; i < units.size(); ++i) {
        const bool isPair = isHighHalf(units[i]) && i + 1 < units.size() && isLowHalf(units[i + 1]);
        if (!isPair && (isHighHalf(units[i]) || isLowHalf(units[i]))) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04X", static_cast<unsigned>(units[i]));
            quoted += escape.data();
            continue;
        }
        const std::size_t length = isPair ? 2 : 1;
        const std::string character = Quoted(TString(units.substr(i, length)).ToUtf8());
        quoted += character.substr(1, character.size() - 2);
        i += length - 1;
    }
    return quoted + '"';
}

std::string OfDouble(double value) {
    std::array<char, 64> buffer{};
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
    std::string text(buffer.data(), end);
    if (text.find_first_of(".en") == std::string::npos) {
        text += ".0";
    }
    return text;
}

std::string OfLiteral(const TLog::Literal& literal) {
    switch (literal.GetType()) {
        case TLog::LiteralType::String:
            return Quoted(literal.GetString());
        case TLog::LiteralType::Integer:
            return std::to_string(literal.GetInt());
        case TLog::LiteralType::Double:
            return OfDouble(literal.GetDouble());
        case TLog::LiteralType::FixedDouble:
            return "fixed " + OfDouble(literal.GetDouble());
        case TLog::LiteralType::Boolean:
            return literal.GetBool() ? "true" : "false";
        case TLog::LiteralType::Null:
            return "null";
    }
    return "unknown literal";
}

}  // namespace

LogValue::LogValue(const char* text) : m_text(Quoted(text)) {}

LogValue::LogValue(const std::string& text) : m_text(Quoted(text)) {}

LogValue::LogValue(const TString& text) : m_text(Quoted(text)) {}

LogValue::LogValue(double value) : m_text(OfDouble(value)) {}

LogValue LogValue::Object(std::vector<Field> fields) {
    std::sort(fields.begin(), fields.end(), [](const Field& a, const Field& b) {
        return a.first < b.first;
    });
    std::string text = "{";
    for (const Field& field : fields) {
        text += (text.size() > 1 ? ", " : "") + Quoted(field.first) + ": " + field.second.m_text;
    }
    return {Verbatim{}, text + "}"};
}

LogValue LogValue::Array(const std::vector<LogValue>& items) {
    std::string text = "[";
    for (const LogValue& item : items) {
        text += (text.size() > 1 ? ", " : "") + item.m_text;
    }
    return {Verbatim{}, text + "]"};
}

LogValue LogValue::Of(const TLog::Value* value) {
    if (value == nullptr) {
        return {Verbatim{}, "missing"};
    }
    switch (value->GetKind()) {
        case TLog::ValueKind::Literal:
            return {Verbatim{}, OfLiteral(static_cast<const TLog::Literal&>(*value))};
        case TLog::ValueKind::Object: {
            std::vector<Field> fields;
            for (const auto& [name, held] : static_cast<const TLog::Object&>(*value).GetFields()) {
                fields.emplace_back(name.ToUtf8(), Of(held.get()));
            }
            return Object(std::move(fields));
        }
        case TLog::ValueKind::Array: {
            std::vector<LogValue> items;
            for (const auto& item : static_cast<const TLog::Array&>(*value).GetItems()) {
                items.push_back(Of(item.get()));
            }
            return Array(items);
        }
    }
    return {Verbatim{}, "unknown value"};
}

void PrintTo(const LogValue& value, std::ostream* out) {
    *out << value.m_text;
}

}  // namespace tarn::test
