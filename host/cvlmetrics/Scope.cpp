#include "cvlmetrics/Scope.h"

#include "Bus.h"
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

Scope::~Scope() {
    if (!m_open || !Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    Bus::EmitFromDestructor(scope.Event(MetricsEventType::CloseScope, m_name));
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
    m_contextId = ThreadContexts::CurrentId();
    if (m_contextId == 0) {
        m_postCloseActions.clear();
        return;
    }
    m_id = s_lastScopeId.fetch_add(1, std::memory_order_relaxed) + 1;
    m_name = std::move(name);
    if (Bus::Admits(m_flags)) {
        const ScopeIdentity scope{m_id, m_contextId, m_flags};
        MetricsEvent event = scope.Event(MetricsEventType::OpenScope, m_name);
        event.pairs = std::move(pairs);
        Bus::Emit(std::move(event));
    }
    // Only now: a scope whose beginning was lost sends no end either.
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
