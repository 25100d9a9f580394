#include "cvlmetrics/host/Delivery.h"

#include "Bus.h"
#include "DeliveringThread.h"
#include "EventQueues.h"

#include <algorithm>
#include <cstdlib>
#include <mutex>

namespace Metrics {

namespace {

using std::chrono::milliseconds;

struct Choice {
    std::mutex mutex;
    DeliveryOptions options;
};

Choice& GetChoice() {
    static Choice& choice = *new Choice;
    return choice;
}

void ShutdownAtExit() {
    Shutdown(GetDelivery().exitDeadline);
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
    Bus::SetPatience(options.exitDeadline);
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
    return DeliveringThread::Flush(deadline);
}

bool Shutdown(milliseconds deadline) noexcept {
    if (Bus::IsDelivering() || DeliveringThread::IsCurrent()) {
        return false;
    }
    const auto end = std::chrono::steady_clock::now() + deadline;
    const auto left = [end] {
        const auto time = end - std::chrono::steady_clock::now();
        return std::max(milliseconds{0}, std::chrono::duration_cast<milliseconds>(time));
    };
    // From here on whoever emits delivers by itself, behind what is queued.
    Bus::SetRefusing(false);
    Bus::SetAsynchronous(false);
    if (DeliveringThread::Flush(left()) && DeliveringThread::Stop(left())) {
        return true;
    }
    Bus::SetGivenUp(true);
    return false;
}

}  // namespace Metrics
