#include "cvlmetrics/Context.h"

#include "Bus.h"
#include "ContextState.h"
#include "ThreadContexts.h"

#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsValue.h"
#include "cvlsys/TSystem.h"

#include <atomic>
#include <utility>

namespace Metrics {

// A name of its own for what the declaration keeps to itself.
struct Context::State : ContextState {
    using ContextState::ContextState;
};

namespace {

constinit std::atomic<uint64> s_lastContextId{0};

MetricsEvent ContextEvent(MetricsEventType type, uint64 id, uint64 parentId, uint64 flags) {
    MetricsEvent event;
    event.id = id;
    event.contextId = parentId;
    event.flags = flags;
    event.type = type;
    return event;
}

MetricsEvent ContextEvent(MetricsEventType type, const ContextState& context) {
    return ContextEvent(type, context.id, context.parentId, context.flags);
}

const MetricsValue& ThreadAttributeName() {
    static const MetricsValue& name = *new const MetricsValue(u"tid");
    return name;
}

// Tells the consumers on which thread the context's scopes run from now on. Those that want scopes
// of traced work only are to learn it as well, hence the flag.
void AnnounceThread(ContextState& context, uint64 threadId) {
    if (!Bus::Admits(flagTracing)) {
        return;
    }
    MetricsEvent event;
    event.contextId = context.id;
    event.flags = flagTracing;
    event.name = ThreadAttributeName();
    event.value = threadId;
    event.type = MetricsEventType::Attribute;
    Bus::Emit(std::move(event));
    context.announcedThread.store(threadId, std::memory_order_relaxed);
}

}  // namespace

uint64 Context::Create(bool isRoot) {
    const uint64 id = s_lastContextId.fetch_add(1, std::memory_order_relaxed) + 1;
    const uint64 parentId = isRoot ? 0 : ThreadContexts::CurrentId();
    if (parentId != 0) {
        Bus::KeepParent(id, parentId);
    }
    if (Bus::AdmitsContextEvents()) {
        Bus::Emit(ContextEvent(MetricsEventType::CreateContext, id, parentId, 0));
    }
    return id;
}

Context::Context(uint64 flags, uint64 id)
    : m_state(std::make_shared<State>(id, flags, Bus::TakeParent(id))) {}

Context::~Context() {
    // First of all it is no longer current: what a listener opens on hearing of the end belongs
    // elsewhere.
    m_state->ended.store(true, std::memory_order_relaxed);
    ThreadContexts::Remove(*m_state);
    if (Bus::AdmitsContextEvents()) {
        Bus::EmitFromDestructor(ContextEvent(MetricsEventType::CloseContext, *m_state));
    }
}

void Context::OpenScope() {
    if (Bus::AdmitsContextEvents()) {
        Bus::Emit(ContextEvent(MetricsEventType::OpenContext, *m_state));
    }
    AnnounceThread(*m_state, TSystem::ThreadID());
    ThreadContexts::Push(m_state);
}

void Context::AttachToThread() {
    const uint64 threadId = TSystem::ThreadID();
    if (m_state->announcedThread.load(std::memory_order_relaxed) != threadId) {
        AnnounceThread(*m_state, threadId);
    }
    ThreadContexts::Push(m_state);
}

void Context::DetachFromThread() {
    ThreadContexts::Remove(*m_state);
}

uint64 Context::GetId() const noexcept {
    return m_state->id;
}

void Context_deleter::operator()(Context* context) const noexcept {
    delete context;
}

}  // namespace Metrics
