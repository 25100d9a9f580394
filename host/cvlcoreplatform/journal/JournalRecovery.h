#pragma once

#include <string>
#include <sys/types.h>

namespace cvlcoreplatform {

/// Brings into a log what processes that were killed have left in their journals, and removes
/// these. A journal whose process lives, that belongs to another user, or whose lines cannot be
/// written stays as it is. What a killed process had begun to write to the log is completed there;
/// nothing is in the log twice. `log` is the path of the log without links, `mode` that of the file
/// if there is none; where it is no regular file, nothing happens. Any number of processes may do
/// so at once.
void RecoverJournals(const std::string& log, mode_t mode) noexcept;

}  // namespace cvlcoreplatform
