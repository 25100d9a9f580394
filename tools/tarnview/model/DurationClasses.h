#pragma once

#include "read/Timestamp.h"

#include <cstddef>
#include <string>

namespace tarnview {

/// Classes of durations for pictures, three for each power of ten: from 1, 2 and 5 of each on, as
/// 100 us, 200 us, 500 us, 1 ms. The first one, number 0, begins at 0 and ends at 1 us.
///
/// The same classes serve for bytes.
std::size_t DurationClassOf(Microseconds duration);

/// Where a class begins; the next one begins where it ends.
Microseconds BeginOfDurationClass(std::size_t number);

}  // namespace tarnview
