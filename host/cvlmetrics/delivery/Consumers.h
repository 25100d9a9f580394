#pragma once

#include "Admission.h"

#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/LentEvent.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"
#include "cvlsys/host/ForkAwareMutex.h"

#include <atomic>
#include <list>

namespace Metrics {

/// A listener and what it wants to hear.
struct Consumer {
    RefCntPtr<IMetricsListener> listener;
    uint64 bits = 0;
    bool everything = false;
    bool isSubscribed = true;
    /// The same listener, if it reads events where they lie.
    ILentListener* reader = nullptr;

    bool Receives(uint64 flags, MetricsEventType type) const noexcept;
};

/// Who is subscribed. Callers hold the bus's lock, except where a function says otherwise.
class Consumers {
public:
    /// Keeps `admission` up to date.
    explicit Consumers(Admission& admission) noexcept : m_admission(admission) {}

    Consumers(const Consumers&) = delete;
    Consumers& operator=(const Consumers&) = delete;

    // A list, because entries are taken out without moving the others and without asking for
    // memory.
    using List = std::list<Consumer>;

    // Both call everybody who receives the event, in the order of their subscription. Consumers may
    // come and go meanwhile: newcomers start with the next event. Entries of those that went are
    // moved to `retired`, for the caller to drop once it has released the lock. What
    // `CarryOutNotes` does is done before.

    void Deliver(const MetricsEvent& event, List& retired) noexcept;

    /// `made` is the same event, for those who do not read it where it lies; it may be missing
    /// where `WantEvents` says so.
    void Deliver(const EventView& event, const MetricsEvent* made, List& retired) noexcept;

    /// Some of the events at least, to the one who is there if `IsOneReader` says so. Newcomers
    /// start behind what it takes.
    void Deliver(EndEvents& events, List& retired) noexcept;

    /// Whether there are consumers for which events must be made.
    bool WantEvents() const noexcept { return m_wantEvents; }

    /// Whether there is a single consumer, and that reads events where they lie.
    bool IsOneReader() const noexcept { return m_isOneReader; }

    /// Adds and removes those of whom others have taken note. For before each event.
    void CarryOutNotes(List& retired) noexcept {
        if (m_notesWait.load(std::memory_order_acquire)) {
            CarryOutEachNote(retired);
        }
    }

    /// Throws `std::bad_alloc`.
    void Add(Consumer newcomer, List& retired);

    /// Moves the listener's entry to `retired`; called by a listener, as soon as the current event
    /// is through. It is not called any more. False when it was not subscribed.
    bool Remove(const IMetricsListener& listener, List& retired) noexcept;

    // For any thread, without the lock: they take note of a change that is carried out, in the
    // order of the notes, when the current event is through and before the next one. Both throw
    // `std::bad_alloc`.

    void AddLater(Consumer newcomer);
    void RemoveLater(const RefCntPtr<IMetricsListener>& listener);

    /// For a forked child whose parent's thread was inside a listener: those that were subscribed
    /// are left as they are, and nobody is subscribed any more.
    void ForgetAll() noexcept;

    // Any thread reads them without the lock.
    std::atomic<uint64> deliveredEvents{0};
    std::atomic<uint64> exceptions{0};

private:
    // Whether there was one.
    template <class Call>
    bool ForEachReceiver(uint64 flags,
                         MetricsEventType type,
                         List& retired,
                         const Call& call) noexcept;
    template <class Call>
    void Attempt(const Call& call) noexcept;
    void CountDelivered(uint64 events) noexcept;
    void ReportException(const char* what) noexcept;
    void NoteChange(Consumer change);
    void CarryOutEachNote(List& retired) noexcept;
    void Put(List& newcomer) noexcept;
    bool TakeOut(const IMetricsListener& listener, List& retired) noexcept;
    void SetRetiredAside(List& retired) noexcept;
    List::iterator Find(const IMetricsListener& listener) noexcept;
    // What the consumers want together.
    void SumUp() noexcept;

    List m_list;
    // Whether a walk along the list is under way: entries must stay where they are.
    bool m_isWalking = false;
    bool m_someHaveRetired = false;
    bool m_wantEvents = false;
    bool m_isOneReader = false;
    Admission& m_admission;

    // An entry that is subscribed is to be added, one that is not names a listener to remove.
    std::atomic<bool> m_notesWait{false};
    cvlsys::ForkAwareMutex m_notesMutex{cvlsys::ForkRank::Removals};
    List m_notes;
};

}  // namespace Metrics
