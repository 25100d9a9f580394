#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

namespace Metrics::LastWordsSlot {

/// What those that are set say; empty if there are none. With the delivering role.
TString Describe(uint64 threadId, int64 time);

/// Calls the action that is to come before them, if there is one. With the delivering role.
void CallBefore() noexcept;

}  // namespace Metrics::LastWordsSlot
