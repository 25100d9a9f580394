#include "CrashHandler.h"

#include "RescueThread.h"

#include "cvlsys/IntegerTypes.h"
#include "cvlsys/host/Futex.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

namespace Metrics::CrashHandler {

namespace {

using Clock = std::chrono::steady_clock;

// Those above are not for crashes.
constexpr int signals = 64;

/// The number of `std::terminate` among the signals; no signal has it.
constexpr int terminateCall = 0;

struct Former {
    std::atomic<bool> isReplaced{false};

    struct sigaction action {};
};

constinit std::array<Former, signals> s_former{};
constinit std::atomic<std::terminate_handler> s_formerTerminate{nullptr};

// The kernel's id of the thread whose turn it is.
constinit std::atomic<uint32> s_turn{0};

// Whether it is the calling one's. Also right in a forked child, where ids have changed.
constinit thread_local bool t_isInTurn = false;

// Of that thread: which former handlers it is inside of, a bit for each signal.
constinit uint64 s_entered = 0;

uint32 ThisThread() noexcept {
    return static_cast<uint32>(syscall(SYS_gettid));
}

constexpr uint64 BitOf(int signal) noexcept {
    return uint64{1} << static_cast<unsigned>(signal);
}

void OnSignal(int signal, siginfo_t* info, void* context);

bool IsOurs(const struct sigaction& action) noexcept {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == OnSignal;
}

bool Ignores(const struct sigaction& action) noexcept {
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
}

bool IsFunction(const struct sigaction& action) noexcept {
    return (action.sa_flags & SA_SIGINFO) != 0 ||
           (action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN);
}

/// Whether somebody has sent the signal; otherwise the thread cannot go on where it was.
bool IsSent(const siginfo_t& info) noexcept {
    return info.si_code <= 0;
}

/// As if nobody had handled the signal: with the same information, as the core file will show it.
[[noreturn]] void EndByDefault(int signal, siginfo_t* info) noexcept {
    struct sigaction byDefault {};

    byDefault.sa_handler = SIG_DFL;
    sigaction(signal, &byDefault, nullptr);
    const long self = syscall(SYS_gettid);
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), self, signal, info) != 0) {
        syscall(SYS_tgkill, getpid(), self, signal);
    }
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    // The first process of a container does not take the default effect of what it sends itself.
    constexpr int shellsStatusOfSignals = 128;
    _exit(shellsStatusOfSignals + signal);
}

/// What the kernel does for a handler that is to be called once only.
void ResetIfOurs(int signal) noexcept {
    struct sigaction current {};

    sigaction(signal, nullptr, &current);
    if (IsOurs(current)) {
        struct sigaction byDefault {};

        byDefault.sa_handler = SIG_DFL;
        sigaction(signal, &byDefault, nullptr);
    }
}

void Call(const struct sigaction& former, int signal, siginfo_t* info, void* context) {
    if ((static_cast<unsigned>(former.sa_flags) & SA_RESETHAND) != 0) {
        ResetIfOurs(signal);
    }
    if ((former.sa_flags & SA_SIGINFO) != 0) {
        former.sa_sigaction(signal, info, context);
    } else {
        former.sa_handler(signal);
    }
}

/// A chain of handlers that comes back here has been through.
void PassOn(int signal, siginfo_t* info, void* context) {
    const struct sigaction former = s_former[static_cast<std::size_t>(signal)].action;
    if (!IsFunction(former) || (s_entered & BitOf(signal)) != 0) {
        EndByDefault(signal, info);
    }
    s_entered |= BitOf(signal);
    Call(former, signal, info, context);
    s_entered &= ~BitOf(signal);
}

/// The time that one thread has to deal with a crash. Others that crash wait for it, for what it
/// does ends the process. A thread that is in its turn already, because the rescue or a handler
/// crashed or called another one, goes on at once.
class Turn {
public:
    Turn() noexcept : m_isFirst(Take()) {}

    ~Turn() {
        if (m_isFirst) {
            t_isInTurn = false;
            s_turn.store(0, std::memory_order_release);
            cvlsys::Futex::WakeAll(s_turn);
        }
    }

    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    bool IsFirst() const noexcept { return m_isFirst; }

    /// Whether it has not come: another thread is in a handler that does not end.
    bool IsMissed() const noexcept { return m_isMissed; }

private:
    bool Take() noexcept {
        constexpr std::chrono::minutes longest{1};
        if (t_isInTurn) {
            return false;
        }
        const uint32 self = ThisThread();
        uint32 other = 0;
        if (!s_turn.compare_exchange_strong(other, self, std::memory_order_acquire)) {
            RescueThread::NoteCrashMeanwhile(self);
            const Clock::time_point end = Clock::now() + longest;
            while (!s_turn.compare_exchange_strong(other = 0, self, std::memory_order_acquire)) {
                const auto left = end - Clock::now();
                if (left <= Clock::duration::zero()) {
                    m_isMissed = true;
                    return false;
                }
                cvlsys::Futex::Wait(s_turn, other, left);
            }
        }
        t_isInTurn = true;
        s_entered = 0;
        return true;
    }

    bool m_isMissed = false;
    bool m_isFirst;
};

void OnSignal(int signal, siginfo_t* info, void* context) {
    const int hostErrno = errno;
    if (RescueThread::IsCurrent()) {
        RescueThread::GiveUp();
    }
    const struct sigaction& former = s_former[static_cast<std::size_t>(signal)].action;
    if (Ignores(former) && IsSent(*info)) {
        return;
    }
    if (!RescueThread::IsOfThisProcess()) {
        if (!IsFunction(former)) {
            EndByDefault(signal, info);
        }
        Call(former, signal, info, context);
        errno = hostErrno;
        return;
    }
    const Turn turn;
    if (turn.IsMissed()) {
        EndByDefault(signal, info);
    }
    if (turn.IsFirst()) {
        RescueThread::Rescue(signal, ThisThread());
    }
    PassOn(signal, info, context);
    if (turn.IsFirst()) {
        RescueThread::GoOn();
    }
    errno = hostErrno;
}

[[noreturn]] void OnTerminate() noexcept {
    if (RescueThread::IsCurrent()) {
        RescueThread::GiveUp();
    }
    const std::terminate_handler former = s_formerTerminate.load();
    if (RescueThread::IsOfThisProcess()) {
        const Turn turn;
        if (turn.IsFirst()) {
            RescueThread::Rescue(terminateCall, ThisThread());
        }
        if (former != nullptr && !turn.IsMissed() && (s_entered & BitOf(terminateCall)) == 0) {
            s_entered |= BitOf(terminateCall);
            former();
        }
        std::abort();  // still in its turn
    }
    if (former != nullptr) {
        former();
    }
    std::abort();
}

// The signals that the former handler shuts out are shut out from the beginning, which is how it
// would find things without ours.
struct sigaction HandlerBefore(const struct sigaction& former) noexcept {
    struct sigaction ours {};

    ours.sa_sigaction = OnSignal;
    ours.sa_flags = SA_SIGINFO | SA_ONSTACK | (former.sa_flags & (SA_NODEFER | SA_RESTART));
    sigemptyset(&ours.sa_mask);
    if (IsFunction(former)) {
        ours.sa_mask = former.sa_mask;
    }
    return ours;
}

}  // namespace

void RequireHandleable(std::span<const int> wanted) {
    for (const int signal : wanted) {
        struct sigaction current {};

        if (signal <= 0 || signal >= signals || signal == SIGKILL || signal == SIGSTOP ||
            sigaction(signal, nullptr, &current) != 0) {
            throw std::invalid_argument("there is no handler for signal " + std::to_string(signal));
        }
    }
}

void Install(std::span<const int> wanted) noexcept {
    for (const int signal : wanted) {
        Former& former = s_former[static_cast<std::size_t>(signal)];
        if (former.isReplaced.load()) {
            continue;
        }
        sigaction(signal, nullptr, &former.action);
        if (IsOurs(former.action)) {
            continue;
        }
        former.isReplaced.store(true);
        const struct sigaction ours = HandlerBefore(former.action);
        sigaction(signal, &ours, nullptr);
    }
}

void InstallForTerminate() noexcept {
    if (s_formerTerminate.load() == nullptr) {
        s_formerTerminate.store(std::get_terminate());
        std::set_terminate(OnTerminate);
    }
}

void Uninstall() noexcept {
    for (int signal = 1; signal < signals; ++signal) {
        Former& former = s_former[static_cast<std::size_t>(signal)];

        struct sigaction current {};

        if (former.isReplaced.load() && sigaction(signal, nullptr, &current) == 0 &&
            IsOurs(current)) {
            sigaction(signal, &former.action, nullptr);
            former.isReplaced.store(false);
        }
    }
    if (s_formerTerminate.load() != nullptr && std::get_terminate() == OnTerminate) {
        std::set_terminate(s_formerTerminate.exchange(nullptr));
    }
}

bool IsBusy() noexcept {
    return s_turn.load(std::memory_order_acquire) != 0;
}

void StartAnewInChild() noexcept {
    // A handler may fork, as one does that has another program write the dump: its child is in its
    // turn, too.
    s_turn.store(t_isInTurn ? ThisThread() : 0, std::memory_order_relaxed);
}

}  // namespace Metrics::CrashHandler
