#include "cvlcoreplatform/TLogger.h"

#include "BackEndGuard.h"
#include "FileRequests.h"
#include "HeldLines.h"
#include "LogCounters.h"

#include "cvlcoreplatform/host/InsideBackEnd.h"
#include "cvlcoreplatform/host/InterruptedLogging.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlsys/host/ForkOrder.h"
#include "cvlsys/host/HostState.h"
#include "cvlsys/host/MemoryCharging.h"
#include "cvlsys/host/ReadWriteLock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <stdexcept>
#include <thread>
#include <utility>

namespace TLog {

namespace {

using cvlcoreplatform::Count;
using cvlcoreplatform::logCounters;

// The lowest severity that is enabled. The high bit is set while there is no back end; the number
// is larger than any severity then.
constexpr int32 noBackEnd = 1 << 30;
constinit std::atomic<int32> s_enabledFrom{Info};

// Readers are those who log, for as long as the back end works; a writer replaces the back end,
// and so knows that nobody is inside the old one.
struct State {
    cvlsys::ReadWriteLock lock;
    std::shared_ptr<LogBackEnd> backEnd = MakeJsonStderrBackEnd();
    // Of whom it is used besides: those who hold lines back for it.
    BackEndUse use = std::make_shared<char>();
};

BackEndUse MakeUse() noexcept {
    try {
        return std::make_shared<char>();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

State& GetState() {
    static State& state = *new State;
    return state;
}

// What is to be called when this thread has left the back end.
using Action = void (*)() noexcept;
constinit thread_local Action t_afterBackEnd = nullptr;

// Whether this thread has taken the lock to fork.
constinit thread_local bool t_hasLockedToFork = false;

// Where this thread logs to, in the place of a thread that will never leave the back end.
constinit thread_local LogBackEnd* t_successor = nullptr;

// A fork waits until nobody is inside the back end: the child would otherwise inherit a sink that
// is locked for ever by a thread that the child does not have. If that takes too long, the child
// has no back end.
class LoggerFork final : private cvlsys::ForkParticipant {
public:
    LoggerFork() noexcept : ForkParticipant(cvlsys::ForkRank::Logger) { GetState(); }

    ~LoggerFork() = default;
    LoggerFork(const LoggerFork&) = delete;
    LoggerFork& operator=(const LoggerFork&) = delete;

private:
    void BeforeFork(ForkClock::time_point end) noexcept override {
        if (!t_isInsideBackEnd) {
            // The child would write them once more.
            cvlcoreplatform::HeldLines::WriteFromOutside();
            t_hasLockedToFork = GetState().lock.LockUntil(end);
        }
    }

    void AfterForkInParent() noexcept override {
        if (std::exchange(t_hasLockedToFork, false)) {
            GetState().lock.unlock();
        }
    }

    void AfterForkInChild() noexcept override {
        State& state = GetState();
        const bool isBackEndAtRest = t_isInsideBackEnd || t_hasLockedToFork;
        AfterForkInParent();
        state.lock.FreeInForkedChild();
        // Lines that other threads held back stay with the parent.
        if (isBackEndAtRest) {
            state.use = MakeUse();
        } else {
            new (&state.use) BackEndUse(MakeUse());
            new (&state.backEnd) std::shared_ptr<LogBackEnd>;
            s_enabledFrom.fetch_or(noBackEnd, std::memory_order_relaxed);
        }
    }
};

// Made while the library is loaded: no first use can meet a fork, and a host that closes the
// standard error stream does not mean the file that gets its number next.
LoggerFork forkParticipant;

// Without the lock: the thread that has it will not go on.
template <class Use>
void WithSuccessor(const Use& use) noexcept {
    const cvlsys::HostState hostState;
    const corvala::memory::UnchargedAllocations uncharged;
    t_isInsideBackEnd = true;
    try {
        use(*t_successor);
    } catch (...) {
        Count(logCounters.backEndExceptions);
    }
    t_isInsideBackEnd = false;
}

// What other threads hold back for a former back end is soon written. One that holds it for longer
// may be waiting for this thread.
void AwaitOtherUses(const BackEndUse& use) noexcept {
    constexpr std::chrono::seconds timeout{5};
    constexpr std::chrono::milliseconds pause{1};
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (use.use_count() > 1 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(pause);
    }
    // To let go of a share is to see what the others did before they let go of theirs.
    BackEndUse(use).reset();
}

template <class Use>
void WithBackEnd(const Use& use) noexcept {
    if (t_isInsideBackEnd) {
        CountNestedCall();
        return;
    }
    if (t_successor != nullptr) {
        WithSuccessor(use);
        return;
    }
    const cvlcoreplatform::BackEndGuard guard;
    try {
        if (const auto& backEnd = GetState().backEnd) {
            use(*backEnd);
        }
    } catch (...) {
        Count(logCounters.backEndExceptions);
    }
}

}  // namespace

// Where this is set, the thread holds the lock for reading.
__thread bool t_isInsideBackEnd = false;

void LockBackEnd() noexcept {
    GetState().lock.lock_shared();
    t_isInsideBackEnd = true;
}

void UnlockBackEnd() noexcept {
    t_isInsideBackEnd = false;
    GetState().lock.unlock_shared();
    if (const auto action = std::exchange(t_afterBackEnd, nullptr)) {
        action();
    }
}

const BackEndUse& CurrentBackEndUse() noexcept {
    return GetState().use;
}

void CountNestedCall() noexcept {
    Count(logCounters.nestedCalls);
}

void CallAfterBackEnd(void (*action)() noexcept) noexcept {
    t_afterBackEnd = action;
}

InterruptedLogging GetInterruptedLogging() noexcept {
    return {cvlcoreplatform::HeldLines::OfThisThread(), t_isInsideBackEnd};
}

// The interrupted thread has locked the logger for reading, so its back end stays. The successor is
// never destroyed: the process is about to end.
void TakeOverLogging(const InterruptedLogging& interrupted) noexcept {
    const std::shared_ptr<LogBackEnd>& backEnd = GetState().backEnd;
    if (interrupted.isInsideBackEnd && t_successor == nullptr && backEnd != nullptr) {
        try {
            if (auto successor = backEnd->MakeSuccessor()) {
                t_successor = (new std::shared_ptr<LogBackEnd>(std::move(successor)))->get();
            }
        } catch (...) {
            Count(logCounters.backEndExceptions);
        }
    }
    cvlcoreplatform::HeldLines::WriteInterrupted(interrupted.held);
}

void EndTakingOverLogging() noexcept {
    t_successor = nullptr;
}

LogBackEnd::~LogBackEnd() = default;

void LogBackEnd::Flush() {}

bool LogBackEnd::Rotate() {
    return false;
}

bool LogBackEnd::Reopen() {
    return false;
}

std::shared_ptr<LogBackEnd> LogBackEnd::MakeSuccessor() const {
    return nullptr;
}

Logger& Logger::Get() noexcept {
    // Without members and without a destructor that does anything: it is always there.
    static constinit Logger logger;
    return logger;
}

bool Logger::IsEnabled(Severity severity) const noexcept {
    return severity >= s_enabledFrom.load(std::memory_order_relaxed);
}

// Not const, though it changes no member: whoever logs changes the log.
// NOLINTNEXTLINE(readability-make-member-function-const): it changes the log
void Logger::Log(Severity severity, const Event& event) noexcept {
    if (IsEnabled(severity)) {
        WithBackEnd([&](LogBackEnd& backEnd) { backEnd.Write(severity, event); });
    }
}

// NOLINTNEXTLINE(readability-make-member-function-const): it changes the log
void Logger::LogMessage(Severity severity, const TString& text) noexcept {
    if (IsEnabled(severity)) {
        WithBackEnd([&](LogBackEnd& backEnd) { backEnd.WriteMessage(severity, text); });
    }
}

void SetThreshold(Severity threshold) noexcept {
    const int32 severity = std::clamp<int32>(threshold, Trace, Fatal);
    int32 before = s_enabledFrom.load(std::memory_order_relaxed);
    while (!s_enabledFrom.compare_exchange_weak(
        before, severity | (before & noBackEnd), std::memory_order_relaxed)) {
    }
}

Severity GetThreshold() noexcept {
    return static_cast<Severity>(s_enabledFrom.load(std::memory_order_relaxed) & ~noBackEnd);
}

std::shared_ptr<LogBackEnd> ReplaceBackEnd(std::shared_ptr<LogBackEnd> backEnd) {
    if (t_isInsideBackEnd) {
        throw std::logic_error("a log back end cannot replace the log back end");
    }
    cvlcoreplatform::HeldLines::WriteFromOutside();
    State& state = GetState();
    BackEndUse formerUse = std::make_shared<char>();
    {
        const std::unique_lock guard(state.lock);
        state.backEnd.swap(backEnd);
        state.use.swap(formerUse);
        if (state.backEnd != nullptr) {
            s_enabledFrom.fetch_and(~noBackEnd, std::memory_order_relaxed);
        } else {
            s_enabledFrom.fetch_or(noBackEnd, std::memory_order_relaxed);
        }
    }
    AwaitOtherUses(formerUse);
    return backEnd;
}

void FlushLog() noexcept {
    WithBackEnd([](LogBackEnd& backEnd) { backEnd.Flush(); });
}

bool RotateLog() noexcept {
    bool isDone = false;
    WithBackEnd([&](LogBackEnd& backEnd) { isDone = backEnd.Rotate(); });
    return isDone;
}

bool ReopenLog() noexcept {
    bool isDone = false;
    WithBackEnd([&](LogBackEnd& backEnd) { isDone = backEnd.Reopen(); });
    return isDone;
}

void RequestLogRotation() noexcept {
    cvlcoreplatform::fileRequests.rotations.fetch_add(1, std::memory_order_release);
}

void RequestLogReopening() noexcept {
    cvlcoreplatform::fileRequests.reopenings.fetch_add(1, std::memory_order_release);
}

}  // namespace TLog
