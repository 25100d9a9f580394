#include "Bus.h"
#include "ContextAnnouncement.h"
#include "EventCopy.h"
#include "ThreadContexts.h"

#include "cvlmetrics/MetricsManager.h"

#include <utility>

namespace Metrics {

MetricsThreadContext& MetricsManager::GetThreadContext() noexcept {
    // It holds nothing: whichever thread asks it is told about itself.
    static constinit MetricsThreadContext threadContext;
    return threadContext;
}

uint64 MetricsThreadContext::GetMetricsContextId() const noexcept {
    return ThreadContexts::CurrentId();
}

bool TestBitsAndContext(uint64 bits) noexcept {
    return Bus::Admits(bits) && ThreadContexts::CurrentId() != 0;
}

namespace {

/// The current context, if anybody wants to hear of it.
ContextState* AdmittedContext(uint64 bits) {
    return Bus::Admits(bits) ? ThreadContexts::Current() : nullptr;
}

// An attribute of a context that nobody knows of is lost with it.
void LoseAttribute(ContextState& context) noexcept {
    context.hasLostAttributes.store(true, std::memory_order_relaxed);
    Bus::CountRefusedAttribute();
}

EventView AttributeEvent(MetricsEventType type, const MetricsValue& name, uint64 bits) noexcept {
    EventView event;
    event.contextId = ThreadContexts::CurrentId();
    event.flags = bits;
    event.name = name;
    event.type = type;
    return event;
}

}  // namespace

void AttributeImpl(MetricsValue&& name, MetricsValue&& value, uint64 bits) {
    ContextState* const context = AdmittedContext(bits);
    if (context == nullptr) {
        return;
    }
    if (!ContextAnnouncement::IsKnown(*context)) {
        return LoseAttribute(*context);
    }
    if (!context->pendingAttributes.TryToAdd(name, value)) {
        return;
    }
    EventView event = AttributeEvent(MetricsEventType::Attribute, name, bits);
    event.value = value;
    Bus::EmitAttribute(event);
}

void MultiAttributeImpl(MetricsValue&& name, NameValueList&& pairs, uint64 bits) {
    ContextState* const context = AdmittedContext(bits);
    if (context == nullptr) {
        return;
    }
    if (!ContextAnnouncement::IsKnown(*context) &&
        context->isUnannounced.load(std::memory_order_relaxed)) {
        return LoseAttribute(*context);
    }
    const NameValueList taken = std::move(pairs);
    EventView event = AttributeEvent(MetricsEventType::AttributePairs, name, bits);
    event.pairs = taken;
    // A list may be a layer, which the end of its scope takes back: refused, it would be missed. So
    // it comes before what else is still to be said of the context.
    Bus::EmitForSure(event);
}

}  // namespace Metrics
