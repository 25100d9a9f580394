#pragma once

#include "cvlsys/IntegerTypes.h"

/// What is to be remembered between the making of a context's id and of the context itself. Nearly
/// every context is a root that was announced, of which there is nothing to remember. Any thread
/// may call these functions.
namespace Metrics::PendingContexts {

struct Facts {
    uint64 parentId = 0;
    bool isUnannounced = false;  ///< its making has found no room and was not told to anybody
};

/// Throws `std::bad_alloc`.
void Keep(uint64 contextId, Facts facts);

/// What was kept for a context, and forgets it.
Facts Take(uint64 contextId) noexcept;

}  // namespace Metrics::PendingContexts
