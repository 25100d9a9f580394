#include "Bus.h"

#include "Admission.h"
#include "MetricsManagerAccess.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlmetrics/host/Clock.h"
#include "cvlmetrics/host/Statistics.h"
#include "cvlsys/host/MemoryCharging.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <list>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Metrics::Bus {

namespace {

struct Consumer {
    RefCntPtr<IMetricsListener> listener;
    uint64 bits = 0;
    bool everything = false;
    bool isSubscribed = true;

    bool Receives(const MetricsEvent& event) const noexcept {
        return everything || (event.flags & bits) != 0 || IsContextEvent(event.type);
    }

    static bool IsContextEvent(MetricsEventType type) noexcept {
        return type == MetricsEventType::CreateContext || type == MetricsEventType::OpenContext ||
               type == MetricsEventType::CloseContext;
    }
};

// A list, because entries are taken out without moving the others and without asking for memory.
using Consumers = std::list<Consumer>;

/// What one thread's delivery gathers until it is over.
struct Delivery {
    std::vector<MetricsEvent> waiting;  ///< emitted on this thread in the meantime, in order
    Consumers retired;                  ///< unsubscribed in the meantime
};

constinit Admission s_admission;

constinit std::atomic<uint64> s_deliveredEvents{0};
constinit std::atomic<uint64> s_consumerExceptions{0};
constinit std::atomic<uint64> s_lostEvents{0};

// Set exactly while this thread holds the bus's mutex for a delivery.
constinit thread_local Delivery* t_delivery = nullptr;

// Around the calls of the consumers. The host's errno is nobody else's business, and a thread that
// is cancelled must not unwind out of a destructor.
class CurrentDelivery {
public:
    explicit CurrentDelivery(Delivery& delivery) noexcept {
        t_delivery = &delivery;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelState);
    }

    ~CurrentDelivery() {
        pthread_setcancelstate(m_cancelState, nullptr);
        t_delivery = nullptr;
        errno = m_errno;
    }

    CurrentDelivery(const CurrentDelivery&) = delete;
    CurrentDelivery& operator=(const CurrentDelivery&) = delete;

private:
    int m_errno = errno;
    int m_cancelState = PTHREAD_CANCEL_ENABLE;
};

void Wait(Delivery& delivery, MetricsEvent&& event) {
    try {
        delivery.waiting.push_back(std::move(event));
    } catch (const std::bad_alloc&) {
        s_lostEvents.fetch_add(1, std::memory_order_relaxed);
        throw;
    }
}

void ReportException(const char* what) noexcept {
    s_consumerExceptions.fetch_add(1, std::memory_order_relaxed);
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

void Call(IMetricsListener& listener, const MetricsEvent& event) noexcept {
    try {
        listener.OnMetricsEvent(event);
    } catch (const std::exception& exception) {
        ReportException(exception.what());
    } catch (...) {
        ReportException("an object that is no std::exception");
    }
}

/// The consumers and the lock under which they are read, changed and called. There is one, made at
/// first use and never destroyed.
class Dispatcher {
public:
    static Dispatcher& Get() {
        static Dispatcher& dispatcher = *new Dispatcher;
        return dispatcher;
    }

    void Deliver(const MetricsEvent& event) noexcept;

    void AddConsumer(const RefCntPtr<IMetricsListener>& listener, uint64 bits, bool everything);
    bool RemoveConsumer(const IMetricsListener& listener);

    void KeepParent(uint64 contextId, uint64 parentId);
    uint64 TakeParent(uint64 contextId) noexcept;

private:
    Dispatcher();
    ~Dispatcher() = default;

    // A thread that is delivering holds the mutex already.
    std::unique_lock<std::mutex> Lock() noexcept {
        return t_delivery == nullptr ? std::unique_lock(m_mutex) : std::unique_lock<std::mutex>();
    }

    void DeliverToConsumers(const MetricsEvent& event, Delivery& delivery) noexcept;
    void SetRetiredAside(Delivery& delivery) noexcept;
    Consumers::iterator Find(const IMetricsListener& listener) noexcept;
    void PublishAdmission() noexcept;

    std::mutex m_mutex;
    Consumers m_consumers;
    bool m_someHaveRetired = false;
    std::unordered_map<uint64, uint64> m_parents;
    std::atomic<std::size_t> m_parentCount{0};
};

// A child that is forked while another thread delivers would find the mutex locked for ever. So the
// forking thread takes it first, unless it is itself the one that delivers.
Dispatcher::Dispatcher() {
    static constexpr auto lock = [] {
        if (t_delivery == nullptr) {
            Get().m_mutex.lock();
        }
    };
    static constexpr auto unlock = [] {
        if (t_delivery == nullptr) {
            Get().m_mutex.unlock();
        }
    };
    if (pthread_atfork(lock, unlock, unlock) != 0) {
        throw std::bad_alloc();
    }
}

void Dispatcher::Deliver(const MetricsEvent& event) noexcept {
    // Outlives the lock: the destructor of a listener that goes with its last reference here may do
    // anything, waiting for other threads included.
    Delivery delivery;

    const std::lock_guard lock(m_mutex);
    const CurrentDelivery current(delivery);
    const corvala::memory::UnchargedAllocations uncharged;

    DeliverToConsumers(event, delivery);
    while (!delivery.waiting.empty()) {
        // What is emitted from here on waits behind the whole batch.
        const std::vector<MetricsEvent> batch = std::exchange(delivery.waiting, {});
        for (const MetricsEvent& waiting : batch) {
            DeliverToConsumers(waiting, delivery);
        }
    }
}

void Dispatcher::DeliverToConsumers(const MetricsEvent& event, Delivery& delivery) noexcept {
    // Listeners may subscribe and unsubscribe meanwhile: newcomers stand at the end and start with
    // the next event, and nobody's entry goes away before the walk is over.
    bool isDelivered = false;
    auto consumer = m_consumers.begin();
    for (std::size_t left = m_consumers.size(); left > 0; --left, ++consumer) {
        if (consumer->isSubscribed && consumer->Receives(event)) {
            isDelivered = true;
            Call(*consumer->listener, event);
        }
    }
    if (isDelivered) {
        // Only the thread that holds the mutex writes it.
        s_deliveredEvents.store(s_deliveredEvents.load(std::memory_order_relaxed) + 1,
                                std::memory_order_relaxed);
    }
    if (m_someHaveRetired) {
        SetRetiredAside(delivery);
    }
}

void Dispatcher::SetRetiredAside(Delivery& delivery) noexcept {
    for (auto consumer = m_consumers.begin(); consumer != m_consumers.end();) {
        const auto next = std::next(consumer);
        if (!consumer->isSubscribed) {
            delivery.retired.splice(delivery.retired.end(), m_consumers, consumer);
        }
        consumer = next;
    }
    m_someHaveRetired = false;
}

void Dispatcher::AddConsumer(const RefCntPtr<IMetricsListener>& listener,
                             uint64 bits,
                             bool everything) {
    Consumers newcomer;
    newcomer.push_back({.listener = listener, .bits = bits, .everything = everything});

    const auto lock = Lock();
    const auto known = Find(*listener);
    if (known != m_consumers.end()) {
        known->bits = bits;
        known->everything = everything;
    } else {
        m_consumers.splice(m_consumers.end(), newcomer);
        MetricsManagerAccess::ConsumerCount().fetch_add(1, std::memory_order_relaxed);
    }
    PublishAdmission();
}

bool Dispatcher::RemoveConsumer(const IMetricsListener& listener) {
    Consumers retired;  // outlives the lock, as in a delivery

    const auto lock = Lock();
    const auto consumer = Find(listener);
    if (consumer == m_consumers.end()) {
        return false;
    }
    consumer->isSubscribed = false;
    if (t_delivery == nullptr) {
        retired.splice(retired.end(), m_consumers, consumer);
    } else {
        // This thread stands in the middle of the list, perhaps inside of this very listener.
        m_someHaveRetired = true;
    }
    MetricsManagerAccess::ConsumerCount().fetch_sub(1, std::memory_order_relaxed);
    PublishAdmission();
    return true;
}

Consumers::iterator Dispatcher::Find(const IMetricsListener& listener) noexcept {
    return std::find_if(m_consumers.begin(), m_consumers.end(), [&](const Consumer& consumer) {
        return consumer.isSubscribed && consumer.listener.Get() == &listener;
    });
}

void Dispatcher::PublishAdmission() noexcept {
    uint64 bits = 0;
    bool everything = false;
    for (const Consumer& consumer : m_consumers) {
        if (consumer.isSubscribed) {
            bits |= consumer.bits;
            everything = everything || consumer.everything;
        }
    }
    s_admission.Publish(bits, everything);
}

void Dispatcher::KeepParent(uint64 contextId, uint64 parentId) {
    const auto lock = Lock();
    m_parents.emplace(contextId, parentId);
    m_parentCount.store(m_parents.size(), std::memory_order_relaxed);
}

uint64 Dispatcher::TakeParent(uint64 contextId) noexcept {
    // Nearly every context is a root. Whoever passes a child's id to another thread also makes the
    // count visible there.
    if (m_parentCount.load(std::memory_order_relaxed) == 0) {
        return 0;
    }
    const auto lock = Lock();
    const auto kept = m_parents.extract(contextId);
    m_parentCount.store(m_parents.size(), std::memory_order_relaxed);
    return kept.empty() ? 0 : kept.mapped();
}

}  // namespace

bool Admits(uint64 flags) noexcept {
    return s_admission.Admits(flags);
}

bool AdmitsContextEvents() noexcept {
    return MetricsManager::GetInstance().GetConsumerCount() != 0;
}

void Emit(MetricsEvent&& event) {
    const ClockReading now = ReadClock();
    event.time = now.time;
    event.wallSeconds = now.wallSeconds;
    event.wallMicros = now.wallMicros;

    if (t_delivery != nullptr) {
        Wait(*t_delivery, std::move(event));
    } else {
        Dispatcher::Get().Deliver(event);
    }
}

void EmitFromDestructor(MetricsEvent&& event) noexcept {
    try {
        Emit(std::move(event));
    } catch (const std::bad_alloc&) {
        // It is counted; a destructor has nobody to tell.
    }
}

void AddConsumer(const RefCntPtr<IMetricsListener>& listener, uint64 bits, bool everything) {
    Dispatcher::Get().AddConsumer(listener, bits, everything);
}

bool RemoveConsumer(const IMetricsListener& listener) {
    return Dispatcher::Get().RemoveConsumer(listener);
}

void KeepParent(uint64 contextId, uint64 parentId) {
    Dispatcher::Get().KeepParent(contextId, parentId);
}

uint64 TakeParent(uint64 contextId) noexcept {
    return Dispatcher::Get().TakeParent(contextId);
}

}  // namespace Metrics::Bus

namespace Metrics {

BusStatistics GetBusStatistics() noexcept {
    return {.deliveredEvents = Bus::s_deliveredEvents.load(std::memory_order_relaxed),
            .consumerExceptions = Bus::s_consumerExceptions.load(std::memory_order_relaxed),
            .lostEvents = Bus::s_lostEvents.load(std::memory_order_relaxed)};
}

}  // namespace Metrics
