#include "EventBuilder.h"

#include <utility>

namespace tarn::test {

using Metrics::MetricsEventType;
using Metrics::MetricsValue;
using Metrics::NameValueList;

EventBuilder::EventBuilder(MetricsEventType type, uint64 id, uint64 contextId, uint64 flags) {
    m_event.type = type;
    m_event.id = id;
    m_event.contextId = contextId;
    m_event.flags = flags;
}

EventBuilder EventBuilder::CreateContext(uint64 id, uint64 parent) {
    return {MetricsEventType::CreateContext, id, parent, 0};
}

EventBuilder EventBuilder::OpenContext(uint64 id) {
    return {MetricsEventType::OpenContext, id, 0, 0};
}

EventBuilder EventBuilder::CloseContext(uint64 id) {
    return {MetricsEventType::CloseContext, id, 0, 0};
}

EventBuilder EventBuilder::OpenScope(uint64 id, const MetricsValue& name) {
    EventBuilder builder(MetricsEventType::OpenScope, id, 0, Metrics::flagTracing);
    builder.m_event.name = name;
    return builder;
}

EventBuilder EventBuilder::CloseScope(uint64 id, const MetricsValue& name) {
    EventBuilder builder(MetricsEventType::CloseScope, id, 0, Metrics::flagTracing);
    builder.m_event.name = name;
    return builder;
}

EventBuilder EventBuilder::ScopeValue(uint64 id,
                                      const MetricsValue& name,
                                      const MetricsValue& value) {
    EventBuilder builder(MetricsEventType::NameValue, id, 0, Metrics::flagTracing);
    builder.m_event.name = name;
    builder.m_event.value = value;
    return builder;
}

EventBuilder EventBuilder::ScopePairs(uint64 id,
                                      const MetricsValue& listName,
                                      const NameValueList& pairs) {
    EventBuilder builder(MetricsEventType::NameValuePairs, id, 0, Metrics::flagTracing);
    builder.m_event.name = listName;
    builder.m_event.pairs = pairs;
    return builder;
}

EventBuilder EventBuilder::Supplement(uint64 id, const NameValueList& pairs) {
    EventBuilder builder(MetricsEventType::SupplementalPairs, id, 0, Metrics::flagTracing);
    builder.m_event.name = MetricsValue("multiNVPs");
    builder.m_event.pairs = pairs;
    return builder;
}

EventBuilder EventBuilder::ContextValue(uint64 contextId,
                                        const MetricsValue& name,
                                        const MetricsValue& value) {
    EventBuilder builder(MetricsEventType::Attribute, 0, contextId, Metrics::flagTracing);
    builder.m_event.name = name;
    builder.m_event.value = value;
    return builder;
}

EventBuilder EventBuilder::ContextPairs(uint64 contextId,
                                        const MetricsValue& listName,
                                        const NameValueList& pairs) {
    EventBuilder builder(MetricsEventType::AttributePairs, 0, contextId, Metrics::flagTracing);
    builder.m_event.name = listName;
    builder.m_event.pairs = pairs;
    return builder;
}

EventBuilder EventBuilder::PostClose(uint64 contextId, const MetricsValue& action) {
    EventBuilder builder(MetricsEventType::PostCloseScope, 0, contextId, Metrics::flagTracing);
    builder.m_event.value = action;
    return builder;
}

EventBuilder& EventBuilder::OfType(uint32 type) {
    m_event.type = static_cast<MetricsEventType>(type);
    return *this;
}

EventBuilder& EventBuilder::In(uint64 contextId) {
    m_event.contextId = contextId;
    return *this;
}

EventBuilder& EventBuilder::With(NameValueList pairs) {
    m_event.pairs = std::move(pairs);
    return *this;
}

EventBuilder& EventBuilder::Flags(uint64 flags) {
    m_event.flags = flags;
    return *this;
}

EventBuilder& EventBuilder::Transparent() {
    m_event.flags |= Metrics::flagTransparent;
    return *this;
}

EventBuilder& EventBuilder::Untracked() {
    m_event.flags |= Metrics::flagUntracked;
    return *this;
}

EventBuilder& EventBuilder::FromHost() {
    m_event.flags = 0;
    return *this;
}

EventBuilder& EventBuilder::At(int64 nanoseconds) {
    m_event.time = nanoseconds;
    return *this;
}

EventBuilder& EventBuilder::AtMilliseconds(int64 milliseconds) {
    return At(milliseconds * 1'000'000);
}

EventBuilder& EventBuilder::Wall(uint64 seconds, uint32 micros) {
    m_event.wallSeconds = seconds;
    m_event.wallMicros = micros;
    return *this;
}

}  // namespace tarn::test
