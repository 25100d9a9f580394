#include "ModelValue.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>

namespace model {
namespace {

using Metrics::MetricsValue;

struct Utf8Form {
    uint32 firstLead;
    uint32 lastLead;
    std::size_t length;
    uint32 leadBits;
    uint32 smallest;
};

constexpr Utf8Form utf8Forms[] = {{0x00, 0x7F, 1, 0x7F, 0x0},
                                  {0xC2, 0xDF, 2, 0x1F, 0x80},
                                  {0xE0, 0xEF, 3, 0x0F, 0x800},
                                  {0xF0, 0xF4, 4, 0x07, 0x10000}};

// A lead byte takes along as many of the trailing bytes that belong to it as there are. What is no
// character in its shortest form is one replacement character, and so is every byte that leads
// nothing.
std::u16string DecodeUtf8(const std::string& utf8) {
    std::u16string text;
    for (std::size_t i = 0; i < utf8.size();) {
        const auto byteAt = [&](std::size_t at) {
            return static_cast<uint32>(static_cast<unsigned char>(utf8[at]));
        };
        const uint32 lead = byteAt(i);
        const Utf8Form* form = nullptr;
        for (const Utf8Form& candidate : utf8Forms) {
            if (lead >= candidate.firstLead && lead <= candidate.lastLead) {
                form = &candidate;
            }
        }
        std::size_t taken = 1;
        uint32 codePoint = form ? lead & form->leadBits : 0;
        while (form && taken < form->length && i + taken < utf8.size() &&
               byteAt(i + taken) / 0x40 == 2) {
            codePoint = codePoint * 0x40 + byteAt(i + taken) % 0x40;
            ++taken;
        }
        i += taken;
        const bool isCharacter = form && taken == form->length && codePoint >= form->smallest &&
                                 codePoint <= 0x10FFFF &&
                                 !(codePoint >= 0xD800 && codePoint <= 0xDFFF);
        if (!isCharacter) {
            text += u'\uFFFD';
        } else if (codePoint >= 0x10000) {
            text += static_cast<char16_t>(0xD800 + ((codePoint - 0x10000) >> 10));
            text += static_cast<char16_t>(0xDC00 + ((codePoint - 0x10000) & 0x3FF));
        } else {
            text += static_cast<char16_t>(codePoint);
        }
    }
    return text;
}

std::u16string UpToNul(std::u16string text) {
    text.resize(std::min(text.find(u'\0'), text.size()));
    return text;
}

std::u16string Widen(const char* ascii) {
    return std::u16string(ascii, ascii + std::char_traits<char>::length(ascii));
}

template <class Number>
std::u16string Format(const char* format, Number value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    return Widen(buffer);
}

std::u16string Quoted(std::u16string text) {
    if (!text.empty() && text.front() == u'\'') {
        text.erase(std::remove(text.begin(), text.end(), u'\''), text.end());
    }
    if (text.find(u'"') == std::u16string::npos && text.find(u'\n') == std::u16string::npos) {
        return text;
    }
    std::u16string quoted = u"\"";
    for (const char16_t unit : text) {
        quoted += unit;
        if (unit == u'"') {
            quoted += unit;
        }
    }
    return quoted + u"\"";
}

}  // namespace

Value::Value(const MetricsValue& value) : type(value.type) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            integer = value.integer;
            break;
        case MetricsValue::MV_Bool:
            boolean = value.boolean;
            break;
        case MetricsValue::MV_Double:
            real = value.real;
            break;
        case MetricsValue::MV_Utf8String:
            text = value.utf8 ? UpToNul(DecodeUtf8(*value.utf8)) : u"";
            break;
        case MetricsValue::MV_Utf16String:
            text = value.utf16 ? UpToNul(*value.utf16) : u"";
            break;
        default:
            break;
    }
}

Value::Value(std::u16string_view wideText) : type(MetricsValue::MV_Utf16String), text(wideText) {}

Pairs PairsOf(const Metrics::NameValueList& list) {
    Pairs pairs;
    for (const auto& [name, value] : list) {
        pairs.emplace_back(Value(name), Value(value));
    }
    return pairs;
}

std::u16string TextOf(const Value& value) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return Decimal(value.integer);
        case MetricsValue::MV_Bool:
            return value.boolean ? u"true" : u"false";
        case MetricsValue::MV_Double:
            return Format("%.6g", value.real);
        case MetricsValue::MV_Utf8String:
        case MetricsValue::MV_Utf16String:
            return Quoted(value.text);
        default:
            return u"";
    }
}

std::u16string PlainTextOf(const Value& value) {
    if (!value.IsText()) {
        throw LogicError(
            "src/cpp/main/TarnMetricsUtils", 47, "Unexpected MetricsValue type", 0xFCE7C547);
    }
    return value.text;
}

int64 IntegerOf(const Value& value) {
    return value.type == MetricsValue::MV_Int64 ? value.integer : 0;
}

Node LiteralOf(const Value& value, UnknownKind unknownKind) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            return Node::Integer(value.integer);
        case MetricsValue::MV_Bool:
            return Node::Boolean(value.boolean);
        case MetricsValue::MV_Double:
            return Node::Real(value.real);
        default:
            break;
    }
    if (!value.IsText() && unknownKind == UnknownKind::IsZero) {
        return Node::Integer(0);
    }
    return Node::Text(PlainTextOf(value));
}

Raised LogicError(std::string file, int line, std::string text, uint32 code) {
    Raised raised;
    raised.kind = Raised::Kind::Logic;
    raised.file = std::move(file);
    raised.line = line;
    raised.text = std::move(text);
    raised.code = code;
    return raised;
}

bool StartsWith(std::u16string_view text, std::u16string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::u16string Decimal(int64 value) {
    return Format("%lld", static_cast<long long>(value));
}

std::u16string UnsignedDecimal(uint64 value) {
    return Format("%llu", static_cast<unsigned long long>(value));
}

std::u16string LowerHexadecimal(uint64 value) {
    return Format("%llx", static_cast<unsigned long long>(value));
}

}  // namespace model
