#include "DeliveringThread.h"

#include "Backoff.h"
#include "DeliverySide.h"
#include "Dispatcher.h"
#include "EventQueues.h"
#include "ExitDeadline.h"
#include "LossReport.h"
#include "OwnThread.h"

#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/ForkAwareMutex.h"
#include "cvlsys/host/ForkOrder.h"
#include "cvlsys/host/Futex.h"

#include <atomic>
#include <chrono>
#include <mutex>

namespace Metrics::DeliveringThread {

constinit std::atomic<bool> isWanted{false};

namespace {

namespace Futex = cvlsys::Futex;

using std::chrono::milliseconds;

// After its work the thread looks again every millisecond for a while, which spares the emitting
// threads the waking; then it sleeps until somebody wakes it, or to see whether there is anybody
// left who could.
constexpr milliseconds napTime{1};
constexpr int napsBeforeSleep = 50;
constexpr std::chrono::seconds sleepTime{1};

enum class State : uint32 { NotRunning, Awake, Napping, Asleep };

constinit std::atomic<State> s_state{State::NotRunning};
constinit std::atomic<bool> s_stops{false};

// Words to sleep on: they change when there is a reason to wake up.
constinit std::atomic<uint32> s_alarm{0};
constinit std::atomic<uint32> s_progress{0};

constinit std::atomic<uint64> s_flushesWanted{0};
constinit std::atomic<uint64> s_flushesDone{0};

// How many delivering threads there have been that are over.
constinit std::atomic<uint64> s_threadsEnded{0};

// A start that has failed is not tried again with each event.
constexpr std::chrono::seconds pauseAfterFailure{1};
constinit std::chrono::steady_clock::time_point s_nextStart{};  // under the mutex below

/// Under it a delivering thread begins and ends, and flushes are asked for: none is asked of a
/// thread that is about to end.
cvlsys::ForkAwareMutex s_startMutex{cvlsys::ForkRank::DeliveringThread};

void Alarm() noexcept {
    s_alarm.fetch_add(1, std::memory_order_seq_cst);
    Futex::WakeAll(s_alarm);
}

void Progress() noexcept {
    s_progress.fetch_add(1, std::memory_order_seq_cst);
    Futex::WakeAll(s_progress);
}

// Each pair of stores and loads below is sequentially consistent: either the thread sees what was
// just queued (its ticket is drawn before the state is read) and does not sleep, or who queued it
// sees that it sleeps.
bool HasEventsOrFlushes() noexcept {
    return EventQueues::GetQueuedCount() != EventQueues::GetTakenCount() ||
           s_flushesWanted.load(std::memory_order_seq_cst) !=
               s_flushesDone.load(std::memory_order_seq_cst);
}

bool HasWork() noexcept {
    return HasEventsOrFlushes() || s_stops.load(std::memory_order_seq_cst);
}

void Rest(State state, std::chrono::nanoseconds time) noexcept {
    const uint32 alarm = s_alarm.load(std::memory_order_seq_cst);
    s_state.store(state, std::memory_order_seq_cst);
    if (!HasWork()) {
        Futex::Wait(s_alarm, alarm, time);
    }
    s_state.store(State::Awake, std::memory_order_seq_cst);
}

// What others have taken off the queues may still be inside of a consumer.
void CarryOutFlush(uint64 flush) noexcept {
    Bus::Dispatcher::Get().AwaitDelivery();
    ExitDeadline::Meet();
    LossReport::Write();
    TLog::FlushLog();
    s_flushesDone.store(flush, std::memory_order_seq_cst);
    Progress();
}

/// Delivers until so many events have been taken off the queues. Whether there was anything.
bool DeliverUntil(uint64 queued) noexcept {
    bool wasBusy = false;
    Backoff backoff;
    while (EventQueues::GetTakenCount() < queued) {
        if (Bus::Dispatcher::Get().DeliverQueuedBatch()) {
            wasBusy = true;
            backoff = {};
        } else {
            backoff.Pause();  // the next event's thread is just about to show it
        }
    }
    return wasBusy;
}

/// Ends the thread's role unless there is something left to do. Who queues an event and has still
/// seen the thread running relies on it, so it looks at the tickets after it has said that it ends.
bool TryToEnd() noexcept {
    const std::lock_guard lock(s_startMutex);
    s_state.store(State::NotRunning, std::memory_order_seq_cst);
    if (HasEventsOrFlushes()) {
        s_state.store(State::Awake, std::memory_order_seq_cst);
        return false;
    }
    s_threadsEnded.fetch_add(1, std::memory_order_seq_cst);
    return true;
}

void Run() noexcept {
    t_deliverySide.isDeliveringThread = true;
    t_deliverySide.neverQueues = true;
    int naps = 0;
    for (;;) {
        const uint64 flush = s_flushesWanted.load(std::memory_order_seq_cst);
        const uint64 queued = EventQueues::GetQueuedCount();
        const bool wasBusy = DeliverUntil(queued);
        Bus::Dispatcher::Get().TidyUp();
        LossReport::WriteIfDue();
        if (flush != s_flushesDone.load(std::memory_order_relaxed)) {
            CarryOutFlush(flush);
        } else if (s_stops.load(std::memory_order_seq_cst)) {
            if (TryToEnd()) {
                break;
            }
        } else if (wasBusy) {
            naps = 0;
        } else if (naps < napsBeforeSleep) {
            ++naps;
            ExitDeadline::Meet();
            Rest(State::Napping, napTime);
        } else if (OwnThread::IsLastOfProcess()) {
            // Nobody is left who could emit anything. The process ends with its last thread.
            if (TryToEnd()) {
                break;
            }
        } else {
            Rest(State::Asleep, sleepTime);
        }
    }
    t_deliverySide.isDeliveringThread = false;
    t_deliverySide.neverQueues = false;
    Progress();
}

/// With the mutex locked.
bool StartIfNotRunning() noexcept {
    if (s_state.load(std::memory_order_seq_cst) != State::NotRunning) {
        return true;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now < s_nextStart) {
        return false;
    }
    s_stops.store(false, std::memory_order_seq_cst);
    s_state.store(State::Awake, std::memory_order_seq_cst);
    if (!OwnThread::Start(Run)) {
        s_nextStart = now + pauseAfterFailure;
        s_state.store(State::NotRunning, std::memory_order_seq_cst);
        return false;
    }
    return true;
}

// The parent's thread is not there, unless it is the one that forked.
[[maybe_unused]] cvlsys::InForkedChild startAnew([] {
    s_state.store(t_deliverySide.isDeliveringThread ? State::Awake : State::NotRunning,
                  std::memory_order_seq_cst);
    s_stops.store(false, std::memory_order_seq_cst);
    s_flushesDone.store(s_flushesWanted.load(std::memory_order_relaxed), std::memory_order_seq_cst);
});

// A shutdown may have been and gone between the look at the state and the lock.
bool StartIfWanted() noexcept {
    const std::lock_guard lock(s_startMutex);
    return IsWanted() && StartIfNotRunning();
}

/// The number of the flush that was asked for; zero when there is no thread to carry it out.
uint64 AskForFlush() noexcept {
    const std::lock_guard lock(s_startMutex);
    const bool isRunning = s_state.load(std::memory_order_seq_cst) != State::NotRunning ||
                           (IsWanted() && StartIfNotRunning());
    return isRunning ? s_flushesWanted.fetch_add(1, std::memory_order_seq_cst) + 1 : 0;
}

/// Waits until `isDone`, which becomes true together with progress. Whether it has come in time.
template <class Condition>
bool WaitUntil(const Condition& isDone, const Deadline& deadline) noexcept {
    for (;;) {
        const uint32 progress = s_progress.load(std::memory_order_seq_cst);
        if (isDone()) {
            return true;
        }
        const std::chrono::nanoseconds left = deadline.Left();
        if (left <= std::chrono::nanoseconds::zero()) {
            return false;
        }
        Futex::Wait(s_progress, progress, left);
    }
}

}  // namespace

void SetWanted(bool wanted) noexcept {
    isWanted.store(wanted, std::memory_order_release);
}

bool WakeIfIdle() noexcept {
    State state = s_state.load(std::memory_order_seq_cst);
    if (state == State::Awake) {
        return true;
    }
    if (state == State::NotRunning) {
        // After a shutdown, who was just queuing an event delivers it before its call returns.
        return IsWanted() && StartIfWanted();
    }
    if (state == State::Napping && EventQueues::HasFreeQuarters(2)) {
        return true;
    }
    // Only the first one that sees it asleep pays for waking it.
    if (s_state.compare_exchange_strong(state, State::Awake, std::memory_order_seq_cst)) {
        Alarm();
    }
    return true;
}

std::optional<bool> Flush(const Deadline& deadline) noexcept {
    const uint64 mine = AskForFlush();
    if (mine == 0) {
        return std::nullopt;
    }
    Alarm();
    return WaitUntil([mine] { return s_flushesDone.load(std::memory_order_seq_cst) >= mine; },
                     deadline);
}

bool Stop(const Deadline& deadline) noexcept {
    uint64 endedBefore = 0;
    {
        const std::lock_guard lock(s_startMutex);
        if (s_state.load(std::memory_order_seq_cst) == State::NotRunning) {
            return true;
        }
        endedBefore = s_threadsEnded.load(std::memory_order_seq_cst);
        s_stops.store(true, std::memory_order_seq_cst);
    }
    Alarm();
    // That thread is meant; somebody may start another one as soon as it is over.
    return WaitUntil(
        [endedBefore] { return s_threadsEnded.load(std::memory_order_seq_cst) != endedBefore; },
        deadline);
}

bool IsRunning() noexcept {
    return s_state.load(std::memory_order_seq_cst) != State::NotRunning;
}

bool IsCurrent() noexcept {
    return t_deliverySide.isDeliveringThread;
}

}  // namespace Metrics::DeliveringThread
