#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

namespace cvlcoreplatform {

/// What became of a line: `error` is 0 when it was written as a whole, otherwise `written` bytes of
/// it were.
struct LineResult {
    std::size_t written = 0;
    int error = 0;
};

/// Where lines can go to, as far as it matters for writing them.
enum class OutputKind {
    File,    ///< a regular file: a write is never interrupted, and no reader can go away
    Stream,  ///< a pipe, a terminal, a device
};

/// Writes `line` and a line end to a descriptor, normally by one system call; before it another
/// line end if `startsNewLine`. Goes on when the kernel takes a part only. A stream that takes
/// nothing at the moment (it does not block) is waited for, `patience` at the most. A pipe without
/// a reader is an error like others, and no signal.
LineResult WriteLine(int descriptor,
                     OutputKind kind,
                     std::string_view line,
                     bool startsNewLine,
                     std::chrono::milliseconds patience) noexcept;

}  // namespace cvlcoreplatform
