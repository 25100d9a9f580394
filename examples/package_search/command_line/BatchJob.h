#pragma once

#include "CommandLine.h"

#include <iosfwd>

namespace packagesearch {

/// Loads, asks, and reports on `out`. Throws what the parts throw when the log cannot be written,
/// a file is missing or broken, a query failed, or lines of the log are lost.
void RunBatchJob(const BatchOptions& options, std::ostream& out);

}  // namespace packagesearch
