#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <functional>
#include <string>

namespace OptTarn {

/// The host's hook; not handed out beyond the library.
std::function<void()> GetEmitEnvironmentMetrics();

/// Calls the counter callback with amount 1, if there is one. Unlike the exported getter it copies
/// nothing and never raises `bad_function_call`: it runs for every event that is counted.
void CountWithCmon(const std::string& counterName);

/// The stored texts themselves, for reading on the delivering thread without a copy.
const TString& HostName();
const TString& DefaultSiteName();
const TString& ServerEnvironment();

}  // namespace OptTarn
