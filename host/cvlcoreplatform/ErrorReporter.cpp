#include "ErrorReporter.h"

#include "PipeSignal.h"

#include <cerrno>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace cvlcoreplatform {

namespace {

// One call, so that the line stays in one piece; there is nobody to tell if it fails. Nor is it
// worth waiting for whoever reads the stream, or ending the host when nobody does.
void WriteToStandardError(const std::string& line) noexcept {
    pollfd stream{STDERR_FILENO, POLLOUT, 0};
    if (poll(&stream, 1, 0) <= 0) {
        return;
    }
    const PipeSignalGuard guard;
    if (write(STDERR_FILENO, line.data(), line.size()) < 0 && errno == EPIPE) {
        guard.TakeBack();
    }
}

}  // namespace

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
        WriteToStandardError(line);
    } catch (...) {
        // Without memory there is no report, which is no reason to end the host.
        return false;
    }
    return true;
}

}  // namespace cvlcoreplatform
