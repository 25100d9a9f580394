#include "OwnThread.h"

#include "ProcessThreads.h"

#include "cvlsys/host/HostState.h"

#include <optional>
#include <pthread.h>
#include <sched.h>
#include <signal.h>

namespace Metrics::OwnThread {

namespace {

using Body = void (*)() noexcept;

std::optional<cpu_set_t> ProcessorsOfThisThread() noexcept {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    if (sched_getaffinity(0, sizeof processors, &processors) != 0) {
        return std::nullopt;
    }
    return processors;
}

// When the library is loaded, no thread of the host's has been given processors of its own yet.
const std::optional<cpu_set_t> s_processors = ProcessorsOfThisThread();

void RunWithNormalScheduling(Body body) noexcept {
    const sched_param parameters{};
    pthread_setschedparam(pthread_self(), SCHED_OTHER, &parameters);
    if (s_processors.has_value()) {
        sched_setaffinity(0, sizeof *s_processors, &*s_processors);
    }
    pthread_setname_np(pthread_self(), "tarn-delivery");
    body();
}

// A blocked signal that a fault raises ends the process without the host's handler. One that asks
// the process to end must find a thread that takes it when all others are gone.
sigset_t BlockedSignals(const sigset_t& ofStarter) noexcept {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT, SIGPROF}) {
        sigdelset(&blocked, fault);
    }
    for (const int end : {SIGTERM, SIGINT, SIGQUIT, SIGHUP}) {
        if (sigismember(&ofStarter, end) == 0) {
            sigdelset(&blocked, end);
        }
    }
    return blocked;
}

}  // namespace

bool Start(Body body) noexcept {
    const cvlsys::HostState hostState;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    sigset_t hosts;
    pthread_sigmask(SIG_SETMASK, nullptr, &hosts);
    const sigset_t blocked = BlockedSignals(hosts);
    pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
    pthread_t thread{};
    const int result = pthread_create(
        &thread,
        &attributes,
        [](void* argument) -> void* {
            RunWithNormalScheduling(reinterpret_cast<Body>(argument));
            return nullptr;
        },
        reinterpret_cast<void*>(body));
    pthread_sigmask(SIG_SETMASK, &hosts, nullptr);
    pthread_attr_destroy(&attributes);
    return result == 0;
}

bool IsLastOfProcess() noexcept {
    const std::optional<ProcessThreads> threads = ProcessThreads::Count();
    return threads.has_value() && threads->running == 1;
}

}  // namespace Metrics::OwnThread
