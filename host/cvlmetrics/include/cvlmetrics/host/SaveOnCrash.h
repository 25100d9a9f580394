#pragma once

#include "cvlmetrics/Export.h"
#include "cvlmetrics/LastWords.h"

#include <chrono>
#include <csignal>
#include <cstddef>
#include <vector>

/// Saving what is queued, and saying what is open, when the process crashes. Off unless a host
/// switches it on.
///
/// At a crash a thread that was made beforehand delivers all that is queued, logs one message at
/// severity Fatal that names the signal, the thread and the open scopes with their times so far,
/// and flushes the log. The thread that crashed only waits for that, for the deadline at the most;
/// it allocates nothing and takes no lock. Then the handler that was there before is called with
/// the same arguments; without one the signal takes its default effect, core file included, so that
/// the status of the process shows it.
///
/// What a crash interrupts is lost: the event that is being delivered, the lines that are being
/// written, what the crashed thread was just emitting. If it holds a lock that the delivery needs
/// (malloc's, or one of a custom back end), the deadline passes, and what has been
/// delivered until then is saved.
namespace Metrics {

struct CrashOptions {
    /// How long the crashed thread waits. Negative is zero.
    std::chrono::milliseconds deadline{1000};

    /// Signals that a handler can be set for.
    std::vector<int> signals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

    /// `std::terminate` as well. It ends in SIGABRT, but then the handler that was there before is
    /// called with everything saved.
    bool onTerminate = true;

    /// Gives the calling thread, usually the main thread, an alternative signal stack if it has
    /// none, for the rest of its life: without one a stack overflow ends the process at once. Other
    /// threads get theirs by a `CrashStack`.
    bool provideStack = true;
};

/// Switches it on. Call it once the host has set its own handlers: those are called afterwards. A
/// handler that is set later comes first and should call the one it has replaced. To call it again
/// changes the deadline and adds signals; handlers keep their order. A signal that the host ignores
/// stays ignored.
///
/// A former handler may return, as one does that mends the fault; tracing then goes on as before.
/// It must not leave by `siglongjmp`. If several threads crash, the first is served and the others
/// wait for the end of the process, at most a minute, and then end it.
///
/// A forked child has the same. A child made by `vfork`, `_Fork` or `clone` is not saved, its
/// former handlers are called.
///
/// Any thread but one that delivers. Throws `std::invalid_argument` for a signal that cannot be
/// handled and `std::system_error` if there is no thread to be had; nothing has changed then.
CVLMETRICS_API void SaveOnCrash(const CrashOptions& options);

/// Has `action` called at a crash, once what is queued is delivered and before the last words are
/// asked for: for what a consumer holds back. It is called on a thread of the bus's own while no
/// other event is delivered; the crash may have interrupted the consumer anywhere, and the action
/// must not wait for another thread. Null for none. Any thread.
CVLMETRICS_API void SetBeforeLastWords(void (*action)() noexcept) noexcept;

/// Switches it off and puts the former handlers back, except where somebody has set another one
/// meanwhile: there ours stays and passes on. Any thread, but not from a signal handler. Does
/// nothing while it is off.
CVLMETRICS_API void StopSavingOnCrash() noexcept;

/// An alternative signal stack for the calling thread while the object exists, so that it survives
/// overflowing its own. Does nothing on a thread that has one. Throws `std::bad_alloc`. Is
/// destroyed on the thread that made it.
class CVLMETRICS_API CrashStack {
public:
    CrashStack();
    ~CrashStack();
    CrashStack(const CrashStack&) = delete;
    CrashStack& operator=(const CrashStack&) = delete;

private:
    void* m_memory = nullptr;
    std::size_t m_bytes = 0;
};

}  // namespace Metrics
