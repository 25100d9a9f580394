#pragma once

#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// The number of the process's next activity event: 1, 2, 3 and so on, in a forked child from the
/// beginning. Any thread may call it.
uint64 DrawLineNumber() noexcept;

}  // namespace tarn
