#include "LineOutput.h"

#include "PipeSignal.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/uio.h>
#include <thread>

namespace cvlcoreplatform {

namespace {

using std::chrono::milliseconds;

/// The end of the process stops other threads wherever they are, inside a line, too. So the very
/// last that this library does, after everybody's exit handlers and static objects, is to let
/// nobody begin another line and to wait for those that have been begun.
constexpr std::chrono::seconds lastPatience{1};

constinit std::atomic<int> s_linesBegun{0};
constinit std::atomic<bool> s_isOver{false};

class LineGate {
public:
    // Whoever comes too late is not here for long: the process ends. Not for ever, for the case
    // that somebody waits for this thread all the same.
    LineGate() noexcept {
        s_linesBegun.fetch_add(1, std::memory_order_seq_cst);
        if (s_isOver.load(std::memory_order_seq_cst)) {
            s_linesBegun.fetch_sub(1, std::memory_order_seq_cst);
            std::this_thread::sleep_for(2 * lastPatience);
            s_linesBegun.fetch_add(1, std::memory_order_seq_cst);
        }
    }

    ~LineGate() { s_linesBegun.fetch_sub(1, std::memory_order_seq_cst); }

    LineGate(const LineGate&) = delete;
    LineGate& operator=(const LineGate&) = delete;
};

[[gnu::destructor]] void AwaitLastLines() {
    s_isOver.store(true, std::memory_order_seq_cst);
    const auto end = std::chrono::steady_clock::now() + lastPatience;
    while (s_linesBegun.load(std::memory_order_seq_cst) > 0 &&
           std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds{20});
    }
}

bool WaitForRoom(int descriptor, milliseconds patience) noexcept {
    pollfd waiting{descriptor, POLLOUT, 0};
    return poll(&waiting, 1, static_cast<int>(patience.count())) > 0;
}

LineResult Write(int descriptor,
                 std::string_view line,
                 bool startsNewLine,
                 milliseconds patience) noexcept {
    const std::size_t lead = startsNewLine ? 1 : 0;
    const std::size_t total = lead + line.size() + 1;
    std::size_t written = 0;
    while (written < total) {
        // The parts are written from memory that is not ours to change, hence the casts.
        char lineEnd = '\n';
        std::array<iovec, 3> parts{iovec{&lineEnd, lead},
                                   iovec{const_cast<char*>(line.data()), line.size()},
                                   iovec{&lineEnd, 1}};
        std::size_t skip = written;
        for (iovec& part : parts) {
            const std::size_t done = std::min(skip, part.iov_len);
            part.iov_base = static_cast<char*>(part.iov_base) + done;
            part.iov_len -= done;
            skip -= done;
        }
        const ssize_t taken = writev(descriptor, parts.data(), parts.size());
        if (taken > 0) {
            written += static_cast<std::size_t>(taken);
        } else if (taken == 0) {
            return {written, ENOSPC};
        } else if (errno == EAGAIN) {
            if (!WaitForRoom(descriptor, patience)) {
                return {written, EAGAIN};
            }
        } else if (errno != EINTR) {
            return {written, errno};
        }
    }
    return {written, 0};
}

}  // namespace

LineResult WriteLine(int descriptor,
                     OutputKind kind,
                     std::string_view line,
                     bool startsNewLine,
                     milliseconds patience) noexcept {
    const LineGate gate;
    if (kind == OutputKind::File) {
        return Write(descriptor, line, startsNewLine, patience);
    }
    const PipeSignalGuard guard;
    const LineResult result = Write(descriptor, line, startsNewLine, patience);
    if (result.error == EPIPE) {
        guard.TakeBack();
    }
    return result;
}

}  // namespace cvlcoreplatform
