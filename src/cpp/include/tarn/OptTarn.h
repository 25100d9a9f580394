#pragma once

#include "tarn/Export.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <functional>
#include <string>

/// Process-wide options of the library. Set them at start-up, before other threads trace: texts
/// and callbacks must not be set while another thread reads them; switches and counter pointers
/// may change at any time. Static initialisers of other libraries may set and read them.
namespace OptTarn {

// ---- Switches; all are off at start.

/// Whether anything is traced at all.
TARN_EXPORT void SetIsTarnEnabled(bool enabled);
TARN_EXPORT bool GetIsTarnEnabled();

/// The host is one of the platform's components: end events carry the resource figures.
TARN_EXPORT void SetIsTarnPlatforms(bool isPlatform);
TARN_EXPORT bool GetIsTarnPlatforms();

/// Every scope gets an id, which passes to other threads and with requests. When off, ids come from
/// the monitor alone and nothing is injected into requests.
TARN_EXPORT void SetIsForegroundThreadContextEnabled(bool enabled);
TARN_EXPORT bool GetIsForegroundThreadContextEnabled();

/// The process serves requests: events take their site from the request.
TARN_EXPORT void SetIsServer(bool isServer);
TARN_EXPORT bool GetIsServer();

/// The process is a test: resource tracking answers come from the monitor's test settings.
TARN_EXPORT void SetIsUnitTest(bool isUnitTest);
TARN_EXPORT bool GetIsUnitTest();

/// Log when contexts become current on threads and cease to be.
TARN_EXPORT void SetShouldLogForegroundActivity(bool shouldLog);
TARN_EXPORT bool GetShouldLogForegroundActivity();

/// Log the whole state of a scope whenever resource figures are added to it.
TARN_EXPORT void SetShouldLogResourceTracking(bool shouldLog);
TARN_EXPORT bool GetShouldLogResourceTracking();

/// Log transparent scopes like all others, and count them in depths.
TARN_EXPORT void SetShouldLogTransparent(bool shouldLog);
TARN_EXPORT bool GetShouldLogTransparent();

// ---- Texts.

/// Written into events as the host. At start: the computer's name. Events use the value that it
/// has when the first event with a host is built.
TARN_EXPORT void SetHostName(TString hostName);
TARN_EXPORT TString GetHostName();

/// The site of events of a process that is no server. Empty at start.
TARN_EXPORT void SetDefaultSiteNameGet(TString siteName);
TARN_EXPORT TString GetDefaultSiteNameGet();

/// The name of the environment. Empty at start, which writes none.
TARN_EXPORT void SetServerEnvironment(TString environment);
TARN_EXPORT TString GetServerEnvironment();

// ---- Callbacks. Each setter destroys the callable that was there before; an empty function is
// allowed and handed out by the getter as it is. The library calls the counter callback on the
// threads that deliver events.

/// The product's version, for the host's own components.
TARN_EXPORT void SetGetAppProductVersion(std::function<TString(bool)> getAppProductVersion);
TARN_EXPORT std::function<TString(bool)> GetGetAppProductVersion();

/// Kept for the host; the library does not call it.
TARN_EXPORT void SetEmitEnvironmentMetrics(std::function<void()> emitEnvironmentMetrics);

/// Called with a counter's name (below) and an amount for everything that the monitor counts.
TARN_EXPORT void SetCmonIncrementCounter(
    std::function<void(const std::string&, uint64)> cmonIncrementCounter);
TARN_EXPORT std::function<void(const std::string&, uint64)> GetCmonIncrementCounter();

// ---- Names under which the counter callback is told; empty at start. The references stay valid
// and show what is set later.

TARN_EXPORT void SetMetricsMonitorContextsCreatedConst(const std::string& name);
TARN_EXPORT const std::string& GetMetricsMonitorContextsCreatedConst();
TARN_EXPORT void SetMetricsMonitorContextsClosedConst(const std::string& name);
TARN_EXPORT const std::string& GetMetricsMonitorContextsClosedConst();
TARN_EXPORT void SetMetricsMonitorRequestContextsCreatedConst(const std::string& name);
TARN_EXPORT const std::string& GetMetricsMonitorRequestContextsCreatedConst();
TARN_EXPORT void SetMetricsMonitorRequestContextsClosedConst(const std::string& name);
TARN_EXPORT const std::string& GetMetricsMonitorRequestContextsClosedConst();
TARN_EXPORT void SetMetricsMonitorScopeOpenedConst(const std::string& name);
TARN_EXPORT const std::string& GetMetricsMonitorScopeOpenedConst();
TARN_EXPORT void SetMetricsMonitorScopeClosedConst(const std::string& name);

/// Reads what `SetMetricsMonitorScopeClosedConst` set; the spelling is historical.
TARN_EXPORT const std::string& GetMetricsMonitorScopedClosedConst();

// ---- Counters of the host. The host owns them and keeps them alive while they are set; null
// (as at start) switches counting off. Incrementing is atomic and allowed on any thread.

TARN_EXPORT void SetCorvalaCounterContextsCreated(std::atomic<int64>* counter);
TARN_EXPORT void SetCorvalaCounterContextsClosed(std::atomic<int64>* counter);
TARN_EXPORT void SetCorvalaCounterRequestContextsCreated(std::atomic<int64>* counter);
TARN_EXPORT void SetCorvalaCounterRequestContextsClosed(std::atomic<int64>* counter);
TARN_EXPORT void SetCorvalaCounterScopesOpened(std::atomic<int64>* counter);
TARN_EXPORT void SetCorvalaCounterScopesClosed(std::atomic<int64>* counter);

TARN_EXPORT void IncrementCorvalaCounterContextsCreated();
TARN_EXPORT void IncrementCorvalaCounterContextsClosed();
TARN_EXPORT void IncrementCorvalaCounterRequestContextsCreated();
TARN_EXPORT void IncrementCorvalaCounterRequestContextsClosed();
TARN_EXPORT void IncrementCorvalaCounterScopesOpened();
TARN_EXPORT void IncrementCorvalaCounterScopesClosed();

}  // namespace OptTarn
