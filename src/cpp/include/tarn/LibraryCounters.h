#pragma once

#include "tarn/Export.h"

#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// What the six counters of `OptTarn` count, counted by the library itself: for those who report on
/// a process whose counters may belong to somebody else.
struct LibraryCounters {
    uint64 contextsCreated = 0;
    uint64 contextsClosed = 0;
    uint64 requestContextsCreated = 0;
    uint64 requestContextsClosed = 0;
    uint64 scopesOpened = 0;
    uint64 scopesClosed = 0;
};

/// Whether the library counts. Off at first: nothing is counted then, and what was stays. Any
/// thread may call it at any time.
TARN_EXPORT void SetLibraryCounting(bool enabled) noexcept;

/// Read one after the other, what is closed before what is opened: while events flow it is no
/// snapshot of one moment. Any thread may ask.
TARN_EXPORT LibraryCounters GetLibraryCounters() noexcept;

}  // namespace tarn
