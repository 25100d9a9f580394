#include "tarn/OptTarn.h"

#include "NeverDestroyed.h"
#include "OptTarnInternal.h"

#include "tarn/LibraryCounters.h"

#include "cvlcoreplatform/ComputerName.h"
#include "cvlcoreplatform/TLogger.h"

#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <utility>

namespace OptTarn {
namespace {

struct CmonIncrementCounter {
    explicit CmonIncrementCounter(std::function<void(const std::string&, uint64)> callback)
        : function(std::move(callback)) {}

    const std::function<void(const std::string&, uint64)> function;
    /// Whether it has thrown before, which the log says then.
    mutable std::atomic<bool> hasThrown{false};
};

/// Texts and callbacks. They are built on first use, which the load of the library forces, and
/// never destroyed: static destructors of the host may still trace.
struct Texts {
    TString hostName = TSystem::ComputerName();
    TString defaultSiteName;
    TString serverEnvironment;

    std::function<TString(bool)> getAppProductVersion = [](bool) { return TString(); };
    std::function<void()> emitEnvironmentMetrics = [] {};

    /// Shared, so that a callback that replaces itself lives until it returns. Null as long as the
    /// host has set none.
    std::shared_ptr<const CmonIncrementCounter> cmonIncrementCounter;

    std::string contextsCreatedName;
    std::string contextsClosedName;
    std::string requestContextsCreatedName;
    std::string requestContextsClosedName;
    std::string scopeOpenedName;
    std::string scopeClosedName;
};

Texts& GetTexts() {
    static tarn::NeverDestroyed<Texts> texts;
    return texts.Get();
}

/// The previous callable is destroyed here, when the new one is in place already: its destructor
/// may ask for the option.
template <class Function>
void ReplaceCallback(Function& stored, Function&& replacement) {
    const Function previous = std::exchange(stored, std::move(replacement));
}

void ReplaceName(std::string& stored, const std::string& name) {
    if (&stored != &name) {
        stored = name;
    }
}

void WarnOfCounterCallback() noexcept {
    try {
        TLog::Logger& logger = TLog::Logger::Get();
        if (logger.IsEnabled(TLog::Warn)) {
            logger.LogMessage(TLog::Warn,
                              u"The counter callback has thrown an exception, which is ignored. "
                              u"Further ones are not reported.");
        }
    } catch (const std::bad_alloc&) {
        return;  // the host goes on without the message
    }
}

constinit std::atomic<bool> s_isCounting{false};

struct Counter {
    std::atomic<std::atomic<int64>*> host{nullptr};
    std::atomic<uint64> own{0};

    void Increment() noexcept {
        if (std::atomic<int64>* const target = host.load(std::memory_order_relaxed)) {
            target->fetch_add(1);
        }
        if (s_isCounting.load(std::memory_order_relaxed)) {
            own.fetch_add(1, std::memory_order_release);
        }
    }

    uint64 Get() const noexcept { return own.load(std::memory_order_acquire); }
};

}  // namespace

#define TARN_DEFINE_SWITCH(name)                                \
    namespace Switches {                                        \
    constinit std::atomic<bool> name{false};                    \
    }                                                           \
    void Set##name(bool value) {                                \
        Switches::name.store(value, std::memory_order_relaxed); \
    }                                                           \
    bool Get##name() {                                          \
        return Switches::name.load(std::memory_order_relaxed);  \
    }

TARN_DEFINE_SWITCH(IsTarnEnabled)
TARN_DEFINE_SWITCH(IsTarnPlatforms)
TARN_DEFINE_SWITCH(IsForegroundThreadContextEnabled)
TARN_DEFINE_SWITCH(IsServer)
TARN_DEFINE_SWITCH(IsUnitTest)
TARN_DEFINE_SWITCH(ShouldLogForegroundActivity)
TARN_DEFINE_SWITCH(ShouldLogResourceTracking)
TARN_DEFINE_SWITCH(ShouldLogTransparent)

#undef TARN_DEFINE_SWITCH

void SetHostName(TString hostName) {
    GetTexts().hostName = std::move(hostName);
}

TString GetHostName() {
    return GetTexts().hostName;
}

const TString& HostName() {
    return GetTexts().hostName;
}

void SetDefaultSiteNameGet(TString siteName) {
    GetTexts().defaultSiteName = std::move(siteName);
}

TString GetDefaultSiteNameGet() {
    return GetTexts().defaultSiteName;
}

const TString& DefaultSiteName() {
    return GetTexts().defaultSiteName;
}

void SetServerEnvironment(TString environment) {
    GetTexts().serverEnvironment = std::move(environment);
}

TString GetServerEnvironment() {
    return GetTexts().serverEnvironment;
}

const TString& ServerEnvironment() {
    return GetTexts().serverEnvironment;
}

void SetGetAppProductVersion(std::function<TString(bool)> getAppProductVersion) {
    ReplaceCallback(GetTexts().getAppProductVersion, std::move(getAppProductVersion));
}

std::function<TString(bool)> GetGetAppProductVersion() {
    return GetTexts().getAppProductVersion;
}

void SetEmitEnvironmentMetrics(std::function<void()> emitEnvironmentMetrics) {
    ReplaceCallback(GetTexts().emitEnvironmentMetrics, std::move(emitEnvironmentMetrics));
}

std::function<void()> GetEmitEnvironmentMetrics() {
    return GetTexts().emitEnvironmentMetrics;
}

void SetCmonIncrementCounter(std::function<void(const std::string&, uint64)> cmonIncrementCounter) {
    ReplaceCallback(GetTexts().cmonIncrementCounter,
                    std::make_shared<const CmonIncrementCounter>(std::move(cmonIncrementCounter)));
}

std::function<void(const std::string&, uint64)> GetCmonIncrementCounter() {
    const auto& count = GetTexts().cmonIncrementCounter;
    return count != nullptr ? count->function : [](const std::string&, uint64) {};
}

void CountWithCmon(const std::string& counterName) noexcept {
    const auto& stored = GetTexts().cmonIncrementCounter;
    if (stored == nullptr || !stored->function) {
        return;
    }
    // What it calls may set another one.
    const std::shared_ptr<const CmonIncrementCounter> count = stored;
    try {
        count->function(counterName, 1);
    } catch (...) {
        if (!count->hasThrown.exchange(true)) {
            WarnOfCounterCallback();
        }
    }
}

#define TARN_DEFINE_COUNTER_NAME(setter, getter, field) \
    void setter(const std::string& name) {              \
        ReplaceName(GetTexts().field, name);            \
    }                                                   \
    const std::string& getter() {                       \
        return GetTexts().field;                        \
    }

TARN_DEFINE_COUNTER_NAME(SetMetricsMonitorContextsCreatedConst,
                         GetMetricsMonitorContextsCreatedConst,
                         contextsCreatedName)
TARN_DEFINE_COUNTER_NAME(SetMetricsMonitorContextsClosedConst,
                         GetMetricsMonitorContextsClosedConst,
                         contextsClosedName)
TARN_DEFINE_COUNTER_NAME(SetMetricsMonitorRequestContextsCreatedConst,
                         GetMetricsMonitorRequestContextsCreatedConst,
                         requestContextsCreatedName)
TARN_DEFINE_COUNTER_NAME(SetMetricsMonitorRequestContextsClosedConst,
                         GetMetricsMonitorRequestContextsClosedConst,
                         requestContextsClosedName)
TARN_DEFINE_COUNTER_NAME(SetMetricsMonitorScopeOpenedConst,
                         GetMetricsMonitorScopeOpenedConst,
                         scopeOpenedName)
// The getter's spelling is what hosts have been calling.
TARN_DEFINE_COUNTER_NAME(SetMetricsMonitorScopeClosedConst,
                         GetMetricsMonitorScopedClosedConst,
                         scopeClosedName)

#undef TARN_DEFINE_COUNTER_NAME

#define TARN_DEFINE_COUNTER(name)                                       \
    namespace {                                                         \
    constinit Counter s_counter##name;                                  \
    }                                                                   \
    void SetCorvalaCounter##name(std::atomic<int64>* counter) {         \
        s_counter##name.host.store(counter, std::memory_order_relaxed); \
    }                                                                   \
    void IncrementCorvalaCounter##name() {                              \
        s_counter##name.Increment();                                    \
    }

TARN_DEFINE_COUNTER(ContextsCreated)
TARN_DEFINE_COUNTER(ContextsClosed)
TARN_DEFINE_COUNTER(RequestContextsCreated)
TARN_DEFINE_COUNTER(RequestContextsClosed)
TARN_DEFINE_COUNTER(ScopesOpened)
TARN_DEFINE_COUNTER(ScopesClosed)

#undef TARN_DEFINE_COUNTER

}  // namespace OptTarn

namespace tarn {

void SetLibraryCounting(bool enabled) noexcept {
    OptTarn::s_isCounting.store(enabled, std::memory_order_relaxed);
}

LibraryCounters GetLibraryCounters() noexcept {
    LibraryCounters counters;
    // What has been closed was opened before.
    counters.scopesClosed = OptTarn::s_counterScopesClosed.Get();
    counters.scopesOpened = OptTarn::s_counterScopesOpened.Get();
    counters.requestContextsClosed = OptTarn::s_counterRequestContextsClosed.Get();
    counters.requestContextsCreated = OptTarn::s_counterRequestContextsCreated.Get();
    counters.contextsClosed = OptTarn::s_counterContextsClosed.Get();
    counters.contextsCreated = OptTarn::s_counterContextsCreated.Get();
    return counters;
}

}  // namespace tarn
