#pragma once

#include "cvlcoreplatform/Export.h"
#include "cvlcoreplatform/TString.h"

#include <type_traits>
#include <vector>

/// A text with numbered placeholders %1 to %99. The arguments are given in order and put in all
/// at once, so that an argument which itself holds "%2" stays as it is. A placeholder without an
/// argument stays as it is, an argument without a placeholder is left out. A value; one thread at
/// a time.
class CVLCOREPLATFORM_API TFormatString {
public:
    explicit TFormatString(TString format);

    /// `text` is padded on the left with `fill` to `fieldWidth` units.
    TFormatString& Arg(const TString& text, int fieldWidth = 0, char16_t fill = u' ');

    /// A whole number, formatted as by `TString::number`.
    template <class Integer, std::enable_if_t<std::is_integral_v<Integer>, int> = 0>
    TFormatString& Arg(Integer value, int fieldWidth = 0, int base = 10, char16_t fill = u' ') {
        return Arg(TString::number(value, base, fieldWidth, fill));
    }

    TString ToString() const;

private:
    TString m_format;
    std::vector<TString> m_arguments;
};
