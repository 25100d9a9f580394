#include "TimeText.h"

#include <algorithm>
#include <cassert>
#include <chrono>
#include <cstdlib>
#include <ctime>

namespace cvlcoreplatform {

namespace {

using std::chrono::microseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using std::chrono::sys_time;

// The form has four digits for the year.
constexpr sys_time<microseconds> earliest = std::chrono::sys_days(std::chrono::year{0} / 1 / 1);
constexpr sys_time<microseconds> latest =
    std::chrono::sys_days(std::chrono::year{10'000} / 1 / 1) - microseconds{1};

void AppendDateAndTime(TimeText& text, sys_time<seconds> time) noexcept {
    // The library's calendar, because the C functions take a lock that all threads share.
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    text.AppendNumber(static_cast<unsigned>(static_cast<int>(date.year())), 4);
    text.Append('-');
    text.AppendNumber(static_cast<unsigned>(date.month()), 2);
    text.Append('-');
    text.AppendNumber(static_cast<unsigned>(date.day()), 2);
    text.Append('T');
    text.AppendNumber(static_cast<unsigned>(clock.hours().count()), 2);
    text.Append(':');
    text.AppendNumber(static_cast<unsigned>(clock.minutes().count()), 2);
    text.Append(':');
    text.AppendNumber(static_cast<unsigned>(clock.seconds().count()), 2);
}

void AppendDateAndTime(TimeText& text, sys_time<microseconds> time) noexcept {
    const auto second = std::chrono::floor<seconds>(time);
    AppendDateAndTime(text, second);
    text.Append('.');
    text.AppendNumber(static_cast<unsigned>((time - second).count()), 6);
}

// Whole minutes, as the form has no place for more: old local mean times have seconds.
minutes OffsetFromUtc(sys_time<microseconds> time) noexcept {
    const time_t moment = std::chrono::floor<seconds>(time).time_since_epoch().count();
    tm local{};
    if (localtime_r(&moment, &local) == nullptr) {
        return minutes(0);
    }
    return std::chrono::duration_cast<minutes>(seconds(local.tm_gmtoff));
}

}  // namespace

void TimeText::AppendNumber(unsigned value, unsigned width) noexcept {
    unsigned digits = 1;
    for (unsigned rest = value / 10; rest != 0; rest /= 10) {
        ++digits;
    }
    digits = std::max(digits, width);
    assert(digits <= m_characters.size() - m_length);
    for (unsigned i = digits; i != 0; --i, value /= 10) {
        m_characters[m_length + i - 1] = static_cast<char>('0' + value % 10);
    }
    m_length += digits;
}

sys_time<microseconds> ClampToForm(TLog::EventTimePoint time) noexcept {
    return std::clamp(std::chrono::floor<microseconds>(time), earliest, latest);
}

TimeText FormatUtcUpToSecond(std::chrono::sys_seconds time) noexcept {
    TimeText text;
    AppendDateAndTime(text, time);
    return text;
}

TimeText FormatLocal(TLog::EventTimePoint time) noexcept {
    const auto utc = ClampToForm(time);
    const minutes offset = OffsetFromUtc(utc);
    TimeText text;
    AppendDateAndTime(text, std::clamp(utc + offset, earliest, latest));
    text.Append(offset < minutes(0) ? '-' : '+');
    const auto distance = static_cast<unsigned>(std::abs(offset.count()));
    text.AppendNumber(distance / 60, 2);
    text.Append(':');
    text.AppendNumber(distance % 60, 2);
    return text;
}

}  // namespace cvlcoreplatform
