#pragma once

#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/LentEvent.h"
#include "cvlmetrics/Scope.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <cstddef>
#include <functional>

namespace Metrics {

class Deadline;

}  // namespace Metrics

/// The inside of the process's event bus: the road of an event from the thread that emits it to the
/// consumers. It is delivered at once, or queued for the delivering thread; one that is emitted
/// from within a delivery waits on its thread until the current event is through. Any thread may
/// call anything here at any time, from within a delivery as well.
///
/// Delivering is a role that one thread has at a time, the one that holds the bus's lock. It
/// first delivers what is queued, so that nothing overtakes what was emitted earlier.
///
/// Inside a log back end no scope and no context begins: its line would be logged in its turn. What
/// is said there about those that have begun elsewhere is delivered when the thread is outside.
namespace Metrics::Bus {

/// Whether any consumer would receive an event with these flags that is no context event.
bool Admits(uint64 flags) noexcept;

/// Whether any consumer would receive a context event: whether there is a consumer.
bool AdmitsContextEvents() noexcept;

/// Whether a new scope may be opened: always, unless scopes are to be refused for want of room, or
/// the thread is inside a log back end.
bool HasRoomForScope() noexcept;

/// The same for a new context, which is refused later.
bool HasRoomForContext() noexcept;

/// By the reason for which it was refused.
void CountRefusedScope() noexcept;
void CountRefusedAttribute() noexcept;

// Stamp an event with the time and send it on its way. The caller has asked for admission
// before, so that nothing is built in vain. They throw `std::bad_alloc` when there is no memory for
// what has to be made of the event; it is lost then.

/// False, and nothing has happened, if the event is refused for want of room: where events may be
/// refused at all, and the room that is left belongs to ends.
bool TryToEmit(EventView& event);

/// The same for an event that others do without. One that is refused is counted.
void EmitAttribute(EventView& event);

/// For an event without which consumers would be wrong about others: it is never refused, and waits
/// for room when even that of the ends is full.
void EmitForSure(EventView& event);

/// For `InBatch`: whether the batch has begun, and `EndBatch` is to end it. Otherwise it is to be
/// delivered by `DeliverBatch`.
bool BeginBatch() noexcept;
void EndBatch() noexcept;
void DeliverBatch(void (*body)(const void*) noexcept, const void* context) noexcept;

/// Calls `body`, which must not throw. What the thread emits in it may be published together,
/// at the end, or delivered while no other thread delivers. So `body` must not synchronise with
/// other threads.
template <class Body>
void InBatch(const Body& body) noexcept {
    if (BeginBatch()) {
        body();
        EndBatch();
    } else {
        DeliverBatch([](const void* context) noexcept { (*static_cast<const Body*>(context))(); },
                     &body);
    }
}

/// For destructors: as `EmitForSure`, but a lost event is counted only. What happens at once may
/// share one look at the clock.
void EmitFromDestructor(EventView& event, const ClockReading& now) noexcept;

/// The same for a whole end: the statements, and then that it is over. For a batch.
void EmitEnd(EventView& close,
             const Scope::FinalEvent* statements,
             std::size_t count,
             const ClockReading& now) noexcept;

/// Both first have what is queued delivered, and wait for consumers that are busy until the exit
/// deadline. After that the next delivery makes the change.
void AddConsumer(const RefCntPtr<IMetricsListener>& listener, uint64 bits, bool everything);
bool RemoveConsumer(const RefCntPtr<IMetricsListener>& listener);

/// See `Metrics::Flush`. Where there is no delivering thread, the calling one delivers.
bool Flush(const Deadline& deadline) noexcept;

/// See `Metrics::CallBetweenDeliveries`.
bool CallBetweenDeliveries(const Deadline& deadline, const std::function<void()>& body) noexcept;

/// Waits until what other threads are just delivering has been through all consumers. Whether it
/// has come in time.
bool AwaitDelivery(const Deadline& deadline) noexcept;

/// Whether the calling thread is inside of a delivery.
bool IsDelivering() noexcept;

/// Events that are emitted from now on are lost and counted, because a consumer hangs; or not any
/// more.
void SetGivenUp(bool givenUp) noexcept;

/// Whether events are queued for the delivering thread.
void SetAsynchronous(bool asynchronous) noexcept;
void SetRefusing(bool refusing) noexcept;

}  // namespace Metrics::Bus
