#pragma once

#include "LogReport.h"

#include <iosfwd>

namespace packagesearch {

/// Prints an activity and all its parts as an indented tree with elapsed and exclusive times.
void PrintTree(std::ostream& out, const LogReport& report, const LoggedActivity& root);

}  // namespace packagesearch
