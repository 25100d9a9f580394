// Texts of ids: exactly the documented forms are read, and each comes back.
#include "Input.h"
#include "Utf.h"

#include "cvlcoreplatform/TUUID.h"

#include <array>
#include <cctype>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

std::string Lower(std::string text) {
    for (char& unit : text) {
        unit = unit >= 'A' && unit <= 'Z' ? static_cast<char>(unit - 'A' + 'a') : unit;
    }
    return text;
}

bool HasForm(const std::string& text, const char* form) {
    if (text.size() != std::strlen(form)) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool fits = form[i] == 'x'
                              ? std::strchr("0123456789abcdef", text[i]) != nullptr && text[i] != 0
                              : text[i] == form[i];
        if (!fits) {
            return false;
        }
    }
    return true;
}

/// The option whose text this is, in either letter case.
std::optional<TUUIDFormatOption> FormOf(const std::string& lower) {
    if (HasForm(lower, "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx")) {
        return TUUIDFormatOption::Digits;
    }
    if (HasForm(lower, "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}")) {
        return TUUIDFormatOption::Braces;
    }
    if (HasForm(lower, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx")) {
        return TUUIDFormatOption::LowerHyphenated;
    }
    return std::nullopt;
}

void CheckText(const std::u16string& text) {
    const std::string lower = Lower(fuzz::ReferenceUtf8(text));
    const std::optional<TUUIDFormatOption> form = FormOf(lower);
    try {
        const TUUID id{TString(text)};
        fuzz::Require(form.has_value(), "other text is no id");
        fuzz::Require(id.ToString(*form).ToUtf8() == lower, "an id reads as it was written");
    } catch (const std::invalid_argument&) {
        fuzz::Require(!form.has_value(), "every form is read");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::array<unsigned char, 16> bytes{};
    for (unsigned char& byte : bytes) {
        byte = input.Number<unsigned char>();
    }
    const TUUID id(bytes);
    for (const auto option : {TUUIDFormatOption::Digits,
                              TUUIDFormatOption::Braces,
                              TUUIDFormatOption::LowerHyphenated,
                              TUUIDFormatOption::UpperHyphenated}) {
        std::u16string text(id.ToString(option).View());
        fuzz::Require(TUUID(TString(text)) == id, "an id comes back in every form");
        // One unit wrong.
        text[input.Below(static_cast<uint32>(text.size()))] =
            static_cast<char16_t>(input.Number<unsigned char>());
        CheckText(text);
    }
    CheckText(input.Units());
    return 0;
}
