#pragma once

#include "read/Timestamp.h"

#include <string>

namespace tarnview {

/// How times are shown to people. A value.
struct TimeStyle {
    enum class Kind {
        Utc,
        Local,     ///< in the time zone of the system, with its offset
        Relative,  ///< since `base`
    };

    Kind kind = Kind::Utc;
    Microseconds base = 0;  ///< the first time of the log

    /// "2026-11-21T06:02:25.181892Z", "2026-11-21T07:02:25.181892+01:00" or "+25.181892 s"
    std::string Text(Microseconds time) const;
};

}  // namespace tarnview
