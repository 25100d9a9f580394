#include "IdText.h"

#include <algorithm>

namespace tarn {
namespace {

constexpr std::size_t digitsOfId = 32;

constexpr unsigned char Digit(unsigned char value) noexcept {
    return static_cast<unsigned char>(value + '0' + (value > 9 ? 'A' - '9' - 1 : 0));
}

}  // namespace

// As `TUUIDFormatOption::UpperHyphenated`. Loops and copies of known length, which a compiler turns
// into some fifty instructions without a jump.
void IdText::Write(const TUUID& id) noexcept {
    // NOLINTBEGIN(cppcoreguidelines-pro-type-member-init): written by the next statement
    std::array<unsigned char, digitsOfId> digits;
    for (std::size_t i = 0; i < id.Bytes().size(); ++i) {
        digits[2 * i] = Digit(static_cast<unsigned char>(id.Bytes()[i] >> 4U));
        digits[2 * i + 1] = Digit(id.Bytes()[i] & 0x0FU);
    }
    std::array<char16_t, digitsOfId> units;
    std::copy(digits.begin(), digits.end(), units.begin());
    // NOLINTEND(cppcoreguidelines-pro-type-member-init)
    std::copy_n(&units[0], 8, &m_units[0]);
    m_units[8] = u'-';
    std::copy_n(&units[8], 4, &m_units[9]);
    m_units[13] = u'-';
    std::copy_n(&units[12], 4, &m_units[14]);
    m_units[18] = u'-';
    std::copy_n(&units[16], 4, &m_units[19]);
    m_units[23] = u'-';
    std::copy_n(&units[20], 12, &m_units[24]);
}

}  // namespace tarn
