#pragma once

#include "cvlmetrics/Export.h"
#include "cvlsys/IntegerTypes.h"

#include <memory>

namespace Metrics {

/// A metrics context: the unit of work whose events arrive in order. Its creator owns it. It may
/// be destroyed on any thread; apart from that one thread uses it at a time, and the threads hand
/// it over with `DetachFromThread` and `AttachToThread`. One that is not open for scopes may be
/// current on several threads at once, for them to create children of it.
class CVLMETRICS_API Context {
public:
    /// Makes the id of a new context, never 0, and announces it: a root with `isRoot`, else a
    /// child of the calling thread's current context (a root where there is none). Construct the
    /// context for it: an id without one is remembered for as long as the process runs.
    static uint64 Create(bool isRoot);

    /// `id` comes from `Create`; `flags` travel with the context's own events.
    Context(uint64 flags, uint64 id);

    /// Announces the end of the context and takes it off the threads it is current on. Scopes
    /// that are still open in it stay open for their owners.
    ~Context();

    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    /// Opens the context for scopes and makes it current on the calling thread.
    void OpenScope();

    /// Makes the context current on the calling thread, on top of what was.
    void AttachToThread();

    /// Takes the context off the calling thread; nothing if it is not there.
    void DetachFromThread();

    uint64 GetId() const noexcept;

private:
    struct State;
    std::shared_ptr<State> m_state;
};

/// Ends and frees a context that is held by an owning pointer.
struct CVLMETRICS_API Context_deleter {
    void operator()(Context* context) const noexcept;
};

}  // namespace Metrics
