#include "LineText.h"

#include "PlainText.h"

#include "cvlsys/host/Transcoding.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>

namespace cvlcoreplatform {

namespace {

/// "00" to "99".
constexpr auto digitPairs = [] {
    std::array<std::array<char, 2>, 100> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = {static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10)};
    }
    return pairs;
}();

void WritePair(char* to, uint32 number) noexcept {
    std::memcpy(to, digitPairs[number].data(), 2);
}

}  // namespace

void* LineAllocator::Malloc(std::size_t bytes) {
    return bytes != 0 ? ::operator new(bytes) : nullptr;
}

void* LineAllocator::Realloc(void* block, std::size_t oldBytes, std::size_t newBytes) {
    void* const larger = Malloc(newBytes);
    if (larger != nullptr && block != nullptr) {
        std::memcpy(larger, block, std::min(oldBytes, newBytes));
    }
    Free(block);
    return larger;
}

void LineAllocator::Free(void* block) noexcept {
    ::operator delete(block);
}

void LineText::Release() noexcept {
    m_characters.reset();
    m_length = 0;
    m_capacity = 0;
    m_escaper.reset();
}

void LineText::Grow(std::size_t bytes) {
    constexpr std::size_t least = 1024;
    if (bytes > std::numeric_limits<std::size_t>::max() / 2 - m_length) {
        throw std::bad_alloc();
    }
    const std::size_t capacity = std::max({least, 2 * m_capacity, m_length + bytes});
    std::unique_ptr<char[]> larger(new char[capacity]);
    if (m_length != 0) {
        std::memcpy(larger.get(), m_characters.get(), m_length);
    }
    m_characters = std::move(larger);
    m_capacity = capacity;
}

void LineText::AppendText(std::u16string_view text) {
    constexpr std::size_t quotationMarks = 2;
    char* const to = Room(text.size() + quotationMarks);
    if (!host::CopyPlain(text, to + 1)) {
        AppendEscaped(text);
        return;
    }
    to[0] = '"';
    to[text.size() + 1] = '"';
    m_length += text.size() + quotationMarks;
}

void LineText::AppendEscaped(std::u16string_view text) {
    if (m_escaper == nullptr) {
        m_escaper = std::make_unique<Escaper>();
    }
    m_escaper->utf8.clear();
    cvlsys::AppendUtf8(text, m_escaper->utf8);
    m_escaper->escaped.Clear();
    m_escaper->writer.Reset(m_escaper->escaped);
    m_escaper->writer.String(m_escaper->utf8.data(), m_escaper->utf8.size());
    AppendWithoutControls(
        std::string_view(m_escaper->escaped.GetString(), m_escaper->escaped.GetSize()));
}

void LineText::AppendWithoutControls(std::string_view json) {
    constexpr char del = '\x7F';
    constexpr char leadOfUpperControls = '\xC2';
    constexpr char lastUpperControl = '\x9F';
    constexpr std::string_view hexDigits = "0123456789ABCDEF";
    std::size_t done = 0;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const bool isUpper = json[i] == leadOfUpperControls && i + 1 < json.size() &&
                             json[i + 1] <= lastUpperControl;
        if (json[i] != del && !isUpper) {
            continue;
        }
        Append(json.substr(done, i - done));
        i += isUpper ? 1 : 0;
        const auto code = static_cast<unsigned char>(json[i]);
        Append("\\u00");
        Append(hexDigits[code / hexDigits.size()]);
        Append(hexDigits[code % hexDigits.size()]);
        done = i + 1;
    }
    Append(json.substr(done));
}

void LineText::AppendNumber(int64 value) {
    constexpr std::size_t most = 20;
    char* const to = Room(most);
    m_length += static_cast<std::size_t>(std::to_chars(to, to + most, value).ptr - to);
}

void LineText::AppendNumber(uint64 value) {
    constexpr std::size_t most = 20;
    char* const to = Room(most);
    m_length += static_cast<std::size_t>(std::to_chars(to, to + most, value).ptr - to);
}

void LineText::AppendFraction(uint32 microseconds) {
    constexpr std::size_t digits = 6;
    char* const to = Room(digits + 1);
    to[0] = '.';
    WritePair(to + 5, microseconds % 100);
    WritePair(to + 3, microseconds / 100 % 100);
    WritePair(to + 1, microseconds / 10'000);
    m_length += digits + 1;
}

void LineText::AppendReal(double value, bool fixed) {
    if (!std::isfinite(value)) {
        Append("null");
        return;
    }
    if (value == 0) {
        Append(std::signbit(value) ? "-0.0" : "0.0");
        return;
    }
    // The smallest numbers in fixed notation are the longest.
    constexpr std::size_t most = 1100;
    char* const to = Room(most);
    char* const room = to + most - 2;
    char* end = fixed ? std::to_chars(to, room, value, std::chars_format::fixed).ptr
                      : std::to_chars(to, room, value).ptr;
    const std::string_view digits(to, static_cast<std::size_t>(end - to));
    if (digits.find_first_of(".e") == std::string_view::npos) {
        *end++ = '.';
        *end++ = '0';
    }
    m_length += static_cast<std::size_t>(end - to);
}

}  // namespace cvlcoreplatform
