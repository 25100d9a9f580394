#pragma once

#include "cvlsys/IntegerTypes.h"

// Thread-local variables of this library that are read all the time lie at a fixed distance from
// the thread pointer: reading one is a load and never allocates, so that counting an allocation
// cannot allocate. They stay few and small, because a library that is loaded late shares a limited
// space for them.
#define CVLSYS_FAST_THREAD_LOCAL [[gnu::tls_model("initial-exec")]] constinit thread_local

namespace cvlsys {

/// The calling thread's number: 1, 2, 3 ... in the order in which threads first asked. Unlike the
/// kernel's id it is never used again, and a forked child keeps its parent's. Valid to the very
/// end of the thread.
uint64 ThreadNumber() noexcept;

}  // namespace cvlsys
