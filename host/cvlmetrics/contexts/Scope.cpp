#include "cvlmetrics/Scope.h"

#include "Bus.h"
#include "ContextAnnouncement.h"
#include "EventCopy.h"
#include "ThreadContexts.h"

#include "cvlmetrics/host/Clock.h"
#include "cvlsys/host/IdBatch.h"
#include "cvlsys/host/ShortCopy.h"

#include <atomic>
#include <string_view>
#include <utility>

namespace Metrics {

namespace {

constinit std::atomic<uint64> s_idsSetAside{0};
[[gnu::tls_model("initial-exec")]] constinit thread_local cvlsys::IdBatch t_scopeIds;

/// The part of its events by which consumers know a scope.
struct ScopeIdentity {
    uint64 id;
    uint64 contextId;
    uint64 flags;

    EventView Event(MetricsEventType type,
                    const ValueView& name,
                    const ValueView& value = 0,
                    PairSpan pairs = {}) const noexcept {
        return {.id = id,
                .contextId = contextId,
                .flags = flags,
                .type = type,
                .name = name,
                .value = value,
                .pairs = pairs};
    }
};

}  // namespace

// A scope that was refused has an id and was never open. It says nothing, but what was added to its
// context for its sake is taken back.
void Scope::Close() noexcept {
    if (Bus::Admits(m_flags)) {
        EmitClose(ReadClock());
    }
}

void Scope::EmitClose(const ClockReading& now) noexcept {
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    if (m_open) {
        EventView event = scope.Event(MetricsEventType::CloseScope, Name());
        Bus::EmitFromDestructor(event, now);
    }
    for (const MetricsCloseScopeActions action : m_postCloseActions) {
        EventView event =
            scope.Event(MetricsEventType::PostCloseScope, Name(), static_cast<uint32>(action));
        Bus::EmitFromDestructor(event, now);
    }
}

// One moment: nothing of the host's runs from the first of these events to the last, except for
// consumers.
void Scope::Finish(std::initializer_list<FinalEvent> events) noexcept {
    if (!m_open) {
        return;
    }
    if (Bus::Admits(m_flags)) {
        Bus::InBatch([this, events]() noexcept {
            const ScopeIdentity scope{m_id, m_contextId, m_flags};
            const ClockReading now = ReadClock();
            EventView close = scope.Event(MetricsEventType::CloseScope, Name());
            Bus::EmitEnd(close, events.begin(), events.size(), now);
            m_open = false;
            EmitClose(now);  // what follows the end
        });
    }
    m_open = false;
    m_id = 0;
}

void Scope::OpenImpl(MetricsValue&& name) {
    Open(name, {});
}

void Scope::OpenImpl(MetricsValue&& name, NameValueList&& pairs) {
    const NameValueList taken = std::move(pairs);
    Open(name, taken);
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
    const bool isKnown = !isAdmitted || ContextAnnouncement::IsKnown(*context);
    if (!isKnown && context->isUnannounced.load(std::memory_order_relaxed)) {
        // What was added to the context for the scope's sake was not sent, either.
        Bus::CountRefusedScope();
        m_postCloseActions.clear();
        return;
    }
    const uint64 id = t_scopeIds.Next(s_idsSetAside);
    m_contextId = context->id;
    if (isAdmitted && (!isKnown || !Bus::HasRoomForScope())) {
        Bus::CountRefusedScope();
        m_id = id;
        return;
    }
    StoreName(name);
    if (isAdmitted) {
        const ScopeIdentity scope{id, m_contextId, m_flags};
        EventView event = scope.Event(MetricsEventType::OpenScope, name, 0, pairs);
        if (!Bus::TryToEmit(event)) {
            Bus::CountRefusedScope();
            m_id = id;
            return;
        }
        context->pendingAttributes.AreTaken();
    }
    // Only now: a scope whose beginning was lost sends no end either.
    m_id = id;
    m_open = true;
}

void Scope::StoreName(const ValueView& name) {
    if (!m_isNameValue && name.GetKind() == ValueView::Kind::Utf8 &&
        name.GetUtf8().size() <= shortNameSize) {
        const std::string_view text = name.GetUtf8();
        cvlsys::CopyShort(m_shortName, text.data(), text.size());
        m_shortNameLength = static_cast<unsigned char>(text.size());
    } else {
        Assign(NameValue(), name);
    }
}

ValueView Scope::Name() const noexcept {
    return m_isNameValue ? ValueView(m_name) : ValueView::OfUtf8({m_shortName, m_shortNameLength});
}

void Scope::EmitImpl(MetricsEventType type, const MetricsValue& name, MetricsValue&& value) const {
    Emit(type, name, value);
}

void Scope::Emit(MetricsEventType type, const ValueView& name, const ValueView& value) const {
    if (!m_open || !Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    EventView event = scope.Event(type, name, value);
    Bus::EmitAttribute(event);
}

void Scope::MultiEmitImpl(MetricsEventType type,
                          const MetricsValue& name,
                          NameValueList&& pairs) const {
    const NameValueList taken = std::move(pairs);
    MultiEmit(type, name, taken);
}

void Scope::MultiEmit(MetricsEventType type, const ValueView& name, PairSpan pairs) const {
    if (!m_open || !Bus::Admits(m_flags)) {
        return;
    }
    const ScopeIdentity scope{m_id, m_contextId, m_flags};
    EventView event = scope.Event(type, name, 0, pairs);
    Bus::EmitAttribute(event);
}

void Scope::SetPostScopeCloseEvents(std::list<MetricsCloseScopeActions>&& actions) {
    m_postCloseActions = std::move(actions);
}

}  // namespace Metrics
