#pragma once

#include "cvlsys/IntegerTypes.h"

namespace own_host {

struct Moment {
    int64 nanoseconds;       ///< never running backwards
    int64 wallMicroseconds;  ///< since the epoch
};

/// What the bus stamps its events with.
Moment Now();

}  // namespace own_host
