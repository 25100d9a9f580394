#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string_view>

namespace cvlcoreplatform {

/// What became of a line: `error` is 0 when all its characters were written, otherwise `written`
/// bytes were, with the line end before it if there was one.
struct LineResult {
    std::size_t written = 0;
    int error = 0;
    /// Whether what comes next has to begin on a new line, if nothing is taken back.
    bool endsInsideLine = false;
};

/// Where lines can go to, as far as it matters for writing them.
enum class OutputKind {
    File,    ///< a regular file: a write is never interrupted, and no reader can go away
    Stream,  ///< a pipe, a terminal, a device
};

/// How long a line waits for a stream that does not take it: once, and then not at all until the
/// stream has taken a line again.
class LineTimeout {
public:
    static constexpr std::chrono::milliseconds limit{1000};

    std::chrono::milliseconds Get() const noexcept {
        return m_isStuck ? std::chrono::milliseconds{0} : limit;
    }

    /// To be told of each line.
    void See(const LineResult& result) noexcept { m_isStuck = result.error == EAGAIN; }

private:
    bool m_isStuck = false;
};

/// Writes `line` and a line end to a descriptor, normally by one system call; before it another
/// line end if `startsNewLine`. Goes on when the kernel takes a part only. A stream that does not
/// take all of it, whether its descriptor blocks or not, is waited for, `timeout` in all. A pipe
/// without a reader is an error like others, and no signal.
LineResult WriteLine(int descriptor,
                     OutputKind kind,
                     std::string_view line,
                     bool startsNewLine,
                     std::chrono::milliseconds timeout) noexcept;

/// The same for a regular file that other threads may append to at the same time, by one system
/// call in any case: how many bytes of the line and its end it has taken.
std::size_t WriteLineAtOnce(int descriptor, std::string_view line) noexcept;

}  // namespace cvlcoreplatform
