#pragma once

#include <cassert>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace host {

/// A text after which `slack` more bytes may be read, whatever they are. Short texts, of which
/// lines consist, are copied fastest by whole blocks. Its maker promises the slack; the text
/// is borrowed.
class PaddedText {
public:
    static constexpr std::size_t slack = 16;

    constexpr PaddedText() noexcept = default;

    /// The first `length` characters of a memory that goes on for `slack` more.
    constexpr PaddedText(const char* text, std::size_t length) noexcept
        : m_text(text),
          m_length(length) {}

    /// A part of a text that ends `slack` bytes before the end of `memory`.
    static PaddedText Within(std::string_view memory, std::size_t begin, std::size_t end) noexcept {
        assert(begin <= end && end + slack <= memory.size());
        return {memory.data() + begin, end - begin};
    }

    constexpr std::size_t Length() const noexcept { return m_length; }

    constexpr std::string_view View() const noexcept { return {m_text, m_length}; }

    /// `to` has room for the text and `slack` bytes more, which are overwritten.
    void CopyTo(char* to) const noexcept {
        for (std::size_t i = 0; i < m_length; i += slack) {
            std::memcpy(to + i, m_text + i, slack);
        }
    }

private:
    const char* m_text = nullptr;
    std::size_t m_length = 0;
};

}  // namespace host
