#pragma once

#include "ContextState.h"

#include "cvlsys/IntegerTypes.h"

/// What the bus itself says of a context: that it was made and opened, and which thread it is on.
namespace Metrics::ContextAnnouncement {

/// That a context was made. False if there was no room for that, and it is to be made up for.
bool SayCreated(uint64 contextId, uint64 parentId);

/// That the context was opened on a thread; before its next scope if there is no room now.
void SayOpened(ContextState& context, uint64 threadId);

/// That the context is on a thread from now on; before its next scope if there is no room now.
void SayThread(ContextState& context, uint64 threadId);

/// That the context has ended.
void SayClosed(const ContextState& context) noexcept;

/// Whether consumers know the context, as open and on this thread. What they do not know yet is
/// said now, if there is room and nothing about the context was lost.
bool IsKnown(ContextState& context);

}  // namespace Metrics::ContextAnnouncement
