#pragma once

#include "read/LineExaminer.h"
#include "read/LineParser.h"
#include "read/LineReader.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <span>
#include <thread>
#include <vector>

namespace tarnview {

/// How many processors this process may use, one at least.
std::size_t UsableProcessors();

/// Some lines of a file, one after the other, with the memory that their texts are in.
class LineBatch {
public:
    /// Takes raw lines from `reader` until there are enough; false if it has no more, or fails.
    bool Fill(LineReader& reader);

    void Parse(LineParser& parser);

    std::span<const ParsedLine> Lines() const { return {m_lines.data(), m_count}; }

    /// How much of the file had been read after the last of them.
    std::uint64_t BytesRead() const { return m_bytesRead; }

    std::size_t Size() const { return m_text.size(); }

    /// Why there are no more lines, if reading failed behind them.
    const std::exception_ptr& Error() const { return m_error; }

private:
    struct RawLine {
        std::size_t begin = 0;
        std::size_t length = 0;
        std::uint64_t number = 0;
        bool isTooLong = false;
    };

    std::vector<char> m_text;
    std::vector<RawLine> m_rawLines;
    std::vector<ParsedLine> m_lines;  // more than m_count are kept for the next ones
    std::size_t m_count = 0;
    std::unique_ptr<std::pmr::monotonic_buffer_resource> m_unescaped;
    std::uint64_t m_bytesRead = 0;
    std::exception_ptr m_error;
};

/// The lines of a file in batches, in their order. Threads parse the next ones while the caller
/// looks at one; when none is ready the caller parses, too. A file of a single batch has no
/// threads. Memory: four batches a thread, each of 256 KiB of text and what is parsed of it; of
/// longer lines as many as these would take together, or one.
class LineBatches {
public:
    /// `reader` must live as long and is not used by others until Next() has returned null or this
    /// is gone.
    LineBatches(LineReader& reader, const ParserOptions& options, std::size_t threads);
    ~LineBatches();

    LineBatches(const LineBatches&) = delete;
    LineBatches& operator=(const LineBatches&) = delete;

    /// Null at the end. Valid until the next call. Throws `std::system_error` if reading fails,
    /// after the lines before.
    const LineBatch* Next();

private:
    struct Slot {
        LineBatch batch;
        bool isReady = false;
    };

    Slot& SlotOf(std::uint64_t number) { return m_slots[number % m_slots.size()]; }

    void Release();
    bool MayFill() const;
    void FillAndParse(std::unique_lock<std::mutex>& lock, LineParser& parser);
    void StartThreads();
    void Work();

    LineReader& m_reader;
    ParserOptions m_options;
    LineParser m_parser;  // of the caller
    std::size_t m_threadCount;
    std::vector<Slot> m_slots;
    std::vector<std::thread> m_threads;

    std::mutex
        m_mutex;  // of what follows; a slot that is filled belongs to the thread that does it
    std::condition_variable m_changed;
    std::uint64_t m_filled = 0;  // batches, or about to be
    std::uint64_t m_given = 0;   // batches that the caller has seen
    std::size_t m_size = 0;      // of the texts between the two
    bool m_isFilling = false;    // a thread has the reader
    bool m_isAtEnd = false;
    bool m_isStopped = false;
    bool m_isInUse = false;  // the caller looks at batch m_given
};

}  // namespace tarnview
