#pragma once

#include "cvlsys/IntegerTypes.h"

#include <atomic>

namespace cvlcoreplatform {

/// What hosts have asked of all log files of the process, also from signal handlers. Each file
/// remembers the numbers that it has seen.
struct FileRequests {
    std::atomic<uint32> rotations{0};
    std::atomic<uint32> reopenings{0};

    static_assert(std::atomic<uint32>::is_always_lock_free, "a signal handler must not wait");
};

extern constinit FileRequests fileRequests;

}  // namespace cvlcoreplatform
