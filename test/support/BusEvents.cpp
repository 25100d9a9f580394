#include "BusEvents.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>

namespace Metrics {

namespace {

template <class Text>
bool AreEqual(const std::shared_ptr<const Text>& a, const std::shared_ptr<const Text>& b) {
    return a == nullptr || b == nullptr ? a == b : *a == *b;
}

template <class Unit>
std::string Quoted(const std::basic_string<Unit>& text) {
    std::string quoted = "\"";
    for (const Unit unit : text) {
        const auto number = static_cast<unsigned>(std::make_unsigned_t<Unit>(unit));
        if (unit == Unit('"') || unit == Unit('\\')) {
            quoted += '\\';
        }
        if (number >= 0x20 && number < 0x7F) {
            quoted += static_cast<char>(number);
        } else {
            std::array<char, 16> escape{};
            std::snprintf(
                escape.data(), escape.size(), sizeof(Unit) == 1 ? "\\x%02X" : "\\u%04X", number);
            quoted += escape.data();
        }
    }
    return quoted + '"';
}

std::string OfReal(double value) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.17g", value);
    const std::string plain = text.data();
    return plain.find_first_of(".en") == std::string::npos ? plain + ".0" : plain;
}

}  // namespace

bool operator==(const MetricsValue& a, const MetricsValue& b) {
    if (a.type != b.type) {
        return false;
    }
    switch (a.type) {
        case MetricsValue::MV_Int64:
            return a.integer == b.integer;
        case MetricsValue::MV_Bool:
            return a.boolean == b.boolean;
        case MetricsValue::MV_Double:
            return std::bit_cast<uint64>(a.real) == std::bit_cast<uint64>(b.real);
        case MetricsValue::MV_Utf8String:
            return AreEqual(a.utf8, b.utf8);
        case MetricsValue::MV_Utf16String:
            return AreEqual(a.utf16, b.utf16);
        default:
            return true;
    }
}

void PrintTo(const MetricsValue& value, std::ostream* out) {
    switch (value.type) {
        case MetricsValue::MV_Int64:
            *out << value.integer;
            break;
        case MetricsValue::MV_Bool:
            *out << (value.boolean ? "true" : "false");
            break;
        case MetricsValue::MV_Double:
            *out << OfReal(value.real);
            break;
        case MetricsValue::MV_Utf8String:
            *out << (value.utf8 != nullptr ? Quoted(*value.utf8) : "no narrow text");
            break;
        case MetricsValue::MV_Utf16String:
            *out << (value.utf16 != nullptr ? "L" + Quoted(*value.utf16) : "no wide text");
            break;
        default:
            *out << "kind " << value.type;
    }
}

}  // namespace Metrics

namespace tarn::test {

using Metrics::MetricsEvent;
using Metrics::MetricsEventType;
using Metrics::MetricsValue;
using Metrics::NameValueList;

namespace {

std::string NameOf(MetricsEventType type) {
    constexpr std::array names{"CreateContext",
                               "OpenContext",
                               "CloseContext",
                               "OpenScope",
                               "CloseScope",
                               "NameValue",
                               "Attribute",
                               "NameValuePairs",
                               "AttributePairs",
                               "SupplementalPairs",
                               "PostCloseScope"};
    const auto number = static_cast<uint32>(type);
    const auto first = static_cast<uint32>(MetricsEventType::CreateContext);
    return number >= first && number - first < names.size() ? names[number - first]
                                                            : "type " + std::to_string(number);
}

bool IsEventOf(const MetricsEvent& event, MetricsEventType type, const char* scopeName) {
    return event.type == type && event.name == MetricsValue(scopeName);
}

}  // namespace

void PrintTo(const EventContent& content, std::ostream* out) {
    const MetricsValue nothing;
    *out << NameOf(content.type);
    if (!(content.name == nothing)) {
        *out << ' ';
        PrintTo(content.name, out);
    }
    if (!(content.value == nothing)) {
        *out << " = ";
        PrintTo(content.value, out);
    }
    const char* separator = " {";
    for (const auto& [name, value] : content.pairs) {
        *out << separator;
        PrintTo(name, out);
        *out << '=';
        PrintTo(value, out);
        separator = ", ";
    }
    *out << (content.pairs.empty() ? "" : "}");
}

EventContent ContentOf(const MetricsEvent& event) {
    return {event.type, event.name, event.value, event.pairs};
}

EventContent CreatesContext() {
    return {MetricsEventType::CreateContext, {}, {}, {}};
}

EventContent OpensContext() {
    return {MetricsEventType::OpenContext, {}, {}, {}};
}

EventContent ClosesContext() {
    return {MetricsEventType::CloseContext, {}, {}, {}};
}

EventContent Opens(const MetricsValue& scopeName, const NameValueList& pairs) {
    return {MetricsEventType::OpenScope, scopeName, {}, pairs};
}

EventContent Closes(const MetricsValue& scopeName) {
    return {MetricsEventType::CloseScope, scopeName, {}, {}};
}

EventContent PostCloses(const MetricsValue& scopeName, const MetricsValue& action) {
    return {MetricsEventType::PostCloseScope, scopeName, action, {}};
}

EventContent SendsValue(const MetricsValue& name, const MetricsValue& value) {
    return {MetricsEventType::NameValue, name, value, {}};
}

EventContent SendsPairs(const MetricsValue& listName, const NameValueList& pairs) {
    return {MetricsEventType::NameValuePairs, listName, {}, pairs};
}

EventContent SendsSupplement(const MetricsValue& listName, const NameValueList& pairs) {
    return {MetricsEventType::SupplementalPairs, listName, {}, pairs};
}

EventContent SendsContextValue(const MetricsValue& name, const MetricsValue& value) {
    return {MetricsEventType::Attribute, name, value, {}};
}

EventContent SendsContextPairs(const MetricsValue& listName, const NameValueList& pairs) {
    return {MetricsEventType::AttributePairs, listName, {}, pairs};
}

EventContent AnnouncesThread(uint64 threadId) {
    return SendsContextValue(u"tid", threadId);
}

testing::Matcher<const EventContent&> IsOfType(MetricsEventType type) {
    return testing::Field("type", &EventContent::type, type);
}

NameValueList Joined(NameValueList first, const NameValueList& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

bool IsOpeningOf(const MetricsEvent& event, const char* scopeName) {
    return IsEventOf(event, MetricsEventType::OpenScope, scopeName);
}

bool IsClosingOf(const MetricsEvent& event, const char* scopeName) {
    return IsEventOf(event, MetricsEventType::CloseScope, scopeName);
}

}  // namespace tarn::test
