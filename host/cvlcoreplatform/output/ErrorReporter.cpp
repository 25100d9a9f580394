#include "ErrorReporter.h"

#include "LineOutput.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace cvlcoreplatform {

namespace {

// Where the stream is closed when the library is loaded, or later, its number may belong to a file
// of the host's.
std::atomic<bool> s_hasStandardError{fcntl(STDERR_FILENO, F_GETFD) >= 0};

// Nobody can be told if this fails. It must neither wait for a slow reader of the stream nor end
// the host when there is no reader.
void WriteToStandardError(const std::string& line) noexcept {
    constexpr std::chrono::milliseconds noWait{0};
    if (s_hasStandardError.load(std::memory_order_relaxed) &&
        WriteLine(STDERR_FILENO, OutputKind::Stream, line, false, noWait).error == EBADF) {
        s_hasStandardError.store(false, std::memory_order_relaxed);
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
        line.append(" so far");
        WriteToStandardError(line);
    } catch (...) {
        // Without memory there is no report, which is no reason to end the host.
        return false;
    }
    return true;
}

}  // namespace cvlcoreplatform
