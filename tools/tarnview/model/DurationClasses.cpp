#include "model/DurationClasses.h"

namespace tarnview {

namespace {

constexpr std::size_t mostClasses = 52;  // up to 10^17

}  // namespace

Microseconds BeginOfDurationClass(std::size_t number) {
    if (number == 0) {
        return 0;
    }
    constexpr Microseconds steps[] = {1, 2, 5};
    Microseconds begin = steps[(number - 1) % 3];
    for (std::size_t power = (number - 1) / 3; power != 0; --power) {
        begin *= 10;
    }
    return begin;
}

std::size_t DurationClassOf(Microseconds duration) {
    std::size_t number = 0;
    while (number + 1 < mostClasses && duration >= BeginOfDurationClass(number + 1)) {
        ++number;
    }
    return number;
}

}  // namespace tarnview
