#pragma once

#include "tarn/ActivityScope.h"
#include "tarn/Export.h"
#include "tarn/Traits.h"

#include "cvlmetrics/Context.h"
#include "cvlmetrics/MetricsValue.h"

#include <memory>

namespace tarn {

/// Work that leaves its thread takes this along: the activity that it belongs to, and a metrics
/// context by which the log knows its sponsor, its request and its user. Make it where the work is
/// handed over, keep it in the work, and begin a `Run` where the work is done:
///
///     pool.Submit([handOver = tarn::ActivityHandOver()] {
///         tarn::ActivityHandOver::Run run(handOver, "work", {{"piece", 1}});
///         ...
///     });
///
/// Work may run any number of times, on any threads and at once; each run is an activity of its
/// own. Copies share what is held, and the last one frees it: work that never runs leaves nothing
/// behind. Any thread may copy, run and destroy one. Making one throws `std::bad_alloc` when memory
/// runs out.
class TARN_EXPORT ActivityHandOver {
public:
    /// Captures the calling thread's current activity. Where none is current, each run begins a
    /// tree of its own; so do runs of a hand-over that was moved from.
    ActivityHandOver();

    /// Work that another process has handed over; `sender` is the activity there. Each run is a
    /// child of it, in a request of its own, whatever is current on the thread. Without a sender
    /// each run begins a tree. `request` says for whom and what for that is, by the tokens of the
    /// attributes of requests ("user", "req-desc"), from the first line on. Throws
    /// `std::bad_alloc`.
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
/// over, without an activity for this stay itself. It belongs to the thread that made it, and may
/// end in any order with others and with scopes. Scopes that began within it should have ended
/// before it does; the ends of others are lost.
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
