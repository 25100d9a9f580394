#include "UncaughtExceptions.h"

#include <cxxabi.h>

namespace tarn {

constinit thread_local const UncaughtExceptions::State* UncaughtExceptions::t_state = nullptr;

[[gnu::noinline]] const UncaughtExceptions::State* UncaughtExceptions::Find() noexcept {
    t_state = reinterpret_cast<const State*>(__cxxabiv1::__cxa_get_globals());
    return t_state;
}

}  // namespace tarn
