#include "cvlmetrics/Scope.h"

#include "Bus.h"
#include "ContextAnnouncement.h"
#include "EventView.h"
#include "ThreadContexts.h"

#include <atomic>
#include <utility>

namespace Metrics {

namespace {

constinit std::atomic<uint64> s_lastScopeId{0};

/// The part of its events by which consumers know a scope.
struct ScopeIdentity {
    uint64 id;
    uint64 contextId;
    uint64 flags;

    EventView Event(MetricsEventType type, const ValueView& name) const noexcept {
        EventView event;
        event.id = id;
        event.contextId = contextId;
        event.flags = flags;
        event.name = name;
        event.type = type;
        return event;
    }
};

}  // namespace

// A scope that was refused has an id and was never open. It says nothing, but what was added to its
// context for its sake is taken back.
void Scope::Close() noexcept {
    if (!Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    if (m_open) {
        EventView event = scope.Event(MetricsEventType::CloseScope, m_name);
        Bus::EmitFromDestructor(event);
    }
    for (const MetricsCloseScopeActions action : m_postCloseActions) {
        EventView event = scope.Event(MetricsEventType::PostCloseScope, m_name);
        event.value = static_cast<uint32>(action);
        Bus::EmitFromDestructor(event);
    }
}

void Scope::OpenImpl(MetricsValue&& name) {
    Open(name, {});
}

void Scope::OpenImpl(MetricsValue&& name, NameValueList&& pairs) {
    const NameValueList taken = std::move(pairs);
    Open(name, PairViews(taken).Span());
}

void Scope::Open(const ValueView& name, PairSpan pairs) {
    if (m_open) {
        return;
    }
    ContextState* const context = ThreadContexts::Current();
    if (context == nullptr) {
        m_postCloseActions.clear();
        return;
    }
    const bool isAdmitted = Bus::Admits(m_flags);
    if (isAdmitted && !ContextAnnouncement::IsKnown(*context)) {
        Bus::CountRefusedScope();
        m_postCloseActions.clear();
        return;
    }
    const uint64 id = s_lastScopeId.fetch_add(1, std::memory_order_relaxed) + 1;
    m_contextId = context->id;
    if (isAdmitted && !Bus::HasRoomForScope()) {
        Bus::CountRefusedScope();
        m_id = id;
        return;
    }
    Assign(m_name, name);
    if (isAdmitted) {
        const ScopeIdentity scope{id, m_contextId, m_flags};
        EventView event = scope.Event(MetricsEventType::OpenScope, m_name);
        event.pairs = pairs;
        Bus::Emit(event);
    }
    // Only now: a scope whose beginning was lost sends no end either.
    m_id = id;
    m_open = true;
}

void Scope::EmitImpl(MetricsEventType type, const MetricsValue& name, MetricsValue&& value) const {
    Emit(type, name, value);
}

void Scope::Emit(MetricsEventType type, const ValueView& name, const ValueView& value) const {
    if (!m_open || !Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    EventView event = scope.Event(type, name);
    event.value = value;
    Bus::Emit(event);
}

void Scope::MultiEmitImpl(MetricsEventType type,
                          const MetricsValue& name,
                          NameValueList&& pairs) const {
    const NameValueList taken = std::move(pairs);
    MultiEmit(type, name, PairViews(taken).Span());
}

void Scope::MultiEmit(MetricsEventType type, const ValueView& name, PairSpan pairs) const {
    if (!m_open || !Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    EventView event = scope.Event(type, name);
    event.pairs = pairs;
    Bus::Emit(event);
}

void Scope::SetPostScopeCloseEvents(std::list<MetricsCloseScopeActions>&& actions) {
    m_postCloseActions = std::move(actions);
}

}  // namespace Metrics
