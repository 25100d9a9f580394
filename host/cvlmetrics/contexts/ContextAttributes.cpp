#include "Bus.h"
#include "ContextAnnouncement.h"
#include "EventView.h"
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

// An attribute of a context that nobody knows of is lost with it.
bool IsCurrentContextToldOf(uint64 bits) {
    ContextState* const context = ThreadContexts::Current();
    if (context == nullptr || !Bus::Admits(bits)) {
        return false;
    }
    if (!ContextAnnouncement::IsKnown(*context)) {
        context->hasLostAttributes.store(true, std::memory_order_relaxed);
        return false;
    }
    return true;
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
    if (!IsCurrentContextToldOf(bits)) {
        return;
    }
    if (!ThreadContexts::Current()->pendingAttributes.TryToAdd(name, value)) {
        return;
    }
    EventView event = AttributeEvent(MetricsEventType::Attribute, name, bits);
    event.value = value;
    Bus::EmitAttribute(event);
}

void MultiAttributeImpl(MetricsValue&& name, NameValueList&& pairs, uint64 bits) {
    if (!IsCurrentContextToldOf(bits)) {
        return;
    }
    const NameValueList taken = std::move(pairs);
    const PairViews views(taken);
    EventView event = AttributeEvent(MetricsEventType::AttributePairs, name, bits);
    event.pairs = views.Span();
    // A list may be a layer, which the end of its scope takes back: refused, it would be missed.
    Bus::EmitForSure(event);
}

}  // namespace Metrics
