#pragma once

#include "W3cHeaders.h"

namespace tarn {

/// What came with a request from another system and goes on with the requests that follow from it.
struct ForeignTrace {
    bool isSampled = true;
    TraceState state;
};

}  // namespace tarn
