#pragma once

#include "Admission.h"

#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/RefCntObject.h"

#include <atomic>
#include <list>
#include <mutex>

namespace Metrics {

/// A listener and what it wants to hear.
struct Consumer {
    RefCntPtr<IMetricsListener> listener;
    uint64 bits = 0;
    bool everything = false;
    bool isSubscribed = true;

    bool Receives(const MetricsEvent& event) const noexcept;
};

/// Who is subscribed. Whoever calls holds the bus's lock, except where a function says otherwise.
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

    void Add(const RefCntPtr<IMetricsListener>& listener,
             uint64 bits,
             bool everything,
             List& retired);

    /// Moves the listener's entry to `retired`; with `isDelivering` it keeps its place for now and
    /// is not called any more. False when it was not subscribed.
    bool Remove(const IMetricsListener& listener, bool isDelivering, List& retired) noexcept;

    /// For any thread, without the lock: takes note of a removal that is carried out before the
    /// next event is delivered. Throws `std::bad_alloc`.
    void RemoveLater(const RefCntPtr<IMetricsListener>& listener);

    // Any thread reads them without the lock.
    std::atomic<uint64> deliveredEvents{0};
    std::atomic<uint64> exceptions{0};

private:
    void Call(IMetricsListener& listener, const MetricsEvent& event) noexcept;
    void ReportException(const char* what) noexcept;
    void CarryOutRemovals(List& retired) noexcept;
    void SetRetiredAside(List& retired) noexcept;
    List::iterator Find(const IMetricsListener& listener) noexcept;
    void PublishAdmission() noexcept;

    List m_list;
    bool m_someHaveRetired = false;
    Admission& m_admission;

    std::atomic<bool> m_removalsWait{false};
    std::mutex m_removalsMutex;
    List m_removals;
};

}  // namespace Metrics
