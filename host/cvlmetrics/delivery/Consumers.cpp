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

bool Consumer::Receives(const MetricsEvent& event) const noexcept {
    return everything || (event.flags & bits) != 0 || IsContextEvent(event.type);
}

void Consumers::Deliver(const MetricsEvent& event, List& retired) noexcept {
    CarryOutNotes(retired);
    // New consumers are appended, and no entry is removed before the walk is over.
    bool isDelivered = false;
    m_isWalking = true;
    auto consumer = m_list.begin();
    for (std::size_t left = m_list.size(); left > 0; --left, ++consumer) {
        if (consumer->isSubscribed && consumer->Receives(event)) {
            isDelivered = true;
            Call(*consumer->listener, event);
        }
    }
    m_isWalking = false;
    if (isDelivered) {
        // Only who holds the lock writes it.
        deliveredEvents.store(deliveredEvents.load(std::memory_order_relaxed) + 1,
                              std::memory_order_relaxed);
    }
    if (m_someHaveRetired) {
        SetRetiredAside(retired);
    }
    CarryOutNotes(retired);
}

void Consumers::Call(IMetricsListener& listener, const MetricsEvent& event) noexcept {
    try {
        listener.OnMetricsEvent(event);
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
        m_list.splice(m_list.end(), newcomer, newcomer.begin());
        MetricsManagerAccess::ConsumerCount().fetch_add(1, std::memory_order_relaxed);
    }
    PublishAdmission();
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
    PublishAdmission();
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
void Consumers::CarryOutNotes(List& retired) noexcept {
    if (!m_notesWait.load(std::memory_order_acquire)) {
        return;
    }
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
    PublishAdmission();
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

void Consumers::PublishAdmission() noexcept {
    uint64 bits = 0;
    bool everything = false;
    for (const Consumer& consumer : m_list) {
        if (consumer.isSubscribed) {
            bits |= consumer.bits;
            everything = everything || consumer.everything;
        }
    }
    m_admission.Publish(bits, everything);
}

}  // namespace Metrics
