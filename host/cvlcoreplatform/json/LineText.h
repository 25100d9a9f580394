#pragma once

#include "PaddedText.h"
#include "RapidJson.h"

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace cvlcoreplatform {

/// Throws when there is no memory, which RapidJSON's own allocator does not notice.
class LineAllocator {
public:
    // NOLINTNEXTLINE(readability-identifier-naming): named by RapidJSON
    static constexpr bool kNeedFree = true;

    void* Malloc(std::size_t bytes);
    void* Realloc(void* block, std::size_t oldBytes, std::size_t newBytes);
    static void Free(void* block) noexcept;
};

/// The characters of a line, and how values are written in JSON. Texts that need no
/// escapes, as nearly all names, ids and values, are copied at once; RapidJSON escapes all others.
/// The control characters that JSON allows (U+007F to U+009F) are escaped here: a terminal may obey
/// them.
/// Memory that an ordinary line needs is kept for the next one. Throws `std::bad_alloc`, with part
/// of a value written perhaps.
class LineText {
public:
    class Cursor;

    LineText() = default;
    LineText(const LineText&) = delete;
    LineText& operator=(const LineText&) = delete;
    ~LineText() = default;

    std::string_view View() const noexcept { return {m_characters.get(), m_length}; }

    void Clear() noexcept { m_length = 0; }

    /// Gives the memory back.
    void Release() noexcept;

    /// As they are.
    void Append(std::string_view characters) {
        char* const to = Room(characters.size());
        std::memcpy(to, characters.data(), characters.size());
        m_length += characters.size();
    }

    void Append(char character) {
        *Room(1) = character;
        ++m_length;
    }

    /// In quotation marks. A lone surrogate becomes U+FFFD.
    void AppendText(std::u16string_view text);

    void AppendNumber(int64 value);
    void AppendNumber(uint64 value);

    /// A point and six digits: a fraction of a second in microseconds.
    void AppendFraction(uint32 microseconds);

    /// The shortest digits that read back as the same value, always recognisable as a real number;
    /// null for what is no finite number.
    void AppendReal(double value, bool fixed);

private:
    using Buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, LineAllocator>;
    using Writer = rapidjson::Writer<Buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, LineAllocator>;

    // For texts that need escapes, or are not ASCII.
    struct Escaper {
        std::string utf8;
        Buffer escaped;
        Writer writer{escaped};
    };

    // Where the next characters go; there is place for `bytes` of them.
    char* Room(std::size_t bytes) {
        if (m_capacity - m_length < bytes) {
            Grow(bytes);
        }
        return m_characters.get() + m_length;
    }

    void Grow(std::size_t bytes);
    void AppendEscaped(std::u16string_view text);
    void AppendWithoutControls(std::string_view json);

    std::unique_ptr<char[]> m_characters;
    std::size_t m_length = 0;
    std::size_t m_capacity = 0;
    std::unique_ptr<Escaper> m_escaper;
};

/// Where many short texts are written one after the other: it knows the end of the line without
/// looking it up, and asks for room once for all of them. While there is one, the line is written
/// to through it, or after `Pause`, which is to be called at the end, too.
class LineText::Cursor {
public:
    /// `bytes` is as much as will be appended between two pauses at most, and the slack of a copy.
    Cursor(LineText& line, std::size_t bytes) : m_line(line), m_bytes(bytes) { Resume(); }

    ~Cursor() = default;
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    /// As they are.
    void Append(host::PaddedText characters) noexcept {
        characters.CopyTo(m_to);
        m_to += characters.Length();
    }

    /// In quotation marks, for a text that needs no escapes.
    void AppendText(host::PaddedText plain) noexcept {
        *m_to = '"';
        plain.CopyTo(m_to + 1);
        m_to += plain.Length() + 1;
        *m_to++ = '"';
    }

    /// The line has all that was written.
    void Pause() noexcept {
        m_line.m_length = static_cast<std::size_t>(m_to - m_line.m_characters.get());
    }

    /// After the line itself was written to.
    void Resume() { m_to = m_line.Room(m_bytes); }

private:
    LineText& m_line;
    const std::size_t m_bytes;
    char* m_to = nullptr;
};

}  // namespace cvlcoreplatform
