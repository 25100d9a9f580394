#include "MetricsText.h"

#include <sstream>

namespace tarn::test {

std::string Wide(const TString& text) {
    return "L\"" + text.ToUtf8() + "\"";
}

std::string Text(const Metrics::MetricsValue& value) {
    std::ostringstream out;
    switch (value.type) {
        case Metrics::MetricsValue::MV_Int64:
            out << value.integer;
            break;
        case Metrics::MetricsValue::MV_Bool:
            out << (value.boolean ? "true" : "false");
            break;
        case Metrics::MetricsValue::MV_Double:
            out << std::showpoint << value.real;
            break;
        case Metrics::MetricsValue::MV_Utf8String:
            out << (value.utf8 ? '"' + *value.utf8 + '"' : "narrow null");
            break;
        case Metrics::MetricsValue::MV_Utf16String:
            out << (value.utf16 ? Wide(TString(std::u16string_view(*value.utf16))) : "wide null");
            break;
        default:
            out << "kind " << value.type;
    }
    return out.str();
}

std::string Text(const Metrics::NameValueList& pairs) {
    std::string text = "{";
    for (const auto& [name, value] : pairs) {
        if (text.size() > 1) {
            text += ", ";
        }
        text += Text(name) + "=" + Text(value);
    }
    return text + "}";
}

std::string Text(const Metrics::MetricsEvent& event) {
    using Metrics::MetricsEventType;
    switch (event.type) {
        case MetricsEventType::CreateContext:
            return "CreateContext";
        case MetricsEventType::OpenContext:
            return "OpenContext";
        case MetricsEventType::CloseContext:
            return "CloseContext";
        case MetricsEventType::OpenScope:
            return "OpenScope " + Text(event.name) + " " + Text(event.pairs);
        case MetricsEventType::CloseScope:
            return "CloseScope " + Text(event.name);
        case MetricsEventType::NameValue:
            return "NameValue " + Text(event.name) + "=" + Text(event.value);
        case MetricsEventType::Attribute:
            return "Attribute " + Text(event.name) + "=" + Text(event.value);
        case MetricsEventType::NameValuePairs:
            return "NameValuePairs " + Text(event.name) + " " + Text(event.pairs);
        case MetricsEventType::AttributePairs:
            return "AttributePairs " + Text(event.name) + " " + Text(event.pairs);
        case MetricsEventType::SupplementalPairs:
            return "SupplementalPairs " + Text(event.name) + " " + Text(event.pairs);
        case MetricsEventType::PostCloseScope:
            return "PostCloseScope " + Text(event.name) + " action " + Text(event.value);
    }
    return "type " + std::to_string(static_cast<uint32>(event.type));
}

}  // namespace tarn::test
