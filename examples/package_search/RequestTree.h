#pragma once

#include "LogReport.h"

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace packagesearch {

/// The activities that are part of no other one: requests, and whatever else a process did by
/// itself. In the order they began.
std::vector<const LoggedActivity*> TopActivities(const LogReport& report);

/// Whether an activity ended otherwise than well, or not at all.
bool HasFailed(const LoggedActivity& activity);

/// Prints one request as a tree across the processes that worked on it, with all figures, and
/// below it sums by which a reader can check them. Whole-line texts are indented like their
/// activity.
void PrintRequest(std::ostream& out, const LogReport& report, const LoggedActivity& request);

/// Prints one line for a request: when, what, for whom, how long, with what result, its id.
void PrintRequestLine(std::ostream& out, const LoggedActivity& request);

}  // namespace packagesearch
