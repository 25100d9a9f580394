#include "ThreadWork.h"

#include <cxxabi.h>

namespace tarn {

constinit thread_local ThreadWork ThreadWork::t_work;

const ThreadWork::Exceptions* ThreadWork::FindExceptions() noexcept {
    return reinterpret_cast<const Exceptions*>(__cxxabiv1::__cxa_get_globals());
}

}  // namespace tarn
