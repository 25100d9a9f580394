#pragma once

#include "Admission.h"

#include "cvlmetrics/IMetricsListener.h"
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

    bool Receives(const MetricsEvent& event) const noexcept;
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

    /// Calls everybody who receives the event, in the order of their subscription. Consumers may
    /// come and go meanwhile: newcomers start with the next event. Entries of those that went are
    /// moved to `retired`, for the caller to drop once it has released the lock.
    void Deliver(const MetricsEvent& event, List& retired) noexcept;

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
    void Call(IMetricsListener& listener, const MetricsEvent& event) noexcept;
    void ReportException(const char* what) noexcept;
    void NoteChange(Consumer change);
    void CarryOutNotes(List& retired) noexcept;
    void Put(List& newcomer) noexcept;
    bool TakeOut(const IMetricsListener& listener, List& retired) noexcept;
    void SetRetiredAside(List& retired) noexcept;
    List::iterator Find(const IMetricsListener& listener) noexcept;
    void PublishAdmission() noexcept;

    List m_list;
    // Whether a walk along the list is under way: entries must stay where they are.
    bool m_isWalking = false;
    bool m_someHaveRetired = false;
    Admission& m_admission;

    // An entry that is subscribed is to be added, one that is not names a listener to remove.
    std::atomic<bool> m_notesWait{false};
    cvlsys::ForkAwareMutex m_notesMutex{cvlsys::ForkRank::Removals};
    List m_notes;
};

}  // namespace Metrics
