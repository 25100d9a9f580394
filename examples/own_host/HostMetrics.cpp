// A custom host, upper layer: an event bus that delivers on the emitting thread, one event at
// a time. Listeners that are subscribed twice, and attributes of a context that wait for a scope,
// are for a larger host.
#include "Host.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/Scope.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Metrics {

namespace {

/// One listener is enough for this host.
struct Bus {
    std::recursive_mutex mutex;
    RefCntPtr<IMetricsListener> listener;
    std::deque<MetricsEvent> waiting;
    bool isDelivering = false;
    std::atomic<uint64> bits{0};
    std::atomic<bool> everything{false};
};

Bus& GetBus() {
    static Bus& bus = *new Bus;
    return bus;
}

void DeliverFirst(Bus& bus) {
    const MetricsEvent& event = bus.waiting.front();
    const bool isOfContext = event.type <= MetricsEventType::CloseContext;
    const RefCntPtr<IMetricsListener> listener = bus.listener;
    try {
        if (listener && (isOfContext || TestBits(event.flags))) {
            listener->OnMetricsEvent(event);
        }
    } catch (...) {
        TLog::Logger::Get().LogMessage(TLog::Warn, u"A listener has failed.");
    }
    bus.waiting.pop_front();
}

/// The scope or context that an event is about.
struct Source {
    uint64 id = 0;
    uint64 contextId = 0;
    uint64 flags = 0;
};

// What a listener emits waits until its call has returned.
void Send(MetricsEventType type,
          Source source,
          MetricsValue name = {},
          MetricsValue value = {},
          NameValueList pairs = {}) {
    const own_host::Moment now = own_host::Now();
    Bus& bus = GetBus();
    const std::lock_guard lock(bus.mutex);
    bus.waiting.push_back({source.id,
                           source.contextId,
                           source.flags,
                           now.nanoseconds,
                           static_cast<uint64>(now.wallMicroseconds / 1'000'000),
                           static_cast<uint32>(now.wallMicroseconds % 1'000'000),
                           std::move(name),
                           std::move(value),
                           std::move(pairs),
                           type});
    if (!std::exchange(bus.isDelivering, true)) {
        while (!bus.waiting.empty()) {
            DeliverFirst(bus);
        }
        bus.isDelivering = false;
    }
}

// For destructors: an event for which there is no memory is lost.
void TryToSend(MetricsEventType type,
               Source source,
               const MetricsValue& name = {},
               const MetricsValue& value = {}) noexcept {
    try {
        Send(type, source, name, value);
    } catch (...) {
        return;
    }
}

uint64 NextId() {
    static std::atomic<uint64> last{0};
    return ++last;
}

/// A context, as long as somebody knows it. One that has ended leaves a thread's stack when it
/// comes to its top.
struct ContextRecord {
    uint64 id = 0;
    uint64 flags = 0;
    std::atomic<bool> hasEnded{false};
    std::atomic<uint64> announcedThread{0};
};

thread_local std::vector<std::shared_ptr<ContextRecord>> t_contexts;

uint64 CurrentContext() noexcept {
    while (!t_contexts.empty() && t_contexts.back()->hasEnded) {
        t_contexts.pop_back();
    }
    return t_contexts.empty() ? 0 : t_contexts.back()->id;
}

}  // namespace

IMetricsListener::~IMetricsListener() = default;

uint64 MetricsThreadContext::GetMetricsContextId() const noexcept {
    return CurrentContext();
}

MetricsManager& MetricsManager::GetInstance() noexcept {
    static MetricsManager& manager = *new MetricsManager;
    return manager;
}

MetricsThreadContext& MetricsManager::GetThreadContext() noexcept {
    static MetricsThreadContext context;
    return context;
}

bool MetricsManager::AddConsumer(const RefCntPtr<IMetricsListener>& listener,
                                 uint64 bits,
                                 bool flag) {
    Bus& bus = GetBus();
    const std::lock_guard lock(bus.mutex);
    bus.listener = listener;
    bus.bits = bits;
    bus.everything = flag;
    m_consumerCount = listener ? 1 : 0;
    return m_consumerCount != 0;
}

bool MetricsManager::RemoveConsumer(const RefCntPtr<IMetricsListener>& listener) {
    const std::lock_guard lock(GetBus().mutex);
    return listener == GetBus().listener && !AddConsumer({}, 0, false);
}

bool TestBits(uint64 bits) noexcept {
    return (bits & GetBus().bits) != 0 || GetBus().everything;
}

bool TestBitsAndContext(uint64 bits) noexcept {
    return TestBits(bits) && CurrentContext() != 0;
}

void AttributeImpl(MetricsValue&& name, MetricsValue&& value, uint64 bits) {
    if (const uint64 id = CurrentContext(); id != 0) {
        Send(MetricsEventType::Attribute, {0, id, bits}, std::move(name), std::move(value));
    }
}

void MultiAttributeImpl(MetricsValue&& name, NameValueList&& pairs, uint64 bits) {
    if (const uint64 id = CurrentContext(); id != 0) {
        Send(
            MetricsEventType::AttributePairs, {0, id, bits}, std::move(name), {}, std::move(pairs));
    }
}

struct Context::State : ContextRecord {};

uint64 Context::Create(bool isRoot) {
    const uint64 id = NextId();
    Send(MetricsEventType::CreateContext, {id, isRoot ? 0 : CurrentContext()});
    return id;
}

Context::Context(uint64 flags, uint64 id) : m_state(std::make_shared<State>()) {
    m_state->id = id;
    m_state->flags = flags;
}

Context::~Context() {
    TryToSend(MetricsEventType::CloseContext, {m_state->id, 0, m_state->flags});
    m_state->hasEnded = true;
}

void Context::OpenScope() {
    Send(MetricsEventType::OpenContext, {m_state->id, 0, m_state->flags});
    AttachToThread();
}

void Context::AttachToThread() {
    t_contexts.push_back(m_state);
    // Tells which thread the scopes to come run on: without it, the time of every child would count
    // as that of another thread.
    const uint64 thread = TSystem::ThreadID();
    if (m_state->announcedThread.exchange(thread) != thread) {
        Send(MetricsEventType::Attribute, {0, m_state->id, flagTracing}, u"tid", thread);
    }
}

void Context::DetachFromThread() {
    t_contexts.erase(std::remove(t_contexts.begin(), t_contexts.end(), m_state), t_contexts.end());
}

void Context_deleter::operator()(Context* context) const noexcept {
    delete context;
}

void Scope::Close() noexcept {
    const Source source{m_id, m_contextId, m_flags};
    TryToSend(MetricsEventType::CloseScope, source, m_name);
    for (const MetricsCloseScopeActions action : m_postCloseActions) {
        TryToSend(MetricsEventType::PostCloseScope, source, m_name, static_cast<uint32>(action));
    }
}

void Scope::OpenImpl(MetricsValue&& name) {
    OpenImpl(std::move(name), {});
}

void Scope::OpenImpl(MetricsValue&& name, NameValueList&& pairs) {
    m_contextId = CurrentContext();
    if (m_contextId == 0) {
        m_postCloseActions.clear();
        return;
    }
    NameValue() = std::move(name);
    const uint64 id = NextId();
    Send(MetricsEventType::OpenScope, {id, m_contextId, m_flags}, m_name, {}, std::move(pairs));
    m_id = id;
    m_open = true;
}

void Scope::EmitImpl(MetricsEventType type, const MetricsValue& name, MetricsValue&& value) const {
    if (m_open) {
        Send(type, {m_id, m_contextId, m_flags}, name, std::move(value));
    }
}

void Scope::MultiEmitImpl(MetricsEventType type,
                          const MetricsValue& name,
                          NameValueList&& pairs) const {
    if (m_open) {
        Send(type, {m_id, m_contextId, m_flags}, name, {}, std::move(pairs));
    }
}

void Scope::SetPostScopeCloseEvents(std::list<MetricsCloseScopeActions>&& actions) {
    m_postCloseActions = std::move(actions);
}

}  // namespace Metrics
