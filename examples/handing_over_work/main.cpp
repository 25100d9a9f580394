// Work that goes on in another thread stays part of its activity.
#include "tarn/ActivityHandOver.h"
#include "tarn/ActivityScope.h"
#include "tarn/OptTarn.h"
#include "tarn/TracingSession.h"

#include <thread>

namespace {

void Run(const tarn::ActivityHandOver& handOver) {
    const tarn::ActivityHandOver::Run work(handOver, "work", {{"piece", 1}});
    const tarn::ActivityScope part("part-of-work");
}

}  // namespace

int main() {
    // Gives every activity an identity that threads can carry.
    OptTarn::SetIsForegroundThreadContextEnabled(true);
    const tarn::TracingSession session;
    const tarn::ActivityScope serve("serve");
    const tarn::ActivityScope step("step");
    // What the work takes along: the activity that it belongs to, and what the log needs to know
    // its sponsor, its user and its request.
    std::thread worker(Run, tarn::ActivityHandOver());
    worker.join();
}
