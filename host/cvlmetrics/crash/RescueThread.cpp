#include "RescueThread.h"

#include "Bus.h"
#include "CrashHandler.h"
#include "CrashedThreads.h"
#include "DeliveringThread.h"
#include "DeliverySide.h"
#include "ProcessThreads.h"
#include "Rescue.h"

#include "cvlsys/host/Futex.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <optional>
#include <pthread.h>
#include <system_error>
#include <unistd.h>

namespace Metrics::RescueThread {

namespace {

namespace Futex = cvlsys::Futex;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// What the thread is at; a word to sleep on. Who called it may go on before it is done.
enum class Stage : uint32 { NotRunning, Starting, Ready, Called, LeftAlone, Done, GoingOn, Ending };

constexpr std::chrono::hours longTime{1};

constinit std::atomic<uint32> s_stage{static_cast<uint32>(Stage::NotRunning)};
constinit std::atomic<pid_t> s_process{0};
constinit std::atomic<milliseconds> s_deadline{milliseconds{0}};
constinit CrashedThreads s_crashed;

// Of the crash that the thread is called for.
constinit Rescue::Crash s_crash;

constinit thread_local bool t_isRescue = false;

Stage GetStage() noexcept {
    return static_cast<Stage>(s_stage.load(std::memory_order_acquire));
}

void SetStage(Stage stage) noexcept {
    s_stage.store(static_cast<uint32>(stage), std::memory_order_release);
    Futex::WakeAll(s_stage);
}

bool TryToSetStage(Stage from, Stage to) noexcept {
    auto expected = static_cast<uint32>(from);
    if (!s_stage.compare_exchange_strong(
            expected, static_cast<uint32>(to), std::memory_order_acq_rel)) {
        return false;
    }
    Futex::WakeAll(s_stage);
    return true;
}

/// Sleeps while the stage is this one, until then at the latest.
Stage SleepIn(Stage stage, Clock::time_point end) noexcept {
    while (GetStage() == stage) {
        const auto left = end - Clock::now();
        if (left <= Clock::duration::zero()) {
            break;
        }
        Futex::Wait(s_stage, static_cast<uint32>(stage), left);
    }
    return GetStage();
}

Stage SleepWhile(Stage stage) noexcept {
    while (GetStage() == stage) {
        SleepIn(stage, Clock::now() + longTime);
    }
    return GetStage();
}

/// Whether the host's threads are gone, the main thread by `pthread_exit`: then this one must not
/// keep the process alive.
bool IsNobodyLeftToSave() noexcept {
    const std::optional<ProcessThreads> threads = ProcessThreads::Count();
    const int own = DeliveringThread::IsRunning() ? 2 : 1;
    return threads.has_value() && threads->hasMainLeft && threads->running <= own;
}

/// The next stage. Looks from time to time whether there is still somebody who could call.
Stage SleepUntilCalled() noexcept {
    constexpr std::chrono::seconds pause{1};
    for (;;) {
        const Stage next = SleepIn(Stage::Ready, Clock::now() + pause);
        if (next != Stage::Ready) {
            return next;
        }
        if (IsNobodyLeftToSave() && TryToSetStage(Stage::Ready, Stage::Ending)) {
            return Stage::Ending;
        }
    }
}

void* Run(void*) noexcept {
    t_isRescue = true;
    t_deliverySide.neverQueues = true;
    pthread_setname_np(pthread_self(), "tarn-rescue");
    Rescue::Prepare();
    SetStage(Stage::Ready);
    for (;;) {
        if (SleepUntilCalled() == Stage::Ending) {
            break;
        }
        Rescue::Run(s_crash, s_crashed);
        if (TryToSetStage(Stage::Called, Stage::Done)) {
            SleepWhile(Stage::Done);
        }
        Rescue::GoOn();
        s_crashed.Clear();
        Rescue::Prepare();
        SetStage(Stage::Ready);
    }
    Rescue::Unprepare();
    SetStage(Stage::NotRunning);
    return nullptr;
}

/// The host's signals are for the host's threads. What this thread does wrong itself it is to
/// notice.
void BlockHostsSignals(sigset_t& before) noexcept {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS}) {
        sigdelset(&blocked, own);
    }
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
}

/// The error of the attempt. The thread is scheduled as others are, also if the caller is not: it
/// does a host's work.
int StartThread() noexcept {
    s_process.store(getpid(), std::memory_order_relaxed);
    s_stage.store(static_cast<uint32>(Stage::Starting), std::memory_order_release);
    sigset_t before;
    BlockHostsSignals(before);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    const sched_param normal{};
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setschedpolicy(&attributes, SCHED_OTHER);
    pthread_attr_setschedparam(&attributes, &normal);
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_t thread{};
    const int error = pthread_create(&thread, &attributes, Run, nullptr);
    pthread_attr_destroy(&attributes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (error != 0) {
        s_stage.store(static_cast<uint32>(Stage::NotRunning), std::memory_order_release);
    }
    return error;
}

}  // namespace

void Start() {
    if (GetStage() == Stage::NotRunning) {
        const int error = StartThread();
        if (error != 0) {
            throw std::system_error(
                error, std::generic_category(), "no thread to save the log in a crash");
        }
    }
    SleepWhile(Stage::Starting);
}

void Stop() noexcept {
    SleepWhile(Stage::GoingOn);
    if (TryToSetStage(Stage::Ready, Stage::Ending)) {
        SleepWhile(Stage::Ending);
    }
}

void SetDeadline(milliseconds deadline) noexcept {
    constexpr milliseconds longest = std::chrono::hours(24);
    s_deadline.store(std::clamp(deadline, milliseconds{0}, longest), std::memory_order_relaxed);
}

bool IsCurrent() noexcept {
    return t_isRescue;
}

bool IsOfThisProcess() noexcept {
    return s_process.load(std::memory_order_relaxed) == getpid();
}

void Rescue(int signal, uint64 threadId) noexcept {
    const Clock::time_point end = Clock::now() + s_deadline.load(std::memory_order_relaxed);
    // A forked child does not wait for its thread to begin.
    if (SleepIn(Stage::Starting, end) != Stage::Ready) {
        return;
    }
    s_crashed.AddCurrent(threadId);
    s_crash = {.signal = signal, .threadId = threadId, .end = end};
    if (TryToSetStage(Stage::Ready, Stage::Called)) {
        if (SleepIn(Stage::Called, end) == Stage::Called) {
            Bus::SetGivenUp(true);  // lest the host's handler waits for threads that wait for a log
        }
    }
}

void NoteCrashMeanwhile(uint64 threadId) noexcept {
    s_crashed.AddCurrent(threadId);
}

// What the thread was in the middle of may be in the rescue's hands, which then goes before it. The
// host's choice of the delivery is back when the thread goes on, unless that takes too long.
void GoOn() noexcept {
    if (CrashedThreads::IsCurrentInTheMiddle()) {
        SleepWhile(Stage::Called);
        SleepWhile(Stage::LeftAlone);
    }
    if (!TryToSetStage(Stage::Called, Stage::LeftAlone) &&
        TryToSetStage(Stage::Done, Stage::GoingOn)) {
        SleepIn(Stage::GoingOn, Clock::now() + s_deadline.load(std::memory_order_relaxed));
    }
}

// Not to be served again. The thread that waits goes on.
void GiveUp() noexcept {
    Bus::SetGivenUp(true);
    SetStage(Stage::NotRunning);
    for (;;) {
        pause();
    }
}

void StartAnewInChild() noexcept {
    if (s_process.load(std::memory_order_relaxed) == 0 || GetStage() == Stage::NotRunning) {
        return;
    }
    s_stage.store(static_cast<uint32>(Stage::NotRunning), std::memory_order_relaxed);
    s_process.store(getpid(), std::memory_order_relaxed);
    if (!CrashHandler::IsBusy()) {
        s_crashed.Clear();
        StartThread();  // where none is to be had, crashes are not saved
    }
}

}  // namespace Metrics::RescueThread
