#pragma once

#include "CommandLine.h"

#include <iosfwd>

namespace packagesearch {

/// Loads or opens the database, and serves until SIGTERM or SIGINT. Throws what the parts throw
/// when it cannot begin.
void RunService(const ServeOptions& options, std::ostream& out);

}  // namespace packagesearch
