#pragma once

#include "cvlsys/IntegerTypes.h"

namespace tarn {

/// Depths come from outside; one more than the largest wraps.
constexpr int32 OneDeeper(int32 depth) noexcept {
    return static_cast<int32>(static_cast<uint32>(depth) + 1);
}

}  // namespace tarn
