#include "cvlcoreplatform/TLogger.h"

#include "BackEndGuard.h"
#include "EnabledSeverities.h"
#include "FileRequests.h"
#include "HeldLines.h"
#include "LogCounters.h"

#include "cvlcoreplatform/host/InsideBackEnd.h"
#include "cvlcoreplatform/host/InterruptedLogging.h"
#include "cvlcoreplatform/host/JsonLines.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlcoreplatform/host/Silence.h"
#include "cvlsys/host/DeliveryGuard.h"
#include "cvlsys/host/ForkOrder.h"
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

using cvlcoreplatform::BackEndAccess;
using cvlcoreplatform::BackEndUse;
using cvlcoreplatform::Count;
using cvlcoreplatform::logCounters;
using cvlcoreplatform::EnabledSeverities::SetBackEndIsThere;

/// Under the lock of `BackEndAccess`.
std::shared_ptr<LogBackEnd>& CurrentBackEnd() {
    static auto& backEnd = *new std::shared_ptr<LogBackEnd>(MakeJsonStderrBackEnd());
    return backEnd;
}

BackEndUse MakeUse() noexcept {
    try {
        return std::make_shared<char>();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Whether this thread has taken the lock to fork.
constinit thread_local bool t_hasLockedToFork = false;

// Where this thread logs to instead: in the place of a thread that will never leave the back end,
// or to nowhere.
constinit thread_local LogBackEnd* t_successor = nullptr;

class Nowhere final : public LogBackEnd {
public:
    void Write(Severity, const Event&) override {}

    void WriteMessage(Severity, const TString&) override {}
};

// While the library is loaded, so that no first use can meet a fork. Never destroyed.
Nowhere& nowhere = *new Nowhere;

// A fork waits until nobody is inside the back end: the child would otherwise inherit a sink that
// is locked for ever by a thread that the child does not have. If that takes too long, the child
// has no back end.
class LoggerFork final : private cvlsys::ForkParticipant {
public:
    LoggerFork() noexcept : ForkParticipant(cvlsys::ForkRank::Logger) {
        BackEndAccess::Get();
        CurrentBackEnd();
    }

    ~LoggerFork() = default;
    LoggerFork(const LoggerFork&) = delete;
    LoggerFork& operator=(const LoggerFork&) = delete;

private:
    void BeforeFork(ForkClock::time_point end) noexcept override {
        if (!t_isInsideBackEnd) {
            // The child would write them once more.
            cvlcoreplatform::HeldLines::WriteFromOutside();
            t_hasLockedToFork = BackEndAccess::Get().lock.LockUntil(end);
        }
    }

    void AfterForkInParent() noexcept override {
        if (std::exchange(t_hasLockedToFork, false)) {
            BackEndAccess::Get().lock.unlock();
        }
    }

    void AfterForkInChild() noexcept override {
        BackEndAccess& access = BackEndAccess::Get();
        const bool isBackEndAtRest = t_isInsideBackEnd || t_hasLockedToFork;
        AfterForkInParent();
        access.lock.FreeInForkedChild();
        // Lines that other threads held back stay with the parent.
        if (isBackEndAtRest) {
            access.use = MakeUse();
        } else {
            new (&access.use) BackEndUse(MakeUse());
            new (&CurrentBackEnd()) std::shared_ptr<LogBackEnd>;
            SetBackEndIsThere(false);
        }
    }
};

// Made while the library is loaded: no first use can meet a fork, and a host that closes the
// standard error stream does not mean the file that gets its number next.
LoggerFork forkParticipant;

// Without the lock: the thread that has it will not go on.
template <class Use>
void WithSuccessor(const Use& use) noexcept {
    const cvlsys::DeliveryGuard guard;
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

/// What a crashed thread holds back takes the way of whatever is logged.
class LogAgain final : public cvlcoreplatform::HeldEventsTarget {
public:
    void WriteHeld(Severity severity, const Event& event) noexcept override {
        Logger::Get().Log(severity, event);
    }

    void WriteHeld(Severity severity, const TString& message) noexcept override {
        Logger::Get().LogMessage(severity, message);
    }
};

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
        if (const auto& backEnd = CurrentBackEnd()) {
            use(*backEnd);
        }
    } catch (...) {
        Count(logCounters.backEndExceptions);
    }
}

}  // namespace

InterruptedLogging GetInterruptedLogging() noexcept {
    return {cvlcoreplatform::HeldLines::OfThisThread(), t_isInsideBackEnd};
}

// The interrupted thread has locked the logger for reading, so its back end stays. The successor is
// never destroyed: the process is about to end.
void TakeOverLogging(const InterruptedLogging& interrupted) noexcept {
    const std::shared_ptr<LogBackEnd>& backEnd = CurrentBackEnd();
    if (interrupted.isInsideBackEnd && t_successor == nullptr && backEnd != nullptr) {
        try {
            if (auto successor = backEnd->MakeSuccessor()) {
                t_successor = (new std::shared_ptr<LogBackEnd>(std::move(successor)))->get();
            }
        } catch (...) {
            Count(logCounters.backEndExceptions);
        }
    }
    cvlcoreplatform::HeldLines::WriteInterrupted(interrupted.held, LogAgain());
}

void EndTakingOverLogging() noexcept {
    t_successor = nullptr;
}

Silence::Silence() noexcept : m_before(std::exchange(t_successor, &nowhere)) {}

Silence::~Silence() {
    t_successor = m_before;
}

bool Silence::IsOnThisThread() noexcept {
    return t_successor == &nowhere;
}

Logger& Logger::Get() noexcept {
    // Without members and without a destructor that does anything: it is always there.
    static constinit Logger logger;
    return logger;
}

// Not const, though it changes no member: logging changes the log.
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
    cvlcoreplatform::EnabledSeverities::SetThreshold(threshold);
}

Severity GetThreshold() noexcept {
    return cvlcoreplatform::EnabledSeverities::GetThreshold();
}

std::shared_ptr<LogBackEnd> ReplaceBackEnd(std::shared_ptr<LogBackEnd> backEnd) {
    if (t_isInsideBackEnd) {
        throw std::logic_error("a log back end cannot replace the log back end");
    }
    cvlcoreplatform::HeldLines::WriteFromOutside();
    BackEndAccess& access = BackEndAccess::Get();
    BackEndUse formerUse = std::make_shared<char>();
    {
        const std::unique_lock guard(access.lock);
        CurrentBackEnd().swap(backEnd);
        access.use.swap(formerUse);
        SetBackEndIsThere(CurrentBackEnd() != nullptr);
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
