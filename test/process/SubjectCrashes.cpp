#include "Subject.h"

#include "tarn/ActivityScope.h"
#include "tarn/IMetricsMonitorSink.h"
#include "tarn/MonitorUUIDGenerator.h"
#include "tarn/TracingSession.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlmetrics/IMetricsListener.h"
#include "cvlmetrics/MetricsEvent.h"
#include "cvlmetrics/MetricsManager.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlmetrics/host/SaveOnCrash.h"
#include "cvlsys/RefCntObject.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<bool> s_crashesInWrite{false};

}  // namespace

// In the place of the C library's: the log calls it with its file locked.
extern "C" __attribute__((visibility("default"))) ssize_t write(int descriptor,
                                                                const void* bytes,
                                                                size_t count) {
    if (s_crashesInWrite.exchange(false)) {
        raise(SIGABRT);
    }
    return syscall(SYS_write, descriptor, bytes, count);
}

namespace ProcessTest {

namespace {

using tarn::ActivityScope;

// On a busy machine a second may pass before a thread gets its turn.
constexpr std::chrono::seconds generous{30};

// Numbers of the progress that stand for something else than a thread.
constexpr std::size_t handlerCalls = 9;
constexpr std::size_t rightArguments = 10;

void SaveOnCrash(std::chrono::milliseconds deadline = generous) {
    Metrics::CrashOptions options;
    options.deadline = deadline;
    Metrics::SaveOnCrash(options);
}

void TraceForEverAndSave() {
    TraceForEver();
    SaveOnCrash();
}

std::size_t PageBytes() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// A page that nobody may touch.
char* ForbiddenPage() {
    static char* const page = static_cast<char*>(
        mmap(nullptr, PageBytes(), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    return page;
}

// In the middle of the page, so that the address is known again.
void Touch() {
    volatile char* const place = ForbiddenPage() + 40;
    *place = 1;
}

void TouchBeyondEndOfFile() {
    std::FILE* const file = std::tmpfile();
    void* const page =
        mmap(nullptr, PageBytes(), PROT_READ | PROT_WRITE, MAP_SHARED, fileno(file), 0);
    *static_cast<volatile char*>(page) = 1;
}

// The compiler has no way to say this that is defined, so the processor is asked.
void DivideByZero() {
#if defined(__x86_64__)
    asm volatile("xorl %%ecx, %%ecx\n\tmovl $1, %%eax\n\tcltd\n\tidivl %%ecx" ::
                     : "eax", "ecx", "edx", "cc");
#else
    raise(SIGFPE);
#endif
}

void RunIllegalInstruction() {
#if defined(__x86_64__)
    asm volatile("ud2");
#else
    raise(SIGILL);
#endif
}

[[gnu::noinline]] std::size_t Recurse(std::size_t depth) {
    std::array<volatile char, 512> frame{};
    frame[depth % frame.size()] = 1;
    const std::size_t deeper = depth == 0 ? 0 : Recurse(depth + 1);
    return deeper + static_cast<std::size_t>(frame[depth % frame.size()]);
}

void OverflowStack() {
    static_cast<void>(Recurse(1));
}

// Scopes that have ended, others that are open, then the crash.
template <class Crash>
Scenario AfterScopes(const Crash& crash) {
    return [crash] {
        TraceForEverAndSave();
        const ActivityScope outer("outer");
        const ActivityScope inner("inner");
        Work(0, GetSubject().count);
        crash();
        return 4;
    };
}

int BySession() {
    static_cast<void>(new tarn::TracingSession(tarn::OnCrash::SaveLog));
    const ActivityScope outer("outer");
    const ActivityScope inner("inner");
    Work(0, GetSubject().count);
    std::abort();
}

// Every one has its last line in the log, though they go on while the process crashes.
int AmongThreads() {
    constexpr std::size_t threadCount = 4;
    TraceForEverAndSave();
    for (std::size_t thread = 0; thread < threadCount; ++thread) {
        std::thread([thread] { Work(thread, ~std::size_t{0}); }).detach();
    }
    while (GetSubject().progress->EndedInAll() < GetSubject().count) {
        std::this_thread::yield();
    }
    Touch();
    return 4;
}

/// Somebody sends the signal to a thread, whatever that is at.
int AtAnyMoment() {
    TraceForEver();
    SaveOnCrash(std::chrono::seconds(3));
    const pthread_t main = pthread_self();
    std::thread([main] {
        while (GetSubject().progress->EndedInAll() < GetSubject().count) {
            std::this_thread::yield();
        }
        pthread_kill(main, SIGABRT);
    }).detach();
    Work(0, ~std::size_t{0});
    return 4;
}

/// Crashes at the beginning of a scope, once all is emitted that is to be emitted before; with
/// `always` at everything that comes later, too.
class CrashingSink : public IMetricsMonitorSink {
public:
    explicit CrashingSink(bool always) : m_always(always) {}

    void Log(const TLog::Event& event) override {
        const bool isFatal = event.GetName() == TString(u"begin-fatal");
        if (isFatal || m_hasCrashed) {
            s_mayCrash.wait(false);
            m_hasCrashed = m_always;
            Touch();
        }
        TLog::Logger::Get().Log(TLog::Info, event);
    }

    static void LetCrash() {
        s_mayCrash = true;
        s_mayCrash.notify_all();
    }

private:
    static inline std::atomic<bool> s_mayCrash{false};

    const bool m_always;
    bool m_hasCrashed = false;
};

int InSink(bool always, bool isAsynchronous) {
    auto* const session = new tarn::TracingSession;
    session->GetMonitor().EnableTest(new CrashingSink(always), new MonitorUUIDGenerator);
    SaveOnCrash();
    const ActivityScope outer("outer");
    Work(0, 5);
    if (!isAsynchronous) {
        CrashingSink::LetCrash();
    }
    { const ActivityScope fatal("fatal"); }
    Work(1, 5);
    CrashingSink::LetCrash();
    std::this_thread::sleep_for(generous);
    return 4;
}

/// Crashes at the first event of a scope's end, when it is told to.
class CrashingListener : public Metrics::IMetricsListener {
public:
    void OnMetricsEvent(const Metrics::MetricsEvent& event) override {
        if (event.type == Metrics::MetricsEventType::NameValue && isArmed.exchange(false)) {
            mayCrash.wait(false);
            Touch();
        }
    }

    static inline std::atomic<bool> isArmed{false};
    static inline std::atomic<bool> mayCrash{false};
};

int InEnd() {
    TraceForEverAndSave();
    const RefCntPtr<Metrics::IMetricsListener> listener(new CrashingListener);
    Metrics::MetricsManager::GetInstance().AddConsumer(listener, Metrics::flagTracing, false);
    const ActivityScope outer("outer");
    Work(0, 5);
    Metrics::Flush(generous);
    {
        const ActivityScope fatal("fatal");
        CrashingListener::isArmed = true;
    }
    Work(1, 5);
    CrashingListener::mayCrash = true;
    CrashingListener::mayCrash.notify_all();
    std::this_thread::sleep_for(generous);
    return 4;
}

int InWrite() {
    TraceForEverAndSave();
    const ActivityScope outer("outer");
    Work(0, GetSubject().count);
    Metrics::Flush(generous);
    s_crashesInWrite = true;
    Work(1, 1);
    std::this_thread::sleep_for(generous);
    return 4;
}

/// Crashes inside a delivery, while the main thread waits for being saved.
class LaterCrashingSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& event) override {
        if (event.GetName() == TString(u"begin-fatal")) {
            s_isInside = true;
            s_isInside.notify_all();
            s_mayCrash.wait(false);
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            Touch();
        }
        TLog::Logger::Get().Log(TLog::Info, event);
    }

    static inline std::atomic<bool> s_isInside{false};
    static inline std::atomic<bool> s_mayCrash{false};
};

int WhileSinkCrashes() {
    auto* const session = new tarn::TracingSession;
    session->GetMonitor().EnableTest(new LaterCrashingSink, new MonitorUUIDGenerator);
    SaveOnCrash();
    const ActivityScope outer("outer");
    Work(0, 5);
    const ActivityScope fatal("fatal");
    Work(1, 5);
    LaterCrashingSink::s_isInside.wait(false);
    LaterCrashingSink::s_mayCrash = true;
    LaterCrashingSink::s_mayCrash.notify_all();
    std::abort();
}

void TouchInHandler(int) {
    Touch();
}

int OnAlternativeStack() {
    TraceForEverAndSave();
    const ActivityScope outer("outer");

    struct sigaction action {};

    action.sa_handler = TouchInHandler;
    action.sa_flags = SA_ONSTACK;
    sigaction(SIGUSR1, &action, nullptr);
    Work(0, GetSubject().count);
    raise(SIGUSR1);
    return 4;
}

int OverflowOnThread() {
    TraceForEverAndSave();
    std::thread([] {
        const Metrics::CrashStack stack;
        const ActivityScope outer("outer");
        Work(0, GetSubject().count);
        OverflowStack();
    }).join();
    return 4;
}

// All the address space that the process may have is in use, and so are all free blocks.
int WithoutMemory() {
    TraceForEverAndSave();
    const ActivityScope outer("outer");
    Work(0, GetSubject().count);
    constexpr rlim_t most = rlim_t{1} << 30;
    const rlimit limit{most, most};
    setrlimit(RLIMIT_AS, &limit);
    for (std::size_t bytes = std::size_t{1} << 20; bytes >= 16; bytes /= 2) {
        while (std::malloc(bytes) != nullptr) {
        }
    }
    static_cast<void>(operator new (std::size_t{1} << 20));
    return 4;
}

std::atomic<bool> s_isHandled{false};

/// Two threads crash, at once or the second one while the host's handler runs for the first.
int TwoThreads(bool atOnce) {
    TraceForEver();

    struct sigaction action {};

    action.sa_handler = [](int signal) {
        GetSubject().progress->Count(handlerCalls);
        s_isHandled = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));  // the other one is waiting
        std::signal(signal, SIG_DFL);
        raise(signal);
    };
    sigaction(SIGSEGV, &action, nullptr);
    SaveOnCrash();
    static std::atomic<int> ready{0};
    for (std::size_t thread = 0; thread < 2; ++thread) {
        std::thread([thread, atOnce] {
            const ActivityScope outer("outer");
            Work(thread, GetSubject().count);
            ready.fetch_add(1);
            while (ready.load() < 2) {
            }
            while (!atOnce && thread == 1 && !s_isHandled) {
            }
            Touch();
        }).detach();
    }
    std::this_thread::sleep_for(generous);
    return 4;
}

void HandleAsHost(int signal, siginfo_t* info, void* context) {
    GetSubject().progress->Count(handlerCalls);
    if (signal == SIGSEGV && info->si_code == SEGV_ACCERR &&
        info->si_addr == ForbiddenPage() + 40 && context != nullptr) {
        GetSubject().progress->Count(rightArguments);
    }
}

void SetHostsHandler(void (*handler)(int, siginfo_t*, void*), struct sigaction* former = nullptr) {
    struct sigaction action {};

    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, former);
}

/// Crashes inside a delivery and goes on when the host's handler returns. The rescue, which goes on
/// in its place, needs longer than its deadline.
class ReturningSink : public IMetricsMonitorSink {
public:
    void Log(const TLog::Event& event) override {
        if (event.GetName() == TString(u"begin-fatal")) {
            s_mayCrash.wait(false);
            m_isSlow = true;
            raise(SIGABRT);
            s_hasOverlapped = m_isInside.load();
            s_hasReturned = true;
            s_hasReturned.notify_all();
        }
        m_isInside = true;
        if (m_isSlow.exchange(false)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        }
        TLog::Logger::Get().Log(TLog::Info, event);
        m_isInside = false;
    }

    static inline std::atomic<bool> s_mayCrash{false};
    static inline std::atomic<bool> s_hasReturned{false};
    static inline std::atomic<bool> s_hasOverlapped{false};

private:
    std::atomic<bool> m_isInside{false};
    std::atomic<bool> m_isSlow{false};
};

int ReturningLate() {
    auto* const session = new tarn::TracingSession;
    session->GetMonitor().EnableTest(new ReturningSink, new MonitorUUIDGenerator);
    std::signal(SIGABRT, [](int) {});
    SaveOnCrash(std::chrono::milliseconds(50));
    { const ActivityScope fatal("fatal"); }
    Work(1, 5);
    ReturningSink::s_mayCrash = true;
    ReturningSink::s_mayCrash.notify_all();
    ReturningSink::s_hasReturned.wait(false);
    Work(2, 5);
    return Metrics::Flush(generous) && !ReturningSink::s_hasOverlapped ? 3 : 4;
}

int WithHostsHandler() {
    TraceForEver();
    SetHostsHandler([](int signal, siginfo_t* info, void* context) {
        HandleAsHost(signal, info, context);
        std::signal(signal, SIG_DFL);  // and the access is repeated
    });
    SaveOnCrash();
    const ActivityScope outer("outer");
    Work(0, GetSubject().count);
    Touch();
    return 4;
}

// Raising the signal again has its default effect.
int WithHandlerForOnce() {
    TraceForEver();

    struct sigaction action {};

    action.sa_handler = [](int signal) {
        GetSubject().progress->Count(handlerCalls);
        raise(signal);
    };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGSEGV, &action, nullptr);
    SaveOnCrash();
    const ActivityScope outer("outer");
    Work(0, GetSubject().count);
    Touch();
    return 4;
}

struct sigaction s_replaced {};

// As hosts do that chain handlers, but set twice, before and after.
int InCircle() {
    TraceForEver();
    const auto handler = [](int signal, siginfo_t* info, void* context) {
        HandleAsHost(signal, info, context);
        if ((s_replaced.sa_flags & SA_SIGINFO) != 0) {
            s_replaced.sa_sigaction(signal, info, context);
        }
    };
    SetHostsHandler(handler);
    SaveOnCrash();
    SetHostsHandler(handler, &s_replaced);
    const ActivityScope outer("outer");
    Work(0, GetSubject().count);
    Touch();
    return 4;
}

// The host's handler makes the page accessible, and the process goes on.
int Mended() {
    TraceForEver();
    SetHostsHandler([](int signal, siginfo_t* info, void* context) {
        HandleAsHost(signal, info, context);
        mprotect(ForbiddenPage(), PageBytes(), PROT_READ | PROT_WRITE);
    });
    SaveOnCrash();
    for (std::size_t round = 0; round < 3; ++round) {
        mprotect(ForbiddenPage(), PageBytes(), PROT_NONE);
        Work(round, 50);
        Touch();
    }
    Work(3, 50);
    return 3;
}

int WhileLogHangs() {
    TraceForEver();
    SaveOnCrash(std::chrono::milliseconds(300));
    std::thread([] { Work(1, GetSubject().count); }).detach();
    GetSubject().isLogStuck.wait(false);
    Touch();
    return 4;
}

int InForkedChild() {
    TraceForEverAndSave();
    Work(0, GetSubject().count);
    const pid_t child = fork();
    if (child == 0) {
        const ActivityScope outer("outer");
        Work(1, GetSubject().count);
        std::abort();
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT ? 3 : 4;
}

// The thread that waits for a crash must not keep the process alive.
int MainLeaves() {
    TraceForEverAndSave();
    Work(0, GetSubject().count);
    pthread_exit(nullptr);
}

bool IsDefault(int signal) {
    struct sigaction current {};

    return sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_DFL;
}

// Switched off, it restores the handlers that were there before.
int SwitchedOff() {
    TraceForEver();
    SetHostsHandler(HandleAsHost);
    const std::terminate_handler formerTerminate = std::get_terminate();
    SaveOnCrash();
    SaveOnCrash();
    const bool isOn = !IsDefault(SIGABRT) && std::get_terminate() != formerTerminate;
    Metrics::StopSavingOnCrash();
    Metrics::StopSavingOnCrash();

    struct sigaction current {};

    sigaction(SIGSEGV, nullptr, &current);
    const bool isOff = IsDefault(SIGABRT) && current.sa_sigaction == HandleAsHost &&
                       std::get_terminate() == formerTerminate;
    return isOn && isOff ? 3 : 4;
}

int OfSignalThatCannotBeHandled() {
    Metrics::CrashOptions options;
    options.signals = {SIGSEGV, SIGKILL};
    try {
        Metrics::SaveOnCrash(options);
    } catch (const std::invalid_argument&) {
        return IsDefault(SIGSEGV) ? 3 : 4;
    }
    return 5;
}

// What the host ignores stays ignored.
int OfIgnoredSignal() {
    TraceForEver();
    std::signal(SIGFPE, SIG_IGN);
    SaveOnCrash();
    Work(0, GetSubject().count);
    raise(SIGFPE);
    return 3;
}

// A host may use errno after a signal that it has dealt with.
int KeepingErrno() {
    TraceForEver();
    std::signal(SIGABRT, [](int) {});
    SaveOnCrash();
    errno = EDOM;
    raise(SIGABRT);
    return errno == EDOM ? 3 : 4;
}

}  // namespace

const std::map<std::string, Scenario>& CrashScenarios() {
    static const auto& scenarios = *new std::map<std::string, Scenario>{
        {"crash-returning-late", ReturningLate},
        {"crash-by-abort", AfterScopes([] { std::abort(); })},
        {"crash-by-segv", AfterScopes(Touch)},
        {"crash-by-bus", AfterScopes(TouchBeyondEndOfFile)},
        {"crash-by-fpe", AfterScopes(DivideByZero)},
        {"crash-by-ill", AfterScopes(RunIllegalInstruction)},
        {"crash-by-terminate", AfterScopes([] { std::terminate(); })},
        {"crash-by-exception", AfterScopes([] { throw std::runtime_error("nobody catches it"); })},
        {"crash-by-stack-overflow", AfterScopes(OverflowStack)},
        {"crash-by-session", BySession},
        {"crash-among-threads", AmongThreads},
        {"crash-at-any-moment", AtAnyMoment},
        {"crash-in-sink-sync", [] { return InSink(false, false); }},
        {"crash-in-sink-async", [] { return InSink(false, true); }},
        {"crash-in-rescue-sync", [] { return InSink(true, false); }},
        {"crash-in-rescue-async", [] { return InSink(true, true); }},
        {"crash-in-end", InEnd},
        {"crash-in-write", InWrite},
        {"crash-while-sink-crashes", WhileSinkCrashes},
        {"crash-on-alternative-stack", OnAlternativeStack},
        {"crash-by-overflow-on-thread", OverflowOnThread},
        {"crash-without-memory", WithoutMemory},
        {"crash-of-two-threads", [] { return TwoThreads(true); }},
        {"crash-of-another-thread", [] { return TwoThreads(false); }},
        {"crash-with-handler-for-once", WithHandlerForOnce},
        {"crash-with-hosts-handler", WithHostsHandler},
        {"crash-in-circle", InCircle},
        {"crash-mended", Mended},
        {"crash-while-log-hangs", WhileLogHangs},
        {"crash-in-forked-child", InForkedChild},
        {"crash-never-main-leaves", MainLeaves},
        {"crash-switched-off", SwitchedOff},
        {"crash-of-signal-that-cannot-be-handled", OfSignalThatCannotBeHandled},
        {"crash-of-ignored-signal", OfIgnoredSignal},
        {"crash-keeping-errno", KeepingErrno}};
    return scenarios;
}

}  // namespace ProcessTest
