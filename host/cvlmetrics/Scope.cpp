#include "cvlmetrics/Scope.h"

#include "Bus.h"
#include "ContextAnnouncement.h"
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

    MetricsEvent Event(MetricsEventType type, const MetricsValue& name) const noexcept {
        MetricsEvent event;
        event.id = id;
        event.contextId = contextId;
        event.flags = flags;
        event.name = name;
        event.type = type;
        return event;
    }
};

}  // namespace

Scope::Scope(uint64 flags) noexcept : m_flags(flags) {}

// A scope that was refused has an id and was never open. It says nothing, but what was added to its
// context for its sake is taken back.
Scope::~Scope() {
    const bool wasRefused = !m_open && m_id != 0;
    if ((!m_open && !wasRefused) || !Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    if (m_open) {
        Bus::EmitFromDestructor(scope.Event(MetricsEventType::CloseScope, m_name));
    }
    for (const MetricsCloseScopeActions action : m_postCloseActions) {
        MetricsEvent event = scope.Event(MetricsEventType::PostCloseScope, m_name);
        event.value = static_cast<uint32>(action);
        Bus::EmitFromDestructor(std::move(event));
    }
}

void Scope::OpenImpl(MetricsValue&& name) {
    OpenImpl(std::move(name), {});
}

void Scope::OpenImpl(MetricsValue&& name, NameValueList&& pairs) {
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
    m_name = std::move(name);
    if (isAdmitted) {
        const ScopeIdentity scope{id, m_contextId, m_flags};
        MetricsEvent event = scope.Event(MetricsEventType::OpenScope, m_name);
        event.pairs = std::move(pairs);
        Bus::Emit(std::move(event));
    }
    // Only now: a scope whose beginning was lost sends no end either.
    m_id = id;
    m_open = true;
}

void Scope::EmitImpl(MetricsEventType type, const MetricsValue& name, MetricsValue&& value) const {
    if (!m_open || !Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    MetricsEvent event = scope.Event(type, name);
    event.value = std::move(value);
    Bus::Emit(std::move(event));
}

void Scope::MultiEmitImpl(MetricsEventType type,
                          const MetricsValue& name,
                          NameValueList&& pairs) const {
    if (!m_open || !Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    MetricsEvent event = scope.Event(type, name);
    event.pairs = std::move(pairs);
    Bus::Emit(std::move(event));
}

void Scope::SetPostScopeCloseEvents(std::list<MetricsCloseScopeActions>&& actions) {
    m_postCloseActions = std::move(actions);
}

}  // namespace Metrics
