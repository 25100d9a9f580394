#include "MetricsTestSupport.h"

#include <algorithm>
#include <iterator>

namespace MetricsTest {

namespace {

std::string ListText(const Metrics::NameValueList& pairs) {
    std::string text = "(";
    for (const auto& [name, value] : pairs) {
        text += (text.size() > 1 ? ", " : "") + Text(name) + "=" + Text(value);
    }
    return text + ")";
}

}  // namespace

std::string Text(const Metrics::MetricsValue& value) {
    switch (value.type) {
        case Metrics::MetricsValue::MV_Int64:
            return std::to_string(value.integer);
        case Metrics::MetricsValue::MV_Bool:
            return value.boolean ? "true" : "false";
        case Metrics::MetricsValue::MV_Double:
            return std::to_string(value.real);
        case Metrics::MetricsValue::MV_Utf8String:
            return *value.utf8;
        case Metrics::MetricsValue::MV_Utf16String:
            return TString(value.utf16).ToUtf8();
        default:
            return "?";
    }
}

std::string Describe(const Metrics::MetricsEvent& event) {
    using Metrics::MetricsEventType;
    const std::string name = Text(event.name);
    switch (event.type) {
        case MetricsEventType::CreateContext:
            return "create context";
        case MetricsEventType::OpenContext:
            return "open context";
        case MetricsEventType::CloseContext:
            return "close context";
        case MetricsEventType::OpenScope:
            return "open " + name + (event.pairs.empty() ? "" : ListText(event.pairs));
        case MetricsEventType::CloseScope:
            return "close " + name;
        case MetricsEventType::NameValue:
            return "value " + name + "=" + Text(event.value);
        case MetricsEventType::Attribute:
            return "attribute " + name + "=" + Text(event.value);
        case MetricsEventType::NameValuePairs:
            return "list " + name + ListText(event.pairs);
        case MetricsEventType::AttributePairs:
            return "attributes " + name + ListText(event.pairs);
        case MetricsEventType::SupplementalPairs:
            return "supplement " + name + ListText(event.pairs);
        case MetricsEventType::PostCloseScope:
            return "post-close " + name + " " + Text(event.value);
    }
    return "event of type " + std::to_string(static_cast<uint32>(event.type));
}

void RecordingListener::OnMetricsEvent(const Metrics::MetricsEvent& event) {
    events.push_back(event);
    if (reaction) {
        reaction(event);
    }
}

std::vector<std::string> RecordingListener::Descriptions() const {
    std::vector<std::string> descriptions;
    std::transform(events.begin(), events.end(), std::back_inserter(descriptions), Describe);
    return descriptions;
}

std::vector<std::string> RecordingListener::DescriptionsOf(uint64 contextId) const {
    std::vector<std::string> descriptions;
    for (const Metrics::MetricsEvent& event : events) {
        const bool isContextEvent = event.type >= Metrics::MetricsEventType::CreateContext &&
                                    event.type <= Metrics::MetricsEventType::CloseContext;
        if ((isContextEvent ? event.id : event.contextId) == contextId) {
            descriptions.push_back(Describe(event));
        }
    }
    return descriptions;
}

}  // namespace MetricsTest
