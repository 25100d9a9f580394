#include "cvlcoreplatform/TFormatString.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace {

// A placeholder's number, 1 to 99, and how many digits it is written with; no digits means that
// the text holds no placeholder there.
struct Placeholder {
    std::size_t number = 0;
    std::size_t digits = 0;
};

Placeholder ReadPlaceholder(std::u16string_view afterPercent) noexcept {
    constexpr std::size_t mostDigits = 2;
    Placeholder placeholder;
    for (const char16_t unit : afterPercent.substr(0, mostDigits)) {
        const bool isFirst = placeholder.digits == 0;
        if (unit < (isFirst ? u'1' : u'0') || unit > u'9') {
            break;
        }
        placeholder.number = placeholder.number * 10 + static_cast<std::size_t>(unit - u'0');
        ++placeholder.digits;
    }
    return placeholder;
}

}  // namespace

TFormatString::TFormatString(TString format) : m_format(std::move(format)) {}

TFormatString& TFormatString::Arg(const TString& text, int fieldWidth, char16_t fill) {
    const std::size_t width = fieldWidth > 0 ? static_cast<std::size_t>(fieldWidth) : 0;
    if (width > text.Length()) {
        std::u16string padded(width - text.Length(), fill);
        padded.append(text.View());
        m_arguments.emplace_back(std::move(padded));
    } else {
        m_arguments.push_back(text);
    }
    return *this;
}

TString TFormatString::ToString() const {
    std::u16string text;
    std::u16string_view rest = m_format.View();
    for (;;) {
        const std::size_t percent = rest.find(u'%');
        text.append(rest.substr(0, percent));
        if (percent == std::u16string_view::npos) {
            return TString(std::move(text));
        }
        rest.remove_prefix(percent + 1);
        const Placeholder placeholder = ReadPlaceholder(rest);
        if (placeholder.digits != 0 && placeholder.number <= m_arguments.size()) {
            text.append(m_arguments[placeholder.number - 1].View());
            rest.remove_prefix(placeholder.digits);
        } else {
            text.push_back(u'%');
        }
    }
}
