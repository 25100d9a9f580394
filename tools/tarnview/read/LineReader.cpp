#include "read/LineReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <simdjson.h>
#include <system_error>
#include <unistd.h>

namespace tarnview {

namespace {

constexpr std::size_t pieceSize = std::size_t{1} << 20;

}  // namespace

LineReader::LineReader(int descriptor, std::size_t maxLine)
    : m_descriptor(descriptor),
      m_maxLine(maxLine),
      m_buffer(pieceSize + simdjson::SIMDJSON_PADDING) {}

LineReader::Result LineReader::Next() {
    while (true) {
        const void* const found = memchr(&m_buffer[m_scanned], '\n', m_end - m_scanned);
        if (found != nullptr) {
            const char* const begin = &m_buffer[m_begin];
            const auto length = static_cast<std::size_t>(static_cast<const char*>(found) - begin);
            m_begin += length + 1;
            m_scanned = m_begin;
            if (m_isSkipping) {
                m_isSkipping = false;
                continue;
            }
            TakeText(begin, length);
            return length > m_maxLine ? Result::LongLine : Result::Line;
        }
        m_scanned = m_end;
        if (m_isSkipping) {
            m_begin = m_scanned = m_end = 0;
        } else if (m_end - m_begin > m_maxLine) {
            m_isSkipping = true;
            TakeText(&m_buffer[m_begin], m_maxLine);
            m_begin = m_end;
            return Result::LongLine;
        }
        if (!Fill()) {
            return Result::End;
        }
    }
}

bool LineReader::TakeRest() {
    if (m_isSkipping || m_begin == m_end) {
        return false;
    }
    TakeText(&m_buffer[m_begin], m_end - m_begin);
    m_begin = m_scanned = m_end;
    return true;
}

void LineReader::TakeText(const char* begin, std::size_t length) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    m_text = std::string_view(begin, length);
    if (m_number == 0 && m_text.substr(0, byteOrderMark.size()) == byteOrderMark) {
        m_text.remove_prefix(byteOrderMark.size());
    }
    ++m_number;
}

bool LineReader::Fill() {
    MakeRoom();
    while (true) {
        const std::size_t room = m_buffer.size() - simdjson::SIMDJSON_PADDING - m_end;
        const ssize_t count = read(m_descriptor, &m_buffer[m_end], room);
        if (count >= 0) {
            m_end += static_cast<std::size_t>(count);
            m_bytesRead += static_cast<std::uint64_t>(count);
            return count != 0;
        }
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category());
        }
    }
}

// What is left moves to the front; a line that fills the buffer makes it grow.
void LineReader::MakeRoom() {
    if (m_begin != 0) {
        memmove(m_buffer.data(), &m_buffer[m_begin], m_end - m_begin);
        m_end -= m_begin;
        m_scanned -= m_begin;
        m_begin = 0;
    }
    if (m_end + simdjson::SIMDJSON_PADDING + pieceSize / 4 > m_buffer.size()) {
        m_buffer.resize(std::max(m_buffer.size(), 2 * m_end + simdjson::SIMDJSON_PADDING));
    }
}

}  // namespace tarnview
