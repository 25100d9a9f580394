// Work that goes on in another thread stays part of its activity.
#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/ThreadContextPropagator.h"
#include "tarn/TracingSession.h"

#include "cvlmetrics/Context.h"

#include <thread>

namespace {

/// What the work takes along: the activity that it belongs to, and a metrics context of its own,
/// a child of the one it comes from. By the first its scopes get their ids, by the second the log
/// knows their sponsor, their user and their request.
struct Task {
    tarn::ThreadContextPropagator propagator;
    uint64 contextId = Metrics::Context::Create(false);
};

void Run(const Task& task) {
    Metrics::Context context(0, task.contextId);
    context.OpenScope();
    const tarn::ActivityScope work("work",
                                   tarn::CustomContext(Metrics::NameValueList()),
                                   tarn::Traits(),
                                   {{"piece", 1}},
                                   {task.propagator.GetContext(), false});
    const tarn::ActivityScope part("part-of-work");
}

}  // namespace

int main() {
    // Gives every activity an identity that threads can carry.
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const tarn::TracingSession session;
    const tarn::ActivityScope serve("serve");
    const tarn::ActivityScope step("step");
    std::thread worker(Run, Task());
    worker.join();
}
