#include "cvlcoreplatform/CorePlatformOptions.h"

#include "cvlcoreplatform/host/TarnEnabled.h"
#include "cvlsys/host/ForkAwareMutex.h"

#include <memory>
#include <mutex>
#include <utility>

namespace {

using Question = std::function<bool()>;

struct Registration {
    cvlsys::ForkAwareMutex mutex{cvlsys::ForkRank::TarnEnabled};
    std::shared_ptr<const Question> question;
};

Registration& GetRegistration() {
    static Registration& registration = *new Registration;
    return registration;
}

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const Registration& madeAtLoad = GetRegistration();

}  // namespace

void CorePlatformOptions::SetIsTarnEnabledFunction(std::function<bool()> isTarnEnabled) {
    auto question =
        isTarnEnabled ? std::make_shared<const Question>(std::move(isTarnEnabled)) : nullptr;
    Registration& registration = GetRegistration();
    // The former function is destroyed outside the lock, for it may own anything.
    const std::lock_guard lock(registration.mutex);
    registration.question.swap(question);
}

bool IsTarnEnabled() {
    std::shared_ptr<const Question> question;
    {
        Registration& registration = GetRegistration();
        const std::lock_guard lock(registration.mutex);
        question = registration.question;
    }
    return question != nullptr && (*question)();
}
