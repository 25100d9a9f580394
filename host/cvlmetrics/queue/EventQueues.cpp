#include "EventQueues.h"

#include "QueueSide.h"
#include "ThreadEnd.h"

#include "cvlsys/host/ForkAwareMutex.h"
#include "cvlsys/host/MemoryCharging.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace Metrics {

constinit thread_local QueueSide t_queueSide;

}  // namespace Metrics

namespace Metrics::EventQueues {

namespace {

constexpr uint64 unknown = std::numeric_limits<uint64>::max();

constinit std::atomic<std::size_t> s_capacity{std::size_t{256} << 10};
constinit std::atomic<std::size_t> s_kept{4};

// How many queues have no thread.
constinit std::atomic<std::size_t> s_withoutOwner{0};

/// A number on cache lines of its own; processors fetch them in pairs.
struct alignas(128) LoneNumber {
    std::atomic<uint64> value{0};
};

// Every emitting thread writes the one, every delivery the other.
constinit LoneNumber s_ticketsDrawn;
constinit LoneNumber s_eventsTaken;
constinit std::atomic<uint64>& s_tickets = s_ticketsDrawn.value;
constinit std::atomic<uint64>& s_taken = s_eventsTaken.value;

/// All queues there are. Made at first use, never destroyed.
class Registry {
public:
    static Registry& Get() {
        static Registry& registry = *new Registry;
        return registry;
    }

    /// A queue for the calling thread: that of a thread that has ended if there is one of the size.
    EventQueue& Acquire();

    // For the delivering role.
    EventRecord* Next() noexcept;
    void Pop() noexcept;
    void PassOverMissing() noexcept;
    void WakeWriters() noexcept;
    void DropUnused() noexcept;

    std::size_t GetHighestFill();

    std::size_t GetCount() const noexcept { return m_queueCount.load(std::memory_order_relaxed); }

    void StartAnewInChild(const EventQueue* kept) noexcept;

private:
    /// A queue and its oldest event, as far as the reader has looked.
    struct Source {
        EventQueue* queue;
        EventRecord* oldest = nullptr;
        uint64 ticket = unknown;

        void LookAgain() noexcept {
            oldest = queue->Peek();
            ticket = oldest == nullptr ? unknown : oldest->GetTicket();
        }
    };

    EventRecord* FindNext() noexcept;
    void LookForNewEvents() noexcept;
    void TakeInNewQueues() noexcept;

    cvlsys::ForkAwareMutex m_mutex{cvlsys::ForkRank::Queues};
    std::vector<std::unique_ptr<EventQueue>> m_queues;
    // What a fork has left in the child: other threads' queues, perhaps half written.
    std::vector<std::unique_ptr<EventQueue>> m_abandoned;
    std::atomic<std::size_t> m_queueCount{0};
    std::size_t m_highestFillOfDropped = 0;

    // Of the delivering role.
    std::vector<Source> m_sources;
    Source* m_current = nullptr;
};

// Sources have room for all queues from the beginning, so that delivering asks for no memory.
EventQueue& Registry::Acquire() {
    const corvala::memory::UnchargedAllocations uncharged;
    const std::size_t capacity =
        EventQueue::CapacityFor(s_capacity.load(std::memory_order_relaxed));
    const std::lock_guard lock(m_mutex);
    for (const auto& queue : m_queues) {
        if (queue->GetCapacity() == capacity && !queue->hasOwner.load(std::memory_order_acquire)) {
            queue->hasOwner.store(true, std::memory_order_relaxed);
            s_withoutOwner.fetch_sub(1, std::memory_order_relaxed);
            return *queue;
        }
    }
    m_queues.push_back(std::make_unique<EventQueue>(capacity));
    m_queueCount.store(m_queues.size(), std::memory_order_release);
    return *m_queues.back();
}

EventRecord* Registry::Next() noexcept {
    if (EventRecord* const record = FindNext()) {
        return record;
    }
    if (s_tickets.load(std::memory_order_acquire) == s_taken.load(std::memory_order_relaxed)) {
        return nullptr;
    }
    LookForNewEvents();
    return FindNext();
}

EventRecord* Registry::FindNext() noexcept {
    const uint64 ticket = s_taken.load(std::memory_order_relaxed);
    if (m_current == nullptr || m_current->ticket != ticket) {
        const auto found =
            std::find_if(m_sources.begin(), m_sources.end(), [ticket](const Source& source) {
                return source.ticket == ticket;
            });
        m_current = found == m_sources.end() ? nullptr : &*found;
    }
    return m_current == nullptr ? nullptr : m_current->oldest;
}

void Registry::LookForNewEvents() noexcept {
    if (m_queueCount.load(std::memory_order_acquire) != m_sources.size()) {
        TakeInNewQueues();
    }
    for (Source& source : m_sources) {
        if (source.ticket == unknown) {
            source.LookAgain();
        }
    }
}

void Registry::TakeInNewQueues() noexcept {
    const std::lock_guard lock(m_mutex);
    m_current = nullptr;
    try {
        m_sources.reserve(m_queues.size());
    } catch (const std::bad_alloc&) {
        return;  // the events stay where they are until there is memory again
    }
    for (std::size_t i = m_sources.size(); i < m_queues.size(); ++i) {
        m_sources.push_back({.queue = m_queues[i].get()});
    }
}

void Registry::Pop() noexcept {
    m_current->queue->Pop();
    m_current->queue->WakeWriter();
    m_current->LookAgain();
    s_taken.store(s_taken.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

// An event that was passed over as missing, and has come after all, does not set the order.
void Registry::PassOverMissing() noexcept {
    const uint64 taken = s_taken.load(std::memory_order_relaxed);
    uint64 next = s_tickets.load(std::memory_order_acquire);
    LookForNewEvents();
    for (const Source& source : m_sources) {
        if (source.ticket >= taken) {
            next = std::min(next, source.ticket);
        }
    }
    s_taken.store(next, std::memory_order_release);
}

void Registry::WakeWriters() noexcept {
    for (const Source& source : m_sources) {
        source.queue->WakeWriter();
    }
}

// What the reader has not taken in yet is new, and in use.
void Registry::DropUnused() noexcept {
    const corvala::memory::UnchargedAllocations uncharged;
    const std::lock_guard lock(m_mutex);
    std::size_t toKeep = s_kept.load(std::memory_order_relaxed);
    for (std::size_t i = m_sources.size(); i-- != 0;) {
        EventQueue& queue = *m_queues[i];
        if (queue.hasOwner.load(std::memory_order_acquire) || queue.Peek() != nullptr) {
            continue;
        }
        if (toKeep != 0) {
            --toKeep;
            continue;
        }
        m_highestFillOfDropped = std::max(m_highestFillOfDropped, queue.GetHighestFill());
        m_sources.erase(m_sources.begin() + static_cast<std::ptrdiff_t>(i));
        m_queues.erase(m_queues.begin() + static_cast<std::ptrdiff_t>(i));
        s_withoutOwner.fetch_sub(1, std::memory_order_relaxed);
    }
    m_current = nullptr;
    m_queueCount.store(m_queues.size(), std::memory_order_release);
}

std::size_t Registry::GetHighestFill() {
    const std::lock_guard lock(m_mutex);
    std::size_t highest = m_highestFillOfDropped;
    for (const auto& queue : m_queues) {
        highest = std::max(highest, queue->GetHighestFill());
    }
    return highest;
}

void Registry::StartAnewInChild(const EventQueue* kept) noexcept {
    m_sources.clear();
    m_current = nullptr;
    std::unique_ptr<EventQueue> own;
    const auto found = std::find_if(m_queues.begin(), m_queues.end(), [kept](const auto& queue) {
        return queue.get() == kept;
    });
    if (found != m_queues.end()) {
        own = std::move(*found);
        m_queues.erase(found);
    }
    // Kept within reach: what they hold belongs to the parent's threads.
    try {
        m_abandoned.reserve(m_abandoned.size() + m_queues.size());
        std::move(m_queues.begin(), m_queues.end(), std::back_inserter(m_abandoned));
    } catch (const std::bad_alloc&) {
        for (auto& queue : m_queues) {
            static_cast<void>(queue.release());
        }
    }
    m_queues.clear();
    if (own != nullptr) {
        m_queues.push_back(std::move(own));  // it has room for one that it had before
    }
    m_queueCount.store(m_queues.size(), std::memory_order_relaxed);
    s_withoutOwner.store(0, std::memory_order_relaxed);
}

/// For what a thread emits after it has torn its own queue down. Threads take turns in writing it.
struct LateQueue {
    cvlsys::ForkAwareMutex mutex{cvlsys::ForkRank::LateQueue};
    EventQueue* queue = nullptr;
};

LateQueue& GetLateQueue() {
    static LateQueue& late = *new LateQueue;
    return late;
}

/// A thread's own queue, which outlives it and goes to another one.
struct Ownership {
    static void AtThreadEnd() noexcept {
        if (EventQueue* const queue = std::exchange(t_queueSide.queue, nullptr)) {
            // Before: who takes the queue over counts it down.
            s_withoutOwner.fetch_add(1, std::memory_order_relaxed);
            queue->hasOwner.store(false, std::memory_order_release);
        }
    }
};

[[gnu::noinline]] EventQueue* AcquireQueue() {
    if (!host::ThreadEnd<Ownership>::Watch()) {
        return nullptr;
    }
    t_queueSide.queue = &Registry::Get().Acquire();
    return t_queueSide.queue;
}

/// The calling thread's own queue; null once the thread has torn it down.
EventQueue* OwnQueue() {
    EventQueue* const queue = t_queueSide.queue;
    return queue != nullptr ? queue : AcquireQueue();
}

// The tickets are drawn between writing and publishing, see the header.
void PublishPrepared(EventQueue& queue) noexcept {
    queue.Publish(s_tickets.fetch_add(queue.GetPreparedCount(), std::memory_order_seq_cst));
}

/// Does something with the calling thread's queue, or with the one that threads share at their end.
template <class Action>
auto WithQueue(const Action& action) {
    if (EventQueue* const own = OwnQueue()) {
        return action(*own);
    }
    LateQueue& late = GetLateQueue();
    const std::lock_guard lock(late.mutex);
    if (late.queue == nullptr) {
        late.queue = &Registry::Get().Acquire();
    }
    return action(*late.queue);
}

}  // namespace

template <class Lent>
bool TryToAppend(const Lent& event) noexcept {
    EventQueue* const queue = t_queueSide.queue;
    try {
        if (queue == nullptr || !queue->TryToPrepare(event)) {
            return false;
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (t_queueSide.batches == 0) {
        PublishPrepared(*queue);
    }
    return true;
}

template bool TryToAppend(const EventView& event) noexcept;
template bool TryToAppend(const EndEvents& events) noexcept;

Outcome Append(const EventView& event) {
    return WithQueue([&event](EventQueue& queue) {
        if (!queue.Prepare(event)) {
            return Outcome::NoRoom;
        }
        // What threads share at their end is never left half done.
        if (t_queueSide.batches == 0 || &queue != t_queueSide.queue) {
            PublishPrepared(queue);
        }
        return Outcome::Queued;
    });
}

bool Publish() noexcept {
    EventQueue* const queue = t_queueSide.queue;
    if (queue == nullptr || queue->GetPreparedCount() == 0) {
        return false;
    }
    PublishPrepared(*queue);
    return true;
}

void WaitForRoom() noexcept {
    WithQueue([](EventQueue& queue) { queue.WaitForRoom(); });
}

bool HasFreeQuarters(unsigned quarters) noexcept {
    try {
        return WithQueue([=](EventQueue& queue) { return queue.HasFreeQuarters(quarters); });
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool LeavesFreeQuarters(unsigned quarters, const EventView& event) noexcept {
    try {
        return WithQueue(
            [&](EventQueue& queue) { return queue.LeavesFreeQuarters(quarters, event); });
    } catch (const std::bad_alloc&) {
        return false;
    }
}

EventRecord* Next() noexcept {
    return Registry::Get().Next();
}

void Pop() noexcept {
    Registry::Get().Pop();
}

void PassOverMissing() noexcept {
    Registry::Get().PassOverMissing();
}

void WakeWriters() noexcept {
    Registry::Get().WakeWriters();
}

void DropUnused() noexcept {
    Registry::Get().DropUnused();
}

bool HasUnused() noexcept {
    return s_withoutOwner.load(std::memory_order_relaxed) > s_kept.load(std::memory_order_relaxed);
}

std::size_t GetCount() noexcept {
    return Registry::Get().GetCount();
}

void SetKept(std::size_t count) noexcept {
    s_kept.store(count, std::memory_order_relaxed);
}

uint64 GetQueuedCount() noexcept {
    return s_tickets.load(std::memory_order_seq_cst);
}

uint64 GetTakenCount() noexcept {
    return s_taken.load(std::memory_order_seq_cst);
}

void Initialize() {
    Registry::Get();
    GetLateQueue();
}

void SetCapacity(std::size_t bytes) noexcept {
    s_capacity.store(bytes, std::memory_order_relaxed);
}

std::size_t GetHighestFill() noexcept {
    return Registry::Get().GetHighestFill();
}

namespace {

// What was queued before the fork has smaller tickets.
constinit uint64 s_firstOfChild = 0;

bool IsOfScope(MetricsEventType type) noexcept {
    switch (type) {
        case MetricsEventType::OpenScope:
        case MetricsEventType::CloseScope:
        case MetricsEventType::NameValue:
        case MetricsEventType::NameValuePairs:
        case MetricsEventType::SupplementalPairs:
            return true;
        default:
            return false;
    }
}

/// The scopes that begin and end in a queue. Throws `std::bad_alloc`.
std::vector<uint64> EndedScopes(const EventQueue& queue) {
    std::vector<uint64> opened;
    std::vector<uint64> ended;
    queue.ForEachHead([&](const EventRecord::Head& head) {
        if (head.type == MetricsEventType::OpenScope) {
            opened.push_back(head.id);
        } else if (head.type == MetricsEventType::CloseScope) {
            ended.push_back(head.id);
        }
    });
    std::sort(opened.begin(), opened.end());
    std::sort(ended.begin(), ended.end());
    std::vector<uint64> both;
    std::set_intersection(
        opened.begin(), opened.end(), ended.begin(), ended.end(), std::back_inserter(both));
    return both;
}

/// Gives what is left of a queue the tickets from this one on, and says how many.
uint64 KeepWhatIsOpen(EventQueue& queue, uint64 firstTicket) {
    const std::vector<uint64> ended = EndedScopes(queue);
    return queue.Renumber(firstTicket, [&ended](const EventRecord::Head& head) {
        return IsOfScope(head.type) && std::binary_search(ended.begin(), ended.end(), head.id);
    });
}

}  // namespace

void StartAnewInChild(bool keepsOwn) noexcept {
    const uint64 first = s_tickets.load(std::memory_order_relaxed);
    uint64 kept = 0;
    EventQueue* own = keepsOwn ? t_queueSide.queue : nullptr;
    try {
        kept = own != nullptr ? KeepWhatIsOpen(*own, first) : 0;
    } catch (const std::bad_alloc&) {
        own = nullptr;
    }
    Registry::Get().StartAnewInChild(own);
    GetLateQueue().queue = nullptr;
    t_queueSide.queue = own;
    s_taken.store(first, std::memory_order_relaxed);
    s_tickets.store(first + kept, std::memory_order_relaxed);
    s_firstOfChild = first + kept;
}

bool IsFromBeforeFork(uint64 ticket) noexcept {
    return ticket < s_firstOfChild;
}

}  // namespace Metrics::EventQueues
