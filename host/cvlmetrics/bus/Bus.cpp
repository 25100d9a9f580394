#include "Bus.h"

#include "DeliveringThread.h"
#include "DeliverySide.h"
#include "Dispatcher.h"
#include "EventCopy.h"
#include "EventQueues.h"
#include "ExitDeadline.h"
#include "LossReport.h"
#include "MetricsManagerAccess.h"
#include "QueueSide.h"

#include "cvlcoreplatform/host/InsideBackEnd.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/host/DeliveryGuard.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <new>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace Metrics::Bus {

using std::chrono::milliseconds;

namespace {

constinit std::atomic<bool> s_isRefusing{false};
constinit std::atomic<bool> s_isGivenUp{false};

constinit std::atomic<uint64> s_waits{0};
constinit std::atomic<uint64> s_waitedNanos{0};

// What this thread has emitted inside a log back end that it is still in.
constinit thread_local std::vector<MetricsEvent>* t_postponed = nullptr;

/// Says when it happened.
void Stamp(EventView& event, const ClockReading& now) noexcept {
    event.time = now.time;
    event.wallSeconds = now.wallSeconds;
    event.wallMicros = now.wallMicros;
}

void Wait(std::vector<MetricsEvent>& others, const EventView& event) {
    try {
        MetricsEvent waiting;
        Copy(event, waiting);
        others.push_back(std::move(waiting));
    } catch (const std::bad_alloc&) {
        LossReport::Count(LossReport::Loss::LostEvent);
        throw;
    }
}

void CountWait(std::chrono::steady_clock::duration time) noexcept {
    s_waits.fetch_add(1, std::memory_order_relaxed);
    s_waitedNanos.fetch_add(static_cast<uint64>(std::chrono::nanoseconds(time).count()),
                            std::memory_order_relaxed);
}

/// Sleeps until the event has found room. False if that is given up.
bool WaitForRoom(const EventView& event) {
    const auto begin = std::chrono::steady_clock::now();
    bool isQueued = false;
    EventQueues::Publish();  // lest the delivering thread has nothing to make room of
    while (!isQueued && !s_isGivenUp.load(std::memory_order_acquire)) {
        if (!DeliveringThread::WakeIfIdle()) {
            Dispatcher::Get().DeliverQueued();
        }
        EventQueues::WaitForRoom();
        isQueued = EventQueues::Append(event) == EventQueues::Outcome::Queued;
    }
    CountWait(std::chrono::steady_clock::now() - begin);
    return isQueued;
}

enum class Outcome { Queued, Refused, NoMemory };

/// Asks for room in the thread's queue; while there is none, waits for it or refuses the event.
Outcome TryToQueue(const EventView& event, bool mayBeRefused) {
    try {
        if (EventQueues::Append(event) == EventQueues::Outcome::NoRoom) {
            if (mayBeRefused) {
                return Outcome::Refused;
            }
            if (!WaitForRoom(event)) {
                LossReport::Count(LossReport::Loss::LostEvent);
            }
        }
        return Outcome::Queued;
    } catch (const std::bad_alloc&) {
        return Outcome::NoMemory;
    }
}

// Somebody has to deliver what was published.
void NoticeQueued() noexcept {
    if (!DeliveringThread::WakeIfIdle()) {
        Dispatcher::Get().DeliverQueued();
    }
}

void DeliverAtOnce(const EventView& event) {
    EventQueues::Publish();  // what this thread has emitted before comes first
    Dispatcher::Get().Deliver(event);
}

// False if the event was refused.
[[gnu::noinline]] bool QueueOrDeliver(const EventView& event, bool mayBeRefused) {
    const Outcome outcome = TryToQueue(event, mayBeRefused);
    if (outcome == Outcome::NoMemory) {
        // To deliver it at once, behind what is queued, needs less memory.
        DeliverAtOnce(event);
    } else if (outcome == Outcome::Queued && t_queueSide.batches == 0) {
        NoticeQueued();
    }
    return outcome != Outcome::Refused;
}

void DeliverPostponed() noexcept {
    const std::unique_ptr<std::vector<MetricsEvent>> events(std::exchange(t_postponed, nullptr));
    if (s_isGivenUp.load(std::memory_order_relaxed)) {
        for (std::size_t left = events->size(); left != 0; --left) {
            LossReport::Count(LossReport::Loss::LostEvent);
        }
        return;
    }
    EventQueues::Publish();
    Dispatcher::Get().Deliver(std::move(*events));
}

// Inside a log back end the thread holds a lock of the logger's, for which the holder of the bus's
// lock may be waiting.
void Postpone(const EventView& event) {
    if (t_postponed == nullptr) {
        t_postponed = new std::vector<MetricsEvent>;
        TLog::CallAfterBackEnd(DeliverPostponed);
    }
    Wait(*t_postponed, event);
}

[[gnu::noinline]] void EmitDirectly(const EventView& event) {
    if (t_deliverySide.delivery != nullptr) {
        Wait(t_deliverySide.delivery->waiting, event);
    } else if (TLog::IsInsideBackEnd()) {
        Postpone(event);
    } else if (t_deliverySide.ownDelivery != nullptr) {
        t_deliverySide.ownDelivery->Deliver(event);
    } else if (s_isGivenUp.load(std::memory_order_relaxed)) {
        LossReport::Count(LossReport::Loss::LostEvent);
    } else {
        DeliverAtOnce(event);
    }
}

bool IsQueuing(const DeliverySide& side) noexcept {
    return DeliveringThread::IsWanted() && !s_isGivenUp.load(std::memory_order_relaxed) &&
           side.delivery == nullptr && !side.neverQueues && !TLog::IsInsideBackEnd();
}

/// Sends a stamped event on its way. False if it was refused.
bool Send(const EventView& event, bool mayBeRefused) {
    if (!IsQueuing(t_deliverySide)) {
        EmitDirectly(event);
    } else if (!EventQueues::TryToAppend(event)) {
        return QueueOrDeliver(event, mayBeRefused);
    } else if (t_queueSide.batches == 0) {
        NoticeQueued();
    }
    return true;
}

bool IsRefusing() noexcept {
    return s_isRefusing.load(std::memory_order_relaxed) && t_deliverySide.delivery == nullptr;
}

/// Whether nothing is to be refused, or so many quarters of the thread's queue are free.
bool HasFreeQuarters(unsigned quarters) noexcept {
    return !IsRefusing() || EventQueues::HasFreeQuarters(quarters);
}

/// Delivers what is queued before the consumers change, if that is done in time.
void FlushQueues(const Deadline& deadline) noexcept {
    if (!IsDelivering() && EventQueues::GetQueuedCount() != EventQueues::GetTakenCount() &&
        !Flush(deadline)) {
        ExitDeadline::Miss();
    }
}

}  // namespace

bool Admits(uint64 flags) noexcept {
    return admission.Admits(flags);
}

bool AdmitsContextEvents() noexcept {
    return MetricsManagerAccess::ConsumerCount().load(std::memory_order_relaxed) != 0;
}

bool HasRoomForScope() noexcept {
    return !TLog::IsInsideBackEnd() && HasFreeQuarters(2);
}

bool HasRoomForContext() noexcept {
    return !TLog::IsInsideBackEnd() && HasFreeQuarters(1);
}

void CountRefusedScope() noexcept {
    if (TLog::IsInsideBackEnd()) {
        TLog::CountNestedCall();
    } else {
        LossReport::Count(LossReport::Loss::RefusedScope);
    }
}

void CountRefusedAttribute() noexcept {
    if (TLog::IsInsideBackEnd()) {
        TLog::CountNestedCall();
    } else {
        LossReport::Count(LossReport::Loss::RefusedAttribute);
    }
}

bool TryToEmit(EventView& event) {
    // The last quarter is left to ends, whatever the size of this event.
    const bool isRefusing = IsRefusing();
    if (isRefusing && !EventQueues::LeavesFreeQuarters(1, event)) {
        return false;
    }
    Stamp(event, ReadClock());
    return Send(event, isRefusing);
}

void EmitAttribute(EventView& event) {
    if (!TryToEmit(event)) {
        LossReport::Count(LossReport::Loss::RefusedAttribute);
    }
}

void EmitForSure(EventView& event) {
    Stamp(event, ReadClock());
    Send(event, false);
}

bool BeginBatch() noexcept {
    const DeliverySide& side = t_deliverySide;
    if (!IsQueuing(side) && side.delivery == nullptr && side.ownDelivery == nullptr &&
        !s_isGivenUp.load(std::memory_order_relaxed) && !TLog::IsInsideBackEnd()) {
        return false;
    }
    ++t_queueSide.batches;
    return true;
}

void EndBatch() noexcept {
    if (--t_queueSide.batches == 0 && EventQueues::Publish()) {
        NoticeQueued();
    }
}

void DeliverBatch(void (*body)(const void*) noexcept, const void* context) noexcept {
    Dispatcher::Get().DeliverBatch(body, context);
}

namespace {

// A destructor has nobody to tell, and a scope whose end is missing stays open for the consumers: a
// moment's wait for memory is better.
void SendAnyhow(const EventView& event) noexcept {
    constexpr int attempts = 20;
    constexpr milliseconds pause{1};
    for (int left = attempts; left != 0; --left) {
        try {
            Send(event, false);
            return;
        } catch (const std::bad_alloc&) {
            if (IsDelivering() || TLog::IsInsideBackEnd()) {
                return;  // it is counted, and a wait here would hold up everybody
            }
            std::this_thread::sleep_for(pause);
        }
    }
    LossReport::Count(LossReport::Loss::LostEvent);
}

/// Some of the events at least, if they may go out together.
bool SendTogether(EndEvents& events) noexcept {
    const DeliverySide& side = t_deliverySide;
    if (IsQueuing(side)) {
        if (!EventQueues::TryToAppend(events)) {
            return false;
        }
        events.TakeAll();
        return true;
    }
    return side.ownDelivery != nullptr && side.delivery == nullptr && !TLog::IsInsideBackEnd() &&
           side.ownDelivery->TryToLend(events);
}

}  // namespace

void EmitEnd(EventView& close,
             const Scope::FinalEvent* statements,
             std::size_t count,
             const ClockReading& now) noexcept {
    Stamp(close, now);
    EndEvents events(close, statements, count);
    while (!events.AreOver()) {
        if (!SendTogether(events)) {
            SendAnyhow(events.Take());
        }
    }
}

void EmitFromDestructor(EventView& event, const ClockReading& now) noexcept {
    Stamp(event, now);
    SendAnyhow(event);
}

void AddConsumer(const RefCntPtr<IMetricsListener>& listener, uint64 bits, bool everything) {
    const Deadline deadline = ExitDeadline::Begin();
    FlushQueues(deadline);
    Dispatcher::Get().AddConsumer({.listener = listener, .bits = bits, .everything = everything},
                                  deadline);
}

bool RemoveConsumer(const RefCntPtr<IMetricsListener>& listener) {
    const Deadline deadline = ExitDeadline::Begin();
    FlushQueues(deadline);
    return Dispatcher::Get().RemoveConsumer(listener, deadline);
}

bool Flush(const Deadline& deadline) noexcept {
    if (IsDelivering() || DeliveringThread::IsCurrent()) {
        return false;
    }
    if (const std::optional<bool> isDone = DeliveringThread::Flush(deadline)) {
        return *isDone;
    }
    const cvlsys::DeliveryGuard guard;
    if (!Dispatcher::Get().DeliverQueuedWithin(deadline)) {
        return false;
    }
    LossReport::Write();
    TLog::FlushLog();
    return true;
}

bool CallBetweenDeliveries(const Deadline& deadline, const std::function<void()>& body) noexcept {
    if (IsDelivering()) {
        body();
        return true;
    }
    const cvlsys::DeliveryGuard guard;
    return Dispatcher::Get().CallWithin(deadline, body);
}

bool AwaitDelivery(const Deadline& deadline) noexcept {
    const cvlsys::DeliveryGuard guard;
    return Dispatcher::Get().AwaitDeliveryWithin(deadline);
}

bool IsDelivering() noexcept {
    return t_deliverySide.delivery != nullptr;
}

void SetGivenUp(bool givenUp) noexcept {
    s_isGivenUp.store(givenUp, std::memory_order_release);
}

void SetAsynchronous(bool asynchronous) noexcept {
    DeliveringThread::SetWanted(asynchronous);
}

void SetRefusing(bool refusing) noexcept {
    s_isRefusing.store(refusing, std::memory_order_relaxed);
}

}  // namespace Metrics::Bus

namespace Metrics {

BusStatistics GetBusStatistics() noexcept {
    const Consumers& consumers = Bus::Dispatcher::Get().GetConsumers();
    return {.deliveredEvents = consumers.deliveredEvents.load(std::memory_order_relaxed),
            .consumerExceptions = consumers.exceptions.load(std::memory_order_relaxed),
            .lostEvents = LossReport::Get(LossReport::Loss::LostEvent),
            .refusedScopes = LossReport::Get(LossReport::Loss::RefusedScope),
            .refusedAttributes = LossReport::Get(LossReport::Loss::RefusedAttribute),
            .refusedPendingAttributes = LossReport::Get(LossReport::Loss::PendingAttribute),
            .waits = Bus::s_waits.load(std::memory_order_relaxed),
            .waitedNanoseconds = Bus::s_waitedNanos.load(std::memory_order_relaxed),
            .highestQueueFill = EventQueues::GetHighestFill(),
            .queues = EventQueues::GetCount()};
}

}  // namespace Metrics
