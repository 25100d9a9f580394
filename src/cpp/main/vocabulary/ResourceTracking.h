#pragma once

#include "cvlsys/MemoryTracking.h"

namespace tarn {

/// What log events say about resources depends on these two answers. The process's own are read
/// once and kept, so that the fields of a log do not change half way. While the option IsUnitTest
/// is on, a test's answers take their place at every call.
corvala::memory::MemoryTrackingMode GetLoggedMemoryTrackingMode();
bool IsCpuTimeLogged();

/// The mode that tests see; off until it is set.
void OverrideLoggedMemoryTrackingModeForTest(corvala::memory::MemoryTrackingMode mode);

}  // namespace tarn
