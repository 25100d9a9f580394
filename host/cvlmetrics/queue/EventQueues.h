#pragma once

#include "EventQueue.h"

#include "cvlmetrics/LentEvent.h"
#include "cvlsys/IntegerTypes.h"

#include <cstddef>

/// The queues of all threads, and the one order of what is in them.
///
/// Each event draws a ticket, a number that counts up through the process, after it was written and
/// before it is published to the reader; the reader takes the events in the order of their tickets
/// and waits for one that is missing. So an event can overtake another one only if it draws its
/// ticket earlier, and that cannot be if the other one was emitted before: the ticket is drawn
/// before the emitting call returns, and a counter hands out its numbers in an order that every
/// hand-over between threads respects. Between drawing and publishing there is nothing that waits,
/// so a missing event is published at once, unless its thread is just not running.
namespace Metrics::EventQueues {

enum class Outcome { Queued, NoRoom };

// For the thread that emits.

/// `Append`, unless that takes more than to write the event, or the events of an end, into a queue
/// that is there and has room for any record. False then, and nothing has happened.
template <class Lent>
bool TryToAppend(const Lent& event) noexcept;
extern template bool TryToAppend(const EventView& event) noexcept;
extern template bool TryToAppend(const EndEvents& events) noexcept;

/// Appends an event to the calling thread's queue. Within a batch (`QueueSide::batches`) it
/// draws its ticket with the others, when `Publish` is called. Throws `std::bad_alloc` if
/// that needs memory and there is none.
Outcome Append(const EventView& event);

/// Publishes what the calling thread has appended since the last call. Whether there was anything.
bool Publish() noexcept;

/// Sleeps until there may be room in the calling thread's queue, for some milliseconds at most.
void WaitForRoom() noexcept;

/// Whether so many quarters of the calling thread's queue are free.
bool HasFreeQuarters(unsigned quarters) noexcept;

/// Whether an event that is appended now leaves so many quarters of the queue free.
bool LeavesFreeQuarters(unsigned quarters, const EventView& event) noexcept;

// For the thread that delivers; one at a time.

/// The next event of all; null when its thread has not published it yet, or nothing is queued.
EventRecord* Next() noexcept;

/// Takes the event that `Next` gave off its queue, and wakes the queue's thread if it waits for
/// room and has some.
void Pop() noexcept;

/// Goes on with the next published event when the one whose turn it is will never be: its
/// thread has crashed. If that one should come after all, it and what its thread emits stay queued
/// for good.
void PassOverMissing() noexcept;

/// Wakes all threads that wait for room and have some, for those that were just falling asleep.
void WakeWriters() noexcept;

/// Gives the memory of queues back whose threads have ended, but for some that are kept for the
/// next threads.
void DropUnused() noexcept;

// For every thread.

/// Whether there is anything for `DropUnused` to do.
bool HasUnused() noexcept;

/// How many queues there are, those that are kept included.
std::size_t GetCount() noexcept;

/// How many queues of threads that have ended are kept.
void SetKept(std::size_t count) noexcept;

/// How many events have been queued since the process started.
uint64 GetQueuedCount() noexcept;

/// How many of them have been taken off.
uint64 GetTakenCount() noexcept;

/// The room of a queue that is made from now on, in bytes.
void SetCapacity(std::size_t bytes) noexcept;

/// How much of a queue was in use at most, in bytes.
std::size_t GetHighestFill() noexcept;

/// Makes what deliveries and forks need, so that they need no memory for it. Throws
/// `std::bad_alloc`.
void Initialize();

// For a fork.

/// The parent delivers what is queued. The child forgets it, but for what its thread has queued of
/// scopes and contexts that are still open, if it `keepsOwn`: its consumers have not heard of them.
void StartAnewInChild(bool keepsOwn) noexcept;

/// Whether an event was queued before the fork, so that the parent's consumers receive it as well.
bool IsFromBeforeFork(uint64 ticket) noexcept;

}  // namespace Metrics::EventQueues
