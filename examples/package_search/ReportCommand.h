#pragma once

#include "CommandLine.h"

#include <iosfwd>

namespace packagesearch {

/// Prints what the logs tell about the requests that were asked for. Throws when a log cannot be
/// read, or holds no such request.
void RunReport(const ReportOptions& options, std::ostream& out);

}  // namespace packagesearch
