#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <atomic>
#include <functional>
#include <string>

namespace OptTarn {

/// Where the options are that each scope reads.
namespace Switches {

extern constinit std::atomic<bool> IsForegroundThreadContextEnabled;
extern constinit std::atomic<bool> ShouldLogForegroundActivity;

}  // namespace Switches

/// As their getters, without a call.
inline bool AreForegroundThreadContextsOn() noexcept {
    return Switches::IsForegroundThreadContextEnabled.load(std::memory_order_relaxed);
}

inline bool IsForegroundActivityLogged() noexcept {
    return Switches::ShouldLogForegroundActivity.load(std::memory_order_relaxed);
}

/// The host's hook; not handed out beyond the library.
std::function<void()> GetEmitEnvironmentMetrics();

/// Calls the counter callback with amount 1, if there is one. It runs for every event that is
/// counted, so it copies a pointer to the callback and not, as the exported getter does, the
/// callback itself; and it never raises `bad_function_call`. What the callback throws goes no
/// further, so that what is counted goes on, and as much is closed as was created: the first time
/// it is said in the log.
void CountWithCmon(const std::string& counterName) noexcept;

/// The stored texts themselves, for reading on the delivering thread without a copy.
const TString& HostName();
const TString& DefaultSiteName();
const TString& ServerEnvironment();

}  // namespace OptTarn
