#include "read/LineBatches.h"

#include <algorithm>
#include <sched.h>
#include <string_view>
#include <system_error>

namespace tarnview {

namespace {

constexpr std::size_t batchSize = std::size_t{256} << 10;
constexpr std::size_t batchesPerThread = 4;

}  // namespace

std::size_t UsableProcessors() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    const int count =
        sched_getaffinity(0, sizeof(processors), &processors) == 0 ? CPU_COUNT(&processors) : 1;
    return static_cast<std::size_t>(std::max(count, 1));
}

bool LineBatch::Fill(LineReader& reader) {
    if (m_text.capacity() > 4 * batchSize) {
        m_text = {};  // of a line that was very long
    }
    m_text.clear();
    m_rawLines.clear();
    m_error = nullptr;
    auto result = LineReader::Result::Line;
    try {
        while (m_text.size() < batchSize && (result = reader.Next()) != LineReader::Result::End) {
            const bool isTooLong = result == LineReader::Result::LongLine;
            const std::string_view text = isTooLong ? std::string_view() : reader.Text();
            m_rawLines.push_back({m_text.size(), text.size(), reader.Number(), isTooLong});
            m_text.insert(m_text.end(), text.begin(), text.end());
        }
    } catch (const std::system_error&) {
        m_error = std::current_exception();
    }
    m_text.resize(m_text.size() + simdjson::SIMDJSON_PADDING);
    m_bytesRead = reader.BytesRead();
    return m_error == nullptr && result != LineReader::Result::End;
}

void LineBatch::Parse(LineParser& parser) {
    if (m_unescaped == nullptr) {
        m_unescaped = std::make_unique<std::pmr::monotonic_buffer_resource>();
    }
    m_unescaped->release();
    m_count = m_rawLines.size();
    m_lines.resize(std::max(m_lines.size(), m_count));
    for (std::size_t index = 0; index < m_count; ++index) {
        const RawLine& raw = m_rawLines[index];
        ParsedLine& parsed = m_lines[index];
        parsed.number = raw.number;
        if (raw.isTooLong) {
            parsed.state = ParsedLine::State::TooLong;
            continue;
        }
        const std::string_view text(&m_text[raw.begin], raw.length);
        parsed.SetResult(parser.Parse(text, parsed.line, *m_unescaped), parser, text);
    }
}

LineBatches::LineBatches(LineReader& reader, const ParserOptions& options, std::size_t threads)
    : m_reader(reader),
      m_options(options),
      m_parser(options),
      m_threadCount(std::max<std::size_t>(threads, 1)),
      m_slots(m_threadCount == 1 ? 1 : batchesPerThread * m_threadCount) {}

LineBatches::~LineBatches() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopped = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

const LineBatch* LineBatches::Next() {
    std::unique_lock lock(m_mutex);
    Release();
    while (true) {
        if (m_given < m_filled && SlotOf(m_given).isReady) {
            m_isInUse = true;
            return &SlotOf(m_given).batch;
        }
        if (MayFill()) {
            const bool isFirst = m_filled == 0;
            FillAndParse(lock, m_parser);
            if (isFirst && !m_isAtEnd) {
                StartThreads();
            }
        } else if (m_given == m_filled && m_isAtEnd) {
            return nullptr;
        } else {
            m_changed.wait(lock);
        }
    }
}

// What the caller has seen makes room for another batch.
void LineBatches::Release() {
    if (!m_isInUse) {
        return;
    }
    Slot& slot = SlotOf(m_given);
    m_size -= slot.batch.Size();
    slot.isReady = false;
    ++m_given;
    m_isInUse = false;
    m_changed.notify_all();
    if (slot.batch.Error() != nullptr) {
        std::rethrow_exception(slot.batch.Error());
    }
}

bool LineBatches::MayFill() const {
    return !m_isFilling && !m_isAtEnd && m_filled - m_given < m_slots.size() &&
           m_size < m_slots.size() * batchSize;
}

// One thread after the other has the reader; they parse at the same time.
void LineBatches::FillAndParse(std::unique_lock<std::mutex>& lock, LineParser& parser) {
    Slot& slot = SlotOf(m_filled++);
    m_isFilling = true;
    lock.unlock();
    const bool hasMore = slot.batch.Fill(m_reader);
    lock.lock();
    m_isFilling = false;
    m_isAtEnd = !hasMore;
    m_size += slot.batch.Size();
    m_changed.notify_all();
    lock.unlock();
    slot.batch.Parse(parser);
    lock.lock();
    slot.isReady = true;
    m_changed.notify_all();
}

void LineBatches::StartThreads() {
    while (m_threads.size() + 1 < m_threadCount) {
        m_threads.emplace_back([this] { Work(); });
    }
}

void LineBatches::Work() {
    LineParser parser(m_options);
    std::unique_lock lock(m_mutex);
    while (!m_isStopped && !m_isAtEnd) {
        if (MayFill()) {
            FillAndParse(lock, parser);
        } else {
            m_changed.wait(lock);
        }
    }
}

}  // namespace tarnview
