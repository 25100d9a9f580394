#pragma once

#include "tarn/ThreadContextPropagator.h"

#include "cvlmetrics/Context.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

namespace packagesearch {

/// A piece of traced work on its way from the thread that asks for it to the one that does it.
/// Constructed on the first, run once on the second; may be thrown away without being run.
///
/// Two things travel along. The propagator holds the activity that asked, which the first scope
/// over there takes as its parent: the ids nest across the threads. The metrics context, made here
/// as a child of the asking thread's, brings the request's attributes and its open scopes: the
/// lines of the worker carry the same user and request, and its figures and failures reach the
/// scope that asked. A worker's activity without it would make a context by itself, and that would
/// be the beginning of another request.
class HandedOverActivity {
public:
    HandedOverActivity();

    /// Calls `work` inside an activity of this name. When it returns, or throws, the activity and
    /// its context have ended. The activity is canceled when the work throws `DeadlineExceeded`.
    void Run(const char* name, std::size_t worker, const std::function<void()>& work);

private:
    tarn::ThreadContextPropagator m_asking;
    std::unique_ptr<Metrics::Context> m_context;
    std::chrono::steady_clock::time_point m_handedOver;
};

}  // namespace packagesearch
