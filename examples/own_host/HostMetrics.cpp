// A host of one's own, upper layer: an event bus that delivers at once, under one lock.
#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/Scope.h"
#include "cvlsys/TSystem.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>

namespace Metrics {

namespace {

/// One listener is enough for this host.
struct Bus {
    std::recursive_mutex mutex;
    RefCntPtr<IMetricsListener> listener;
    uint64 bits = 0;
    bool everything = false;
};

Bus& GetBus() {
    static Bus& bus = *new Bus;
    return bus;
}

thread_local std::vector<uint64> t_contexts;

uint64 CurrentContext() noexcept {
    return t_contexts.empty() ? 0 : t_contexts.back();
}

uint64 NextId() {
    static std::atomic<uint64> last{0};
    return ++last;
}

void Deliver(MetricsEvent event) {
    using namespace std::chrono;
    event.time = steady_clock::now().time_since_epoch() / nanoseconds(1);
    const auto wall = duration_cast<microseconds>(system_clock::now().time_since_epoch());
    event.wallSeconds = static_cast<uint64>(wall / seconds(1));
    event.wallMicros = static_cast<uint32>((wall % seconds(1)).count());

    Bus& bus = GetBus();
    const std::lock_guard lock(bus.mutex);
    const bool isContextEvent = event.type == MetricsEventType::CreateContext ||
                                event.type == MetricsEventType::OpenContext ||
                                event.type == MetricsEventType::CloseContext;
    if (bus.listener && (isContextEvent || bus.everything || (event.flags & bus.bits) != 0)) {
        bus.listener->OnMetricsEvent(event);
    }
}

MetricsEvent MakeEvent(MetricsEventType type, uint64 id, uint64 contextId, uint64 flags) {
    MetricsEvent event;
    event.type = type;
    event.id = id;
    event.contextId = contextId;
    event.flags = flags;
    return event;
}

std::shared_ptr<const std::u16string> Characters(const TString& text) {
    return text.SharedCharacters() ? text.SharedCharacters()
                                   : std::make_shared<const std::u16string>();
}

}  // namespace

MetricsValue::MetricsValue(const char* text)
    : MetricsValue(std::string(text != nullptr ? text : "")) {}

MetricsValue::MetricsValue(const std::string& text) : MetricsValue(std::string(text)) {}

MetricsValue::MetricsValue(std::string&& text)
    : type(MV_Utf8String),
      utf8(std::make_shared<const std::string>(std::move(text))) {}

MetricsValue::MetricsValue(const wchar_t* text) : MetricsValue(TString(text)) {}

MetricsValue::MetricsValue(const char16_t* text) : MetricsValue(TString(text)) {}

MetricsValue::MetricsValue(const TString& text) : type(MV_Utf16String), utf16(Characters(text)) {}

IMetricsListener::~IMetricsListener() = default;

uint64 MetricsThreadContext::GetMetricsContextId() const noexcept {
    return CurrentContext();
}

MetricsManager& MetricsManager::GetInstance() noexcept {
    static MetricsManager manager;
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
    m_consumerCount = 1;
    return true;
}

bool MetricsManager::RemoveConsumer(const RefCntPtr<IMetricsListener>& /*listener*/) {
    Bus& bus = GetBus();
    const std::lock_guard lock(bus.mutex);
    bus.listener = RefCntPtr<IMetricsListener>();
    m_consumerCount = 0;
    return true;
}

bool TestBits(uint64 bits) noexcept {
    const Bus& bus = GetBus();
    return MetricsManager::GetInstance().GetConsumerCount() != 0 &&
           (bus.everything || (bits & bus.bits) != 0);
}

bool TestBitsAndContext(uint64 bits) noexcept {
    return TestBits(bits) && CurrentContext() != 0;
}

void MultiAttributeImpl(MetricsValue&& name, NameValueList&& pairs, uint64 bits) {
    MetricsEvent event = MakeEvent(MetricsEventType::AttributePairs, 0, CurrentContext(), bits);
    event.name = std::move(name);
    event.pairs = std::move(pairs);
    Deliver(std::move(event));
}

struct Context::State {
    uint64 id;
    uint64 flags;
};

uint64 Context::Create(bool isRoot) {
    const uint64 id = NextId();
    Deliver(MakeEvent(MetricsEventType::CreateContext, id, isRoot ? 0 : CurrentContext(), 0));
    return id;
}

Context::Context(uint64 flags, uint64 id) : m_state(std::make_shared<State>(State{id, flags})) {}

Context::~Context() {
    DetachFromThread();
    Deliver(MakeEvent(MetricsEventType::CloseContext, m_state->id, 0, m_state->flags));
}

void Context::OpenScope() {
    Deliver(MakeEvent(MetricsEventType::OpenContext, m_state->id, 0, m_state->flags));
    AttachToThread();
}

void Context::AttachToThread() {
    t_contexts.push_back(m_state->id);
    // Tells which thread the scopes to come run on: without it, the time of every child would
    // count as that of another thread.
    MetricsEvent event =
        MakeEvent(MetricsEventType::Attribute, 0, m_state->id, m_state->flags | flagTracing);
    event.name = MetricsValue(u"tid");
    event.value = MetricsValue(TSystem::ThreadID());
    Deliver(std::move(event));
}

void Context::DetachFromThread() {
    t_contexts.erase(std::remove(t_contexts.begin(), t_contexts.end(), m_state->id),
                     t_contexts.end());
}

void Context_deleter::operator()(Context* context) const noexcept {
    delete context;
}

void Scope::Close() noexcept {
    MetricsEvent event = MakeEvent(MetricsEventType::CloseScope, m_id, m_contextId, m_flags);
    event.name = *m_name;
    Deliver(event);
    for (const MetricsCloseScopeActions action : m_postCloseActions) {
        event.type = MetricsEventType::PostCloseScope;
        event.value = MetricsValue(static_cast<uint32>(action));
        Deliver(event);
    }
}

void Scope::OpenImpl(MetricsValue&& name) {
    OpenImpl(std::move(name), {});
}

void Scope::OpenImpl(MetricsValue&& name, NameValueList&& pairs) {
    m_id = NextId();
    m_contextId = CurrentContext();
    m_name = std::make_unique<MetricsValue>(std::move(name));
    m_open = true;
    MetricsEvent event = MakeEvent(MetricsEventType::OpenScope, m_id, m_contextId, m_flags);
    event.name = *m_name;
    event.pairs = std::move(pairs);
    Deliver(std::move(event));
}

void Scope::EmitImpl(MetricsEventType type, const MetricsValue& name, MetricsValue&& value) const {
    MetricsEvent event = MakeEvent(type, m_id, m_contextId, m_flags);
    event.name = name;
    event.value = std::move(value);
    Deliver(std::move(event));
}

void Scope::MultiEmitImpl(MetricsEventType type,
                          const MetricsValue& name,
                          NameValueList&& pairs) const {
    MetricsEvent event = MakeEvent(type, m_id, m_contextId, m_flags);
    event.name = name;
    event.pairs = std::move(pairs);
    Deliver(std::move(event));
}

void Scope::Open(const ValueView& name, PairSpan pairs) {
    OpenImpl(name.ToValue(), pairs.ToList());
}

void Scope::Emit(MetricsEventType type, const ValueView& name, const ValueView& value) const {
    EmitImpl(type, name.ToValue(), value.ToValue());
}

void Scope::MultiEmit(MetricsEventType type, const ValueView& name, PairSpan pairs) const {
    MultiEmitImpl(type, name.ToValue(), pairs.ToList());
}

void Scope::Finish(std::initializer_list<Statement> statements) noexcept {
    if (!m_open) {
        return;
    }
    for (const Statement& statement : statements) {
        MetricsEvent event = MakeEvent(statement.type, m_id, m_contextId, m_flags);
        event.name = statement.name.ToValue();
        event.value = statement.value.ToValue();
        event.pairs = statement.pairs.ToList();
        Deliver(std::move(event));
    }
    Close();
    m_open = false;
    m_id = 0;
}

void Scope::SetPostScopeCloseEvents(std::list<MetricsCloseScopeActions>&& actions) {
    m_postCloseActions = std::move(actions);
}

}  // namespace Metrics
