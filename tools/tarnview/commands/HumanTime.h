#pragma once

#include "read/Timestamp.h"

#include <optional>
#include <string>

namespace tarnview {

/// Where times without an offset are meant.
enum class Zone { Utc, Local };

/// Reads a time as people write it: "-10m" is ten minutes before `now`; "13:00" and "13:00:30" are
/// of the day of `now`; "today" and "yesterday" are the beginnings of days, and may be followed by
/// a time of the day ("yesterday 13:00"); "now"; and what ParseLooseTimestamp() takes, in the zone
/// if it does not name one. `nullopt` if it is something else.
std::optional<Microseconds> ParseHumanTime(const std::string& text, Microseconds now, Zone zone);

/// The time of the system.
Microseconds CurrentTime();

}  // namespace tarnview
