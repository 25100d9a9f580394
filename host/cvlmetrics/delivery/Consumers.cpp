#include "Consumers.h"

#include "MetricsManagerAccess.h"

#include "cvlcoreplatform/TLogger.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace Metrics {

namespace {

bool IsContextEvent(MetricsEventType type) noexcept {
    return type == MetricsEventType::CreateContext || type == MetricsEventType::OpenContext ||
           type == MetricsEventType::CloseContext;
}

}  // namespace

bool Consumer::Receives(uint64 flags, MetricsEventType type) const noexcept {
    return everything || (flags & bits) != 0 || IsContextEvent(type);
}

template <class Call>
[[gnu::always_inline]] inline bool Consumers::ForEachReceiver(uint64 flags,
                                                              MetricsEventType type,
                                                              List& retired,
                                                              const Call& call) noexcept {
    // New consumers are appended, and no entry is removed before the walk is over.
    bool isDelivered = false;
    m_isWalking = true;
    auto consumer = m_list.begin();
    for (std::size_t left = m_list.size(); left > 0; --left, ++consumer) {
        if (consumer->isSubscribed && consumer->Receives(flags, type)) {
            isDelivered = true;
            Attempt([&call, &consumer] { call(*consumer); });
        }
    }
    m_isWalking = false;
    if (m_someHaveRetired) {
        SetRetiredAside(retired);
    }
    CarryOutNotes(retired);
    return isDelivered;
}

inline void Consumers::CountDelivered(uint64 events) noexcept {
    // Only who holds the lock writes it.
    deliveredEvents.store(deliveredEvents.load(std::memory_order_relaxed) + events,
                          std::memory_order_relaxed);
}

void Consumers::Deliver(const MetricsEvent& event, List& retired) noexcept {
    CountDelivered(
        ForEachReceiver(event.flags, event.type, retired, [&event](const Consumer& consumer) {
            consumer.listener->OnMetricsEvent(event);
        }));
}

void Consumers::Deliver(const EventView& event, const MetricsEvent* made, List& retired) noexcept {
    CountDelivered(
        ForEachReceiver(event.flags, event.type, retired, [&event, made](const Consumer& consumer) {
            if (consumer.reader != nullptr) {
                consumer.reader->OnLentEvent(event);
            } else {
                consumer.listener->OnMetricsEvent(*made);
            }
        }));
}

void Consumers::Deliver(EndEvents& events, List& retired) noexcept {
    const std::size_t before = events.CountLeft();
    const EventView& close = events.GetClose();
    if (!ForEachReceiver(close.flags, close.type, retired, [&events](const Consumer& consumer) {
            consumer.reader->OnLentEnd(events);
        })) {
        return events.TakeAll();
    }
    if (events.CountLeft() == before) {
        static_cast<void>(events.Take());  // the call came to nothing
    }
    CountDelivered(before - events.CountLeft());
}

template <class Call>
inline void Consumers::Attempt(const Call& call) noexcept {
    try {
        call();
    } catch (const std::exception& exception) {
        ReportException(exception.what());
    } catch (...) {
        ReportException("an object that is no std::exception");
    }
}

void Consumers::ReportException(const char* what) noexcept {
    exceptions.fetch_add(1, std::memory_order_relaxed);
    TLog::Logger& logger = TLog::Logger::Get();
    if (!logger.IsEnabled(TLog::Warn)) {
        return;
    }
    try {
        const std::string text = std::string("A listener of the metrics bus threw: ") + what;
        logger.LogMessage(TLog::Warn, TString(text));
    } catch (const std::bad_alloc&) {
        // It is counted all the same.
    }
}

void Consumers::Add(Consumer newcomer, List& retired) {
    List list;
    list.push_back(std::move(newcomer));
    CarryOutNotes(retired);
    Put(list);
}

void Consumers::Put(List& newcomer) noexcept {
    const auto known = Find(*newcomer.front().listener);
    if (known != m_list.end()) {
        known->bits = newcomer.front().bits;
        known->everything = newcomer.front().everything;
    } else {
        Consumer& added = newcomer.front();
        added.reader = dynamic_cast<ILentListener*>(added.listener.Get());
        m_list.splice(m_list.end(), newcomer, newcomer.begin());
        MetricsManagerAccess::ConsumerCount().fetch_add(1, std::memory_order_relaxed);
    }
    SumUp();
}

bool Consumers::Remove(const IMetricsListener& listener, List& retired) noexcept {
    CarryOutNotes(retired);
    return TakeOut(listener, retired);
}

bool Consumers::TakeOut(const IMetricsListener& listener, List& retired) noexcept {
    const auto consumer = Find(listener);
    if (consumer == m_list.end()) {
        return false;
    }
    consumer->isSubscribed = false;
    if (m_isWalking) {
        // Perhaps this thread is inside of this very listener.
        m_someHaveRetired = true;
    } else {
        retired.splice(retired.end(), m_list, consumer);
    }
    MetricsManagerAccess::ConsumerCount().fetch_sub(1, std::memory_order_relaxed);
    SumUp();
    return true;
}

void Consumers::AddLater(Consumer newcomer) {
    NoteChange(std::move(newcomer));
}

void Consumers::RemoveLater(const RefCntPtr<IMetricsListener>& listener) {
    NoteChange({.listener = listener, .isSubscribed = false});
}

void Consumers::NoteChange(Consumer change) {
    List note;
    note.push_back(std::move(change));
    const std::lock_guard lock(m_notesMutex);
    m_notes.splice(m_notes.end(), note);
    m_notesWait.store(true, std::memory_order_release);
}

// What is left of the notes is the last that refers to some listeners, whose destructors may do
// anything.
void Consumers::CarryOutEachNote(List& retired) noexcept {
    const std::lock_guard lock(m_notesMutex);
    while (!m_notes.empty()) {
        List note;
        note.splice(note.begin(), m_notes, m_notes.begin());
        if (note.front().isSubscribed) {
            Put(note);
        } else {
            TakeOut(*note.front().listener, retired);
        }
        retired.splice(retired.end(), note);
    }
    m_notesWait.store(false, std::memory_order_relaxed);
}

void Consumers::ForgetAll() noexcept {
    new (&m_list) List;
    m_someHaveRetired = false;
    MetricsManagerAccess::ConsumerCount().store(0, std::memory_order_relaxed);
    SumUp();
}

void Consumers::SetRetiredAside(List& retired) noexcept {
    for (auto consumer = m_list.begin(); consumer != m_list.end();) {
        const auto next = std::next(consumer);
        if (!consumer->isSubscribed) {
            retired.splice(retired.end(), m_list, consumer);
        }
        consumer = next;
    }
    m_someHaveRetired = false;
}

Consumers::List::iterator Consumers::Find(const IMetricsListener& listener) noexcept {
    return std::find_if(m_list.begin(), m_list.end(), [&](const Consumer& consumer) {
        return consumer.isSubscribed && consumer.listener.Get() == &listener;
    });
}

void Consumers::SumUp() noexcept {
    uint64 bits = 0;
    bool everything = false;
    std::size_t subscribed = 0;
    m_wantEvents = false;
    for (const Consumer& consumer : m_list) {
        if (consumer.isSubscribed) {
            ++subscribed;
            m_wantEvents = m_wantEvents || consumer.reader == nullptr;
            bits |= consumer.bits;
            everything = everything || consumer.everything;
        }
    }
    m_isOneReader = subscribed == 1 && !m_wantEvents;
    m_admission.Publish(bits, everything);
}

}  // namespace Metrics
