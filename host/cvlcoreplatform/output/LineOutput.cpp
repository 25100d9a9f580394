#include "LineOutput.h"

#include "PipeSignal.h"
#include "StreamWriter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>

namespace cvlcoreplatform {

namespace {

using std::chrono::milliseconds;

/// The end of the process stops other threads wherever they are, inside a line, too. So the very
/// last that this library does, after everybody's exit handlers and static objects, is to let
/// nobody begin another line and to wait for those that have been begun.
constexpr std::chrono::seconds lastTimeout{1};

constinit std::atomic<int> s_linesBegun{0};
constinit std::atomic<bool> s_isOver{false};

class LineGate {
public:
    // The process is exiting: hold late writers, but only briefly, in case a thread joins them.
    LineGate() noexcept {
        s_linesBegun.fetch_add(1, std::memory_order_seq_cst);
        if (s_isOver.load(std::memory_order_seq_cst)) {
            s_linesBegun.fetch_sub(1, std::memory_order_seq_cst);
            std::this_thread::sleep_for(2 * lastTimeout);
            s_linesBegun.fetch_add(1, std::memory_order_seq_cst);
        }
    }

    ~LineGate() { s_linesBegun.fetch_sub(1, std::memory_order_seq_cst); }

    LineGate(const LineGate&) = delete;
    LineGate& operator=(const LineGate&) = delete;
};

// One with a number comes after the static objects of the same library.
[[gnu::destructor(101)]] void AwaitLastLines() {
    s_isOver.store(true, std::memory_order_seq_cst);
    const auto end = std::chrono::steady_clock::now() + lastTimeout;
    while (s_linesBegun.load(std::memory_order_seq_cst) > 0 &&
           std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds{20});
    }
}

using Clock = std::chrono::steady_clock;

/// The time that a line may wait; it begins with the first wait.
class Waiting {
public:
    explicit Waiting(milliseconds timeout) noexcept : m_timeout(timeout) {}

    /// Whether there is room before the time is over.
    bool AwaitRoom(int descriptor) noexcept {
        if (m_timeout <= milliseconds{0}) {
            return false;
        }
        if (!m_hasBegun) {
            m_hasBegun = true;
            m_end = Clock::now() + m_timeout;
        }
        for (;;) {
            const auto left = std::chrono::ceil<milliseconds>(m_end - Clock::now());
            if (left <= milliseconds{0}) {
                return false;
            }
            pollfd stream{descriptor, POLLOUT, 0};
            const int found = poll(&stream, 1, static_cast<int>(left.count()));
            if (found > 0) {
                return true;
            }
            if (found < 0 && errno != EINTR) {
                return false;
            }
        }
    }

private:
    milliseconds m_timeout;
    bool m_hasBegun = false;
    Clock::time_point m_end;
};

struct Outcome {
    std::size_t written;
    int error;
};

LineResult ResultOf(Outcome outcome, std::string_view line, bool startsNewLine) noexcept {
    const auto [written, error] = outcome;
    const std::size_t lead = startsNewLine ? 1 : 0;
    if (written <= lead) {
        // A line end alone closes what was open.
        return {written, error, written == 0 && lead != 0};
    }
    const std::size_t ofLine = written - lead;
    if (ofLine >= line.size()) {
        return {written, 0, ofLine == line.size()};  // its line end comes with the next line
    }
    return {written, error, line[ofLine - 1] != '\n'};
}

Outcome Write(StreamWriter writer,
              int descriptor,
              std::string_view line,
              bool startsNewLine,
              milliseconds timeout) noexcept {
    constexpr milliseconds moment{1};
    const std::size_t lead = startsNewLine ? 1 : 0;
    const std::size_t total = lead + line.size() + 1;
    std::size_t written = 0;
    Waiting waiting(timeout);
    bool hasJustWaited = false;
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
        const ssize_t taken = writer.Write(parts.data(), parts.size());
        if (taken > 0) {
            written += static_cast<std::size_t>(taken);
            hasJustWaited = false;
        } else if (taken == 0) {
            return {written, ENOSPC};
        } else if (errno == EAGAIN) {
            if (hasJustWaited) {
                std::this_thread::sleep_for(moment);  // there is room, but not enough
            }
            if (!waiting.AwaitRoom(descriptor)) {
                return {written, EAGAIN};
            }
            hasJustWaited = true;
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
                     milliseconds timeout) noexcept {
    const LineGate gate;
    if (kind == OutputKind::File) {
        return ResultOf(
            Write(StreamWriter::OfFile(descriptor), descriptor, line, startsNewLine, timeout),
            line,
            startsNewLine);
    }
    const PipeSignalGuard guard;
    const Outcome outcome =
        Write(StreamWriter::OfStream(descriptor), descriptor, line, startsNewLine, timeout);
    if (outcome.error == EPIPE) {
        guard.TakeBack();
    }
    return ResultOf(outcome, line, startsNewLine);
}

// The kernel takes one piece sooner than two. Beyond that length, copying takes longer.
std::size_t WriteLineAtOnce(int descriptor, std::string_view line) noexcept {
    const LineGate gate;
    char together[4096];
    char lineEnd = '\n';
    ssize_t taken = 0;
    if (line.size() < sizeof together) {
        std::memcpy(together, line.data(), line.size());
        together[line.size()] = lineEnd;
        taken = write(descriptor, together, line.size() + 1);
    } else {
        // What is written is not changed, hence the cast.
        const std::array<iovec, 2> parts{iovec{const_cast<char*>(line.data()), line.size()},
                                         iovec{&lineEnd, 1}};
        taken = writev(descriptor, parts.data(), parts.size());
    }
    return taken > 0 ? static_cast<std::size_t>(taken) : 0;
}

}  // namespace cvlcoreplatform
