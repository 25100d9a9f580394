#include "ErrorReporter.h"

#include <string>
#include <unistd.h>

namespace cvlcoreplatform {

bool ErrorReporter::Report(Clock::time_point now,
                           std::string_view what,
                           std::string_view reason,
                           uint64 total) noexcept {
    Clock::rep next = m_next.load(std::memory_order_relaxed);
    if (now.time_since_epoch().count() < next ||
        !m_next.compare_exchange_strong(
            next, (now + interval).time_since_epoch().count(), std::memory_order_relaxed)) {
        return false;
    }
    try {
        std::string line("log: ");
        line.append(what).append(": ").append(reason).append(", ").append(std::to_string(total));
        line.append(" so far\n");
        // One call, so that the line stays in one piece; there is nobody to tell if it fails.
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
    } catch (...) {
        // Without memory there is no report, which is no reason to end the host.
        return false;
    }
    return true;
}

}  // namespace cvlcoreplatform
