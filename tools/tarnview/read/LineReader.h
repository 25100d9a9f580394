#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace tarnview {

/// Cuts what a file descriptor yields into lines. A byte order mark before the first one belongs to
/// no line. It reads in large pieces instead of mapping the
/// file: a mapped file that somebody truncates ends the reading process, a pipe cannot be mapped,
/// and a file that is still written grows.
///
/// Memory: one piece, or the longest line if that is longer; a line beyond `maxLine` bytes is
/// skipped, not held. The descriptor belongs to the caller. Used by one thread.
class LineReader {
public:
    enum class Result {
        Line,      ///< a whole line
        LongLine,  ///< a line beyond the limit; its text is the beginning
        End,       ///< nothing more for now: more may be read after the file has grown
    };

    static constexpr std::size_t defaultMaxLine = std::size_t{256} << 20;

    explicit LineReader(int descriptor, std::size_t maxLine = defaultMaxLine);

    /// Throws `std::system_error` if reading fails.
    Result Next();

    /// The line that Next() has found, without its line end. At least `simdjson::SIMDJSON_PADDING`
    /// bytes behind it may be read. Valid until the next call.
    std::string_view Text() const { return m_text; }

    /// Of that line, from 1 on.
    std::uint64_t Number() const { return m_number; }

    /// After the end: what is left without a line end. Takes it, so that it becomes Text().
    bool TakeRest();

    std::uint64_t BytesRead() const { return m_bytesRead; }

    /// How many of these the lines take that have been given out, with their line ends.
    std::uint64_t Offset() const { return m_bytesRead - (m_end - m_begin); }

private:
    bool Fill();
    void MakeRoom();
    void TakeText(const char* begin, std::size_t length);

    int m_descriptor;
    std::size_t m_maxLine;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0;    // what has not been given out: m_begin to m_end,
    std::size_t m_scanned = 0;  // of which there is no line end before m_scanned
    std::size_t m_end = 0;
    bool m_isSkipping = false;  // the rest of a line beyond the limit
    std::string_view m_text;
    std::uint64_t m_number = 0;
    std::uint64_t m_bytesRead = 0;
};

}  // namespace tarnview
