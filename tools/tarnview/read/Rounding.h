#pragma once

#include <algorithm>
#include <cmath>

namespace tarnview {

/// The nearest whole number. What no program can have measured is cut, so that the sums over a
/// broken log do not overflow.
inline long long Rounded(double number) {
    constexpr double most = 1e15;  // microseconds: 31 years; bytes: a million gigabytes
    return std::llround(std::clamp(number, -most, most));
}

}  // namespace tarnview
