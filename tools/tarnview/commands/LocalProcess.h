#pragma once

#include "read/Timestamp.h"

#include <cstdint>
#include <string>

namespace tarnview {

/// Whether this machine has this name, as a log may have it.
bool IsThisHost(const std::string& host);

/// Whether a process of this machine exists that wrote a line at that time: the id may have been
/// given to another one since.
bool IsStillThere(std::int64_t process, Microseconds lastLine);

}  // namespace tarnview
