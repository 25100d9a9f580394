#pragma once

#include "cvlcoreplatform/TLogEvent.h"

#include <array>
#include <cassert>
#include <chrono>
#include <cstddef>
#include <string_view>

namespace cvlcoreplatform {

/// A wall-clock time in the form of RFC 3339, with microseconds.
class TimeText {
public:
    std::string_view View() const noexcept { return {m_characters.data(), m_length}; }

    /// There is room for what the form takes, with a year of any number; not for more.
    void Append(char character) noexcept {
        assert(m_length < m_characters.size());
        m_characters[m_length++] = character;
    }

    /// With leading zeros up to `width` digits.
    void AppendNumber(unsigned value, unsigned width) noexcept;

private:
    std::array<char, 48> m_characters{};
    std::size_t m_length = 0;
};

/// The nearest time that the form can say, from the year 0000 to 9999.
std::chrono::sys_time<std::chrono::microseconds> ClampToForm(TLog::EventTimePoint time) noexcept;

/// "2026-02-01T12:00:00", for a time that the form can say.
TimeText FormatUtcUpToSecond(std::chrono::sys_seconds time) noexcept;

/// "2026-02-01T13:00:00.250000+01:00", in the time zone of the process; clamped to the form.
TimeText FormatLocal(TLog::EventTimePoint time) noexcept;

}  // namespace cvlcoreplatform
