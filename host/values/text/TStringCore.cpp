#include "cvlsys/TStringCore.h"

#include "Unicode.h"

#include "cvlsys/host/RecycledBlocks.h"
#include "cvlsys/host/RecycledTexts.h"
#include "cvlsys/host/Transcoding.h"

#include <algorithm>
#include <cwchar>

namespace {

TStringCore::Characters Share(std::u16string&& text) {
    if (text.empty()) {
        return nullptr;
    }
    return cvlsys::MakeRecycled<const std::u16string>(std::move(text));
}

// The characters with the Unicode property White_Space; all of them are single units.
bool IsWhiteSpace(char16_t unit) noexcept {
    return (unit >= 0x0009 && unit <= 0x000D) || unit == 0x0020 || unit == 0x0085 ||
           unit == 0x00A0 || unit == 0x1680 || (unit >= 0x2000 && unit <= 0x200A) ||
           unit == 0x2028 || unit == 0x2029 || unit == 0x202F || unit == 0x205F || unit == 0x3000;
}

char16_t WithoutCase(char16_t unit) noexcept {
    return unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit - u'A' + u'a') : unit;
}

bool EqualWithoutCase(std::u16string_view a, std::u16string_view b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char16_t x, char16_t y) {
        return WithoutCase(x) == WithoutCase(y);
    });
}

}  // namespace

TStringCore::TStringCore(const char16_t* text)
    : m_characters(text != nullptr ? Share(text) : nullptr) {}

TStringCore::TStringCore(const wchar_t* text)
    : m_characters(text != nullptr ? Share(cvlsys::Utf16FromWide(text)) : nullptr) {}

TStringCore::TStringCore(std::u16string_view text)
    : m_characters(text.empty() ? nullptr : cvlsys::MakeText(text)) {}

TStringCore::TStringCore(std::u16string&& text) : m_characters(Share(std::move(text))) {}

TStringCore::TStringCore(const char* utf8)
    : m_characters(utf8 != nullptr ? Share(cvlsys::Utf16FromUtf8(utf8)) : nullptr) {}

TStringCore::TStringCore(const std::string& utf8)
    : m_characters(Share(cvlsys::Utf16FromUtf8(utf8))) {}

TStringCore::TStringCore(Characters characters) noexcept : m_characters(std::move(characters)) {}

TStringCore TStringCore::FromUtf8(std::string_view utf8) {
    return TStringCore(cvlsys::Utf16FromUtf8(utf8));
}

std::string TStringCore::ToUtf8() const {
    std::string utf8;
    utf8.reserve(Length());
    cvlsys::AppendUtf8(View(), utf8);
    return utf8;
}

bool TStringCore::startsWith(const TStringCore& prefix,
                             CaseSensitivity sensitivity) const noexcept {
    const std::u16string_view start = View().substr(0, prefix.Length());
    return sensitivity == CaseSensitivity::Sensitive ? start == prefix.View()
                                                     : EqualWithoutCase(start, prefix.View());
}

TStringCore TStringCore::tokenize(const TStringCore& separator, std::size_t& position) const {
    const std::u16string_view text = View();
    if (position > text.size()) {
        position = npos;
        return TStringCore();
    }
    const std::u16string_view rest = text.substr(position);
    const std::size_t length = separator.IsEmpty() ? npos : rest.find(separator.View());
    position = length == npos ? npos : position + length + separator.Length();
    return TStringCore(rest.substr(0, length));
}

TStringCore TStringCore::Trimmed() const {
    std::u16string_view text = View();
    while (!text.empty() && IsWhiteSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsWhiteSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text.size() == Length() ? *this : TStringCore(text);
}

TStringCore TStringCore::Join(const TStringCore& a, const TStringCore& b) {
    if (a.IsEmpty()) {
        return b;
    }
    if (b.IsEmpty()) {
        return a;
    }
    std::u16string text;
    text.reserve(a.Length() + b.Length());
    text.append(a.View()).append(b.View());
    return TStringCore(std::move(text));
}
