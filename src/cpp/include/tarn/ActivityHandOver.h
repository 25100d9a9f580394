#pragma once

#include "tarn/ActivityScope.h"
#include "tarn/Export.h"
#include "tarn/Traits.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsValue.h"

#include <memory>

namespace tarn {

/// What work needs on another thread: the activity that it belongs to, and a metrics context from
/// which the log knows its sponsor, its request and its user. Make it where the work is handed
/// over, store it with the work, and begin a `Run` where the work runs:
///
///     pool.Submit([handOver = tarn::ActivityHandOver()] {
///         tarn::ActivityHandOver::Run run(handOver, "work", {{"piece", 1}});
///         ...
///     });
///
/// Work may run any number of times, on any threads and at once; each run is a separate activity.
/// Copies share their state, and the last one frees it: work that never runs leaves nothing
/// behind. Any thread may copy, run and destroy one. Making one throws `std::bad_alloc` when memory
/// runs out.
class TARN_EXPORT ActivityHandOver {
public:
    /// Captures the calling thread's current activity. If none is current, each run begins its own
    /// tree; so do runs of a hand-over that was moved from.
    ActivityHandOver();

    /// Work that another process has handed over; `sender` is the activity there. Each run is a
    /// child of it, as a separate request, whatever is current on the thread. Without a sender each
    /// run begins a tree. `request` sets whom and what that is for, by the tokens of request
    /// attributes ("user", "req-desc"), from the first line on. Throws `std::bad_alloc`.
    static ActivityHandOver FromElsewhere(std::shared_ptr<ActivityContext> sender,
                                          Metrics::NameValueList request = {});

    class Run;
    class Continuation;

private:
    struct Origin;

    explicit ActivityHandOver(std::shared_ptr<Origin> origin) noexcept;

    std::shared_ptr<Origin> m_origin;
};

/// One run of work that was handed over: a scope, in a metrics context of its own. It needs the
/// hand-over during its construction only. Like a scope it belongs to the thread that made it, and
/// runs of one thread end in the reverse order of their beginnings. A run whose type is `Untracked`
/// may move to another thread and overlap others.
class TARN_EXPORT ActivityHandOver::Run {
public:
    /// Throws what the constructors of `ActivityScope` throw. The list is empty afterwards.
    Run(const ActivityHandOver& handOver,
        const char* name,
        Metrics::NameValueList&& attributes = {});
    Run(const ActivityHandOver& handOver,
        const char* name,
        Traits traits,
        Metrics::NameValueList&& attributes = {});

    /// Ends the activity, as the destructor of a scope does.
    ~Run() = default;

    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /// For attributes and results. To move, use the operations below: the scope alone is not all.
    ActivityScope& Scope() noexcept { return m_scope; }

    /// Makes the run current on the calling thread, above what is there: what begins there belongs
    /// to it. Throws `std::bad_alloc`.
    void AttachToThread();

    /// Takes the run off the calling thread. Scopes that began in it there must have ended.
    void DetachFromThread();

private:
    struct OpenContext {
        explicit OpenContext(const ActivityHandOver& handOver);

        Metrics::Context context;
    };

    // The scope ends before its context does.
    OpenContext m_context;
    ActivityScope m_scope;
};

/// While one exists, what begins on the calling thread belongs to the activity that was handed
/// over; the stay itself is not an activity. It belongs to the thread that made it, and may end in
/// any order with others and with scopes. Scopes that began within it should end before it does;
/// otherwise their ends are lost.
class TARN_EXPORT ActivityHandOver::Continuation {
public:
    /// Throws `std::bad_alloc`.
    explicit Continuation(const ActivityHandOver& handOver);
    ~Continuation();

    Continuation(const Continuation&) = delete;
    Continuation& operator=(const Continuation&) = delete;

    /// Takes it off the thread at once: what begins afterwards does not belong to it, and scopes
    /// that began within it may go on until it ends.
    void Leave();

private:
    std::shared_ptr<ActivityContext> m_activity;
    Metrics::Context m_context;
};

}  // namespace tarn
