#pragma once

#include "ContextState.h"

#include "cvlsys/IntegerTypes.h"

#include <memory>

/// The calling thread's stack of metrics contexts; the innermost one that has not ended is the
/// current one. A thread touches its own stack only. The stack is gone once the thread tears down
/// its thread-local objects: from then on no context is current and none becomes it.
namespace Metrics::ThreadContexts {

/// The current context; null when there is none.
ContextState* Current() noexcept;

/// The current context's id, 0 when there is none.
uint64 CurrentId() noexcept;

/// Makes a context current; one that is on the stack already moves to the top. Throws
/// `std::bad_alloc`, with the stack as it was.
void Push(std::shared_ptr<ContextState> context);

/// Takes a context off, wherever it is on the stack; nothing if it is not there.
void Remove(const ContextState& context) noexcept;

}  // namespace Metrics::ThreadContexts
