// The life of a scope: what happens, in which order, from its construction to its destruction.
#include "tarn/ActivityScope.h"

#include "ActivityContextDerivation.h"
#include "ActivityTokenText.h"
#include "ForegroundActivityLog.h"
#include "IdText.h"
#include "OptTarnInternal.h"
#include "PairBuffer.h"
#include "ThreadActivityRegistry.h"
#include "UncaughtExceptions.h"

#include "tarn/ActivityName.h"
#include "tarn/OptTarn.h"
#include "tarn/TarnSettings.h"

#include "cvlmetrics/MetricsManager.h"
#include "cvlsys/CorvalaException.h"

#include <exception>
#include <list>
#include <memory>
#include <new>
#include <utility>

namespace tarn {
namespace {

/// A null name would be the host's slip, and no reason to take it down.
const char* NameOrEmpty(const char* name) {
    return name != nullptr ? name : "";
}

/// Runs one step of a destructor. A broken invariant ends the process, from within the handler, so
/// that the runtime can say which; whatever else goes wrong, memory that has run out above all,
/// costs the step and nothing more.
template <class Step>
void Attempt(Step&& step) noexcept {
    try {
        std::forward<Step>(step)();
    } catch (const LogicException&) {
        std::terminate();
    } catch (...) {  // NOLINT(bugprone-empty-catch): the host goes on without this record
    }
}

const char* NameOrEmpty(const ActivityName& name) {
    return name.GetText();
}

bool HasMetricsContext() {
    return Metrics::MetricsManager::GetInstance().GetThreadContext().GetMetricsContextId() != 0;
}

inline bool IsOffBySettings(TraceRank rank, const char* name) {
    return TarnSettings::GetInstance().IsEitherOff(rank, NameOrEmpty(name));
}

inline bool IsOffBySettings(TraceRank rank, const ActivityName& name) {
    return TarnSettings::GetInstance().IsEitherOff(rank, name);
}

/// For storage in which nothing was built.
struct FreeStorage {
    void operator()(void* storage) const noexcept { ::operator delete(storage); }
};

}  // namespace

template <class Name, class Begin>
inline void ActivityScope::BeginUnlessOff(const Name& name, const Begin& begin) {
    if (!IsOffBySettings(m_traits.rank, name)) {
        BeginAsOn(NameOrEmpty(name), begin);
    }
}

// Apart, so that a scope that is off needs no room on the stack for what one that is on lends.
template <class Begin>
[[gnu::noinline]] void ActivityScope::BeginAsOn(const char* name, const Begin& begin) {
    new (&m_scope) Metrics::Scope(m_traits.flags | GetFlagsForTraceType(m_traits.type));
    new (&m_memoryCounter) corvala::memory::MemoryCounter;
    new (&m_activityContext) std::shared_ptr<ActivityContext>;
    new (&m_postCloseEvents) std::unique_ptr<std::list<Metrics::MetricsCloseScopeActions>>;
    m_off = false;
    try {
        if (m_trackResources) {
            // For the line that is written before its misuse ends the process.
            m_scope.StoreNamePrefix(name);
        }
        begin(name);
        InitializeResourceTracking();
    } catch (...) {
        EndParts();
        throw;
    }
}

ActivityScope::ActivityScope(const char* name) : ActivityScope(name, Traits()) {}

ActivityScope::ActivityScope(const ActivityName& name) : ActivityScope(name, Traits()) {}

ActivityScope::ActivityScope(const ActivityName& name, Attributes attributes)
    : ActivityScope(name, Traits(), attributes) {}

ActivityScope::ActivityScope(const char* name, Attributes attributes)
    : ActivityScope(name, Traits(), attributes) {}

ActivityScope::ActivityScope(const char* name, Metrics::NameValueList&& attributes)
    : ActivityScope(name, Traits(), std::move(attributes)) {}

ActivityScope::ActivityScope(const char* name, CustomContext&& context)
    : ActivityScope(name, std::move(context), Traits()) {}

ActivityScope::ActivityScope(const char* name,
                             CustomContext&& context,
                             Metrics::NameValueList&& attributes)
    : ActivityScope(name, std::move(context), Traits(), std::move(attributes)) {}

// The constructors below must not delegate to one another: a body that throws after delegating
// would run the whole destructor.

ActivityScope::ActivityScope(const char* name, Traits traits)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    BeginUnlessOff(name, [&](const char* text) { BeginScope(text, Metrics::PairSpan()); });
}

ActivityScope::ActivityScope(const ActivityName& name, Traits traits)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    BeginUnlessOff(name, [&](const char* text) { BeginScope(text, Metrics::PairSpan()); });
}

ActivityScope::ActivityScope(const char* name, Traits traits, Attributes attributes)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    BeginUnlessOff(name,
                   [&](const char* text) { BeginScope(text, Metrics::PairSpan(attributes)); });
}

ActivityScope::ActivityScope(const ActivityName& name, Traits traits, Attributes attributes)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    BeginUnlessOff(name,
                   [&](const char* text) { BeginScope(text, Metrics::PairSpan(attributes)); });
}

ActivityScope::ActivityScope(const char* name, Traits traits, Metrics::NameValueList&& attributes)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    const Metrics::NameValueList pairs = std::move(attributes);
    BeginUnlessOff(name, [&](const char* text) { BeginScope(text, PairBuffer(pairs).Span()); });
}

ActivityScope::ActivityScope(const char* name, CustomContext&& context, Traits traits)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    Metrics::NameValueList contextPairs = std::move(context.attributes);
    BeginUnlessOff(name, [&](const char* text) {
        SetCustomContext(std::move(contextPairs));
        BeginScope(text, Metrics::PairSpan());
    });
}

ActivityScope::ActivityScope(const char* name,
                             CustomContext&& context,
                             Traits traits,
                             Metrics::NameValueList&& attributes)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    Metrics::NameValueList contextPairs = std::move(context.attributes);
    const Metrics::NameValueList pairs = std::move(attributes);
    BeginUnlessOff(name, [&](const char* text) {
        SetCustomContext(std::move(contextPairs));
        BeginScope(text, PairBuffer(pairs).Span());
    });
}

ActivityScope::ActivityScope(const char* name,
                             CustomContext&& context,
                             Traits traits,
                             Metrics::NameValueList&& attributes,
                             const ActivityContextInitializer& initializer)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    Metrics::NameValueList contextPairs = std::move(context.attributes);
    const Metrics::NameValueList pairs = std::move(attributes);
    BeginUnlessOff(name, [&](const char* text) {
        SetCustomContext(std::move(contextPairs));
        BeginScope(text, PairBuffer(pairs).Span(), initializer.parent.get(), initializer.adopt);
    });
}

ActivityScope::ActivityScope(const char* name, Traits traits, const PairSource& attributes)
    : m_metricsContext(HasMetricsContext() ? nullptr
                                           : CreateMetricsContextIfOneDoesNotAlreadyExist()),
      m_trackResources(traits.type != TraceType::Untracked),
      m_traits(traits) {
    BeginAsOn(name, [&](const char* text) { BeginScope(text, attributes); });
}

ActivityScope::~ActivityScope() noexcept {
    if (!m_off) {
        End();
    }
}

[[gnu::noinline]] void ActivityScope::End() noexcept {
    if (m_postCloseEvents != nullptr) {
        m_scope.SetPostScopeCloseEvents(std::move(*m_postCloseEvents));
    }
    if (m_status == Status::None && UncaughtExceptions::OfThisThread() != 0) {
        Attempt([this] { ReportEarlyTermination(); });
    }
    Attempt([this] { ReleaseResources(); });
    if (OptTarn::AreForegroundThreadContextsOn()) {
        Attempt([this] { LeaveActivityContext(); });
    }
    if (m_scope.IsOpen()) {
        FinishMetricsScope();
    }
    EndParts();
}

// Against the order of construction.
void ActivityScope::EndParts() noexcept {
    m_postCloseEvents.~unique_ptr();
    m_activityContext.~shared_ptr();
    m_memoryCounter.~MemoryCounter();
    m_scope.~Scope();
}

std::unique_ptr<Metrics::Context, Metrics::Context_deleter>
ActivityScope::CreateMetricsContextIfOneDoesNotAlreadyExist() {
    if (HasMetricsContext()) {
        return nullptr;
    }
    // The storage first: a context that was announced must get its object, which ends it.
    std::unique_ptr<void, FreeStorage> storage(::operator new(sizeof(Metrics::Context)));
    const uint64 contextId = Metrics::Context::Create(true);
    std::unique_ptr<Metrics::Context, Metrics::Context_deleter> context(
        new (storage.get()) Metrics::Context(0, contextId));
    static_cast<void>(storage.release());
    context->OpenScope();
    return context;
}

template <class Pairs>
[[gnu::always_inline]] inline void ActivityScope::BeginScope(const char* name,
                                                             const Pairs& attributes) {
    if (OptTarn::AreForegroundThreadContextsOn()) {
        BeginScope(
            name, attributes, ThreadActivityRegistry::GetInstance().PeekCurrentContext(), false);
    } else if (Metrics::TestBitsAndContext(m_scope.GetFlags())) {
        OpenMetricsScope(name, attributes);
    }
}

template <class Pairs>
void ActivityScope::BeginScope(const char* name,
                               const Pairs& attributes,
                               const ActivityContext* parent,
                               bool adopt) {
    if (!OptTarn::AreForegroundThreadContextsOn()) {
        if (Metrics::TestBitsAndContext(m_scope.GetFlags())) {
            OpenMetricsScope(name, attributes);
        }
        return;
    }
    m_activityContext = DeriveActivityContext(parent, adopt, m_traits.type);
    ThreadActivityRegistry::GetInstance().Push(m_activityContext);
    if (OptTarn::IsForegroundActivityLogged()) {
        ForegroundActivityLog::WriteContext(u"Register", TString(name), m_activityContext.get());
    }
    // What nobody would receive is not built.
    if (Metrics::TestBitsAndContext(m_scope.GetFlags())) {
        OpenMetricsScopeWithContext(name, attributes, *m_activityContext);
    }
}

void ActivityScope::OpenMetricsScope(const char* name, Metrics::PairSpan attributes) {
    m_scope.Open(name, attributes);
}

void ActivityScope::OpenMetricsScope(const char* name, const PairSource& attributes) {
    m_scope.Open(name, PairBuffer(attributes).Span());
}

template <class Pairs>
void ActivityScope::OpenMetricsScopeWithContext(const char* name,
                                                const Pairs& attributes,
                                                const ActivityContext& context) {
    const TokenStrings& tokens = Tokens();
    const IdText root(context.m_rootId);
    const IdText activity(context.m_activityId);
    const IdText sponsor(context.m_sponsorId);
    using Pair = Metrics::PairView;
    const PairBuffer pairs(attributes,
                           Pair(tokens.traceDepthAttr, context.m_traceDepth),
                           Pair(tokens.serviceDepthAttr, context.m_serviceDepth),
                           Pair(tokens.foregroundRootAttr, root.View()),
                           Pair(tokens.activityIdAttr, activity.View()),
                           Pair(tokens.sponsorActivityIdAttr, sponsor.View()),
                           Pair(tokens.ridAttr, context.m_requestId));
    m_scope.Open(name, pairs.Span());
}

void ActivityScope::LeaveActivityContext() {
    if (OptTarn::IsForegroundActivityLogged()) {
        Attempt([this] {
            ForegroundActivityLog::WriteContext(
                u"Unregister", u"unavailable", m_activityContext.get());
        });
    }
    ThreadActivityRegistry::GetInstance().Remove(m_activityContext);
}

void ActivityScope::AttachToThread() {
    if (OptTarn::IsForegroundActivityLogged()) {
        ForegroundActivityLog::WriteMessage(u"ActivityScope::AttachToThread");
    }
    if (m_metricsContext != nullptr) {
        m_metricsContext->AttachToThread();
    }
    ThreadActivityRegistry::GetInstance().Push(GetActivityContext());
}

void ActivityScope::DetachFromThread() {
    if (OptTarn::IsForegroundActivityLogged()) {
        ForegroundActivityLog::WriteMessage(u"ActivityScope::DetachFromThread");
    }
    if (m_metricsContext != nullptr) {
        m_metricsContext->DetachFromThread();
    }
    ThreadActivityRegistry::GetInstance().Remove(GetActivityContext());
}

bool ActivityScope::IsOff(const char* name) const {
    return TarnSettings::GetInstance().IsOff(name);
}

bool ActivityScope::IsOff(TraceRank rank) const {
    return TarnSettings::GetInstance().IsOff(rank);
}

bool ActivityScope::IsEitherOff(TraceRank rank, const char* name) const {
    return TarnSettings::GetInstance().IsEitherOff(rank, name);
}

bool ActivityScope::IsTarnEnabled() {
    return OptTarn::GetIsTarnEnabled() &&
           Metrics::MetricsManager::GetInstance().GetConsumerCount() > 0;
}

}  // namespace tarn
