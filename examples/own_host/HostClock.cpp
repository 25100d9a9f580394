#include "Host.h"

#include <chrono>

own_host::Moment own_host::Now() {
    using namespace std::chrono;
    return {nanoseconds(steady_clock::now().time_since_epoch()).count(),
            duration_cast<microseconds>(system_clock::now().time_since_epoch()).count()};
}
