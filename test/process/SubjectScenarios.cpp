#include "Subject.h"

#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"

#include "cvlcoreplatform/TLogger.h"
#include "cvlcoreplatform/host/LoggerControl.h"
#include "cvlmetrics/host/Delivery.h"
#include "cvlmetrics/host/Statistics.h"

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <pthread.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

namespace ProcessTest {

namespace {

using tarn::ActivityScope;

[[noreturn]] void WaitForEver() {
    for (;;) {
        pause();
    }
}

int ReturnFromMain() {
    const tarn::TracingSession session;
    Work(0, GetSubject().count);
    return 3;
}

int ExitInsideScopes() {
    TraceForEver();
    const ActivityScope outer("open");
    const ActivityScope inner("open");
    Work(0, GetSubject().count);
    std::exit(3);
}

int ExitFromAThread() {
    TraceForEver();
    const ActivityScope scope("open");
    std::thread([] {
        Work(1, GetSubject().count);
        std::exit(3);
    }).detach();
    WaitForEver();
}

int QuickExit() {
    TraceForEver();
    const ActivityScope scope("open");
    Work(0, GetSubject().count);
    std::quick_exit(3);
}

/// Holds a scope that it ends when it is destroyed itself, and traces more then.
struct TracingAtItsEnd {
    TracingAtItsEnd() = default;

    explicit TracingAtItsEnd(const char* newName) : name(newName) {}

    void Open() { scope.emplace(name); }

    ~TracingAtItsEnd() {
        if (!scope.has_value()) {
            return;
        }
        { const ActivityScope onThisThread("late"); }
        std::thread([] { Work(1, 10); }).join();
        scope.reset();
    }

    TracingAtItsEnd(const TracingAtItsEnd&) = delete;
    TracingAtItsEnd& operator=(const TracingAtItsEnd&) = delete;

    const char* name = "";
    std::optional<ActivityScope> scope;
};

// Made before the delivery is chosen, hence destroyed after the last flush.
TracingAtItsEnd s_early("held-early");

int StaticDestructors() {
    TraceForEver();
    static TracingAtItsEnd late("held-late");
    s_early.Open();
    late.Open();
    Work(0, GetSubject().count);
    return 3;
}

/// Traces in its destructor.
struct TracingAtThreadEnd {
    explicit TracingAtThreadEnd(std::size_t number) : thread(number) {}

    ~TracingAtThreadEnd() { Work(thread, 10); }

    TracingAtThreadEnd(const TracingAtThreadEnd&) = delete;
    TracingAtThreadEnd& operator=(const TracingAtThreadEnd&) = delete;

    std::size_t thread;
};

// An object of the thread that is made after the first scope is destroyed before what the scopes
// need; one that is made before it, after that.
int ThreadLocalDestructors() {
    TraceForEver();
    std::vector<std::thread> threads;
    threads.emplace_back([] {
        Work(1, GetSubject().count);
        thread_local const TracingAtThreadEnd after(1);
        static_cast<void>(&after);
    });
    threads.emplace_back([] {
        thread_local const TracingAtThreadEnd before(2);
        static_cast<void>(&before);
        Work(2, GetSubject().count);
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    Work(3, GetSubject().count);
    thread_local const TracingAtThreadEnd ofMain(3);
    static_cast<void>(&ofMain);
    return 3;
}

void StartThreadsThatWorkForEver(std::size_t first, std::size_t count) {
    constexpr std::size_t endless = ~std::size_t{0};
    for (std::size_t thread = first; thread < first + count; ++thread) {
        std::thread([thread] { Work(thread, endless); }).detach();
    }
}

int ThreadsStillRunning() {
    constexpr std::size_t threadCount = 4;
    TraceForEver();
    StartThreadsThatWorkForEver(0, threadCount);
    while (GetSubject().progress->EndedInAll() < GetSubject().count) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 3;
}

// The log hangs at some point of this.
int HangingLog() {
    TraceForEver();
    std::thread([] { Work(1, GetSubject().count); }).detach();
    GetSubject().isLogStuck.wait(false);
    return 3;
}

/// Whether it says that not everything is delivered, after having waited, but not for long.
bool GivesUpInTime(bool (*wait)(std::chrono::milliseconds)) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds deadline{200};
    constexpr std::chrono::seconds late{10};
    const auto begin = Clock::now();
    const bool isDelivered = wait(deadline);
    const auto time = Clock::now() - begin;
    return !isDelivered && time > deadline / 2 && time < late;
}

// As a host does that would rather end without its log than not end.
int GiveUpOnLog() {
    TraceForEver();
    std::thread([] { Work(1, GetSubject().count); }).detach();
    GetSubject().isLogStuck.wait(false);
    if (!GivesUpInTime([](auto deadline) { return Metrics::Flush(deadline); })) {
        return 1;
    }
    if (!GivesUpInTime([](auto deadline) { return Metrics::Shutdown(deadline); })) {
        return 2;
    }
    // From now on nobody waits for the log.
    const uint64 lost = Metrics::GetBusStatistics().lostEvents;
    Work(0, GetSubject().count);
    return Metrics::GetBusStatistics().lostEvents > lost ? 3 : 4;
}

int UncaughtException() {
    TraceForEver();
    const ActivityScope scope("open");
    Work(0, GetSubject().count);
    std::thread([] {
        const ActivityScope inner("failing");
        throw std::runtime_error("nobody catches this");
    }).join();
    return 3;
}

// Threads are cancelled while they trace; between two scopes they say that they may be.
int CancelThreads() {
    constexpr std::size_t threadsAtOnce = 4;
    TraceForEver();
    for (std::size_t n = 0; n < GetSubject().count; n += threadsAtOnce) {
        std::vector<std::thread> threads;
        for (std::size_t thread = 0; thread < threadsAtOnce; ++thread) {
            threads.emplace_back([thread] {
                for (;;) {
                    Work(thread, 1);
                    pthread_testcancel();
                }
            });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (std::thread& thread : threads) {
            pthread_cancel(thread.native_handle());
            thread.join();
        }
    }
    return 3;
}

// The log goes into a pipe that blocks and that nobody reads.
int StuckStream() {
    LogToStuckStream();
    TraceForEver();
    std::vector<std::thread> threads;
    for (std::size_t thread = 0; thread < 3; ++thread) {
        threads.emplace_back([thread] { Work(thread, GetSubject().count); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return 3;
}

// Standard error is closed before the program begins; the host's own file gets its number.
int LogByDefaultWithoutStandardError() {
    const int file = open(GetSubject().hostsFile.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    TLog::ReplaceBackEnd(GetSubject().logByDefault);
    for (int i = 0; i < 3; ++i) {
        TLog::Logger::Get().LogMessage(TLog::Error, TString(u"not for this file"));
    }
    return file == STDERR_FILENO && TLog::GetLogStatistics().writeErrors == 3 ? 3 : 4;
}

int UntilKilled() {
    constexpr std::size_t threadCount = 3;
    TraceForEver();
    StartThreadsThatWorkForEver(0, threadCount);
    WaitForEver();
}

}  // namespace

const std::map<std::string, Scenario>& ExitScenarios() {
    static const auto& scenarios =
        *new std::map<std::string, Scenario>{{"return-from-main", ReturnFromMain},
                                             {"exit-inside-scopes", ExitInsideScopes},
                                             {"exit-from-a-thread", ExitFromAThread},
                                             {"quick-exit", QuickExit},
                                             {"static-destructors", StaticDestructors},
                                             {"thread-local-destructors", ThreadLocalDestructors},
                                             {"threads-still-running", ThreadsStillRunning},
                                             {"hanging-log", HangingLog},
                                             {"give-up-on-log", GiveUpOnLog},
                                             {"uncaught-exception", UncaughtException},
                                             {"cancel-threads", CancelThreads},
                                             {"log-by-default", LogByDefaultWithoutStandardError},
                                             {"stuck-stream", StuckStream},
                                             {"until-killed", UntilKilled}};
    return scenarios;
}

}  // namespace ProcessTest
