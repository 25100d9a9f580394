#include "cvlmetrics/host/Delivery.h"

#include "Bus.h"
#include "DeliveringThread.h"
#include "EventQueues.h"
#include "ExitDeadline.h"
#include "PendingAttributes.h"

#include "cvlsys/host/ForkAwareMutex.h"

#include <cstdlib>
#include <mutex>

namespace Metrics {

namespace {

using std::chrono::milliseconds;

struct Choice {
    cvlsys::ForkAwareMutex mutex{cvlsys::ForkRank::DeliveryChoice};
    DeliveryOptions options;
};

Choice& GetChoice() {
    static Choice& choice = *new Choice;
    return choice;
}

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const Choice& madeAtLoad = GetChoice();

bool Shutdown(const Deadline& deadline) noexcept {
    if (Bus::IsDelivering() || DeliveringThread::IsCurrent()) {
        return false;
    }
    // From here on each emitting thread delivers its own events, after what is queued.
    Bus::SetRefusing(false);
    Bus::SetAsynchronous(false);
    // What others have taken off the queues may still be inside of a consumer when the thread ends.
    if (Bus::Flush(deadline) && DeliveringThread::Stop(deadline) && Bus::AwaitDelivery(deadline)) {
        return true;
    }
    Bus::SetGivenUp(true);
    ExitDeadline::Miss();
    return false;
}

void ShutdownAtExit() {
    Shutdown(ExitDeadline::Begin());
}

// Early, so that it runs late: what the host's static objects do in their destructors comes before,
// as far as they were made later.
void RegisterExitHandlers() {
    static const bool registered = [] {
        std::atexit(ShutdownAtExit);
        std::at_quick_exit(ShutdownAtExit);
        return true;
    }();
    static_cast<void>(registered);
}

void Apply(const DeliveryOptions& options) {
    const bool isAsynchronous = options.mode == DeliveryMode::Asynchronous;
    EventQueues::SetCapacity(options.queueBytes);
    EventQueues::SetKept(options.keptQueues);
    PendingAttributes::SetLimit(options.pendingAttributeBytes);
    ExitDeadline::Set(options.exitDeadline);
    Bus::SetRefusing(isAsynchronous && options.whenFull == WhenQueueIsFull::Refuse);
    Bus::SetGivenUp(false);
    Bus::SetAsynchronous(isAsynchronous);
}

}  // namespace

void SetDelivery(const DeliveryOptions& options) {
    Choice& choice = GetChoice();
    const std::lock_guard lock(choice.mutex);
    choice.options = options;
    if (options.mode == DeliveryMode::Asynchronous) {
        RegisterExitHandlers();
    }
    Apply(options);
}

DeliveryOptions GetDelivery() noexcept {
    Choice& choice = GetChoice();
    const std::lock_guard lock(choice.mutex);
    return choice.options;
}

bool Flush(milliseconds deadline) noexcept {
    return Bus::Flush(Deadline(deadline));
}

bool CallBetweenDeliveries(milliseconds deadline, const std::function<void()>& body) noexcept {
    return Bus::CallBetweenDeliveries(Deadline(deadline), body);
}

bool Shutdown(milliseconds deadline) noexcept {
    return Shutdown(Deadline(deadline));
}

}  // namespace Metrics
