#pragma once

#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

/// The inside of the process's event bus: who is subscribed, and the one road by which events reach
/// them. An event is delivered on the thread that emits it, before the emitting call returns; one
/// that is emitted from within a delivery waits on its thread until the current event is through.
/// Any thread may call anything here at any time, from within a delivery as well.
namespace Metrics::Bus {

/// Whether any consumer would receive an event with these flags that is no context event.
bool Admits(uint64 flags) noexcept;

/// Whether any consumer would receive a context event: whether there is a consumer.
bool AdmitsContextEvents() noexcept;

/// Stamps an event with the time and sends it on its way. Whoever calls it has asked for admission
/// before, so that nothing is built in vain. Throws `std::bad_alloc` when the event has to wait and
/// there is no memory for that; the event is lost then, and counted.
void Emit(MetricsEvent&& event);

/// For destructors: as `Emit`, but a lost event is counted only.
void EmitFromDestructor(MetricsEvent&& event) noexcept;

void AddConsumer(const RefCntPtr<IMetricsListener>& listener, uint64 bits, bool everything);
bool RemoveConsumer(const IMetricsListener& listener);

/// Keeps the parent of a context between the making of its id and of the context itself.
void KeepParent(uint64 contextId, uint64 parentId);

/// The parent that was kept for a context, and forgets it; 0 when none was kept.
uint64 TakeParent(uint64 contextId) noexcept;

}  // namespace Metrics::Bus
