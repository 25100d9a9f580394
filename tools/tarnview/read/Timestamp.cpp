#include "read/Timestamp.h"

#include <chrono>
#include <cstdio>

namespace tarnview {

namespace {

constexpr Microseconds microsecondsPerSecond = 1'000'000;

// Takes exactly `count` digits from the front of a text.
class Digits {
public:
    explicit Digits(std::string_view text) : m_text(text) {}

    bool Take(std::size_t count, int& number) {
        if (m_text.size() < count) {
            return false;
        }
        number = 0;
        for (std::size_t index = 0; index < count; ++index) {
            const char digit = m_text[index];
            if (digit < '0' || digit > '9') {
                return false;
            }
            number = number * 10 + (digit - '0');
        }
        m_text.remove_prefix(count);
        return true;
    }

    bool Take(char expected) {
        if (m_text.empty() || m_text.front() != expected) {
            return false;
        }
        m_text.remove_prefix(1);
        return true;
    }

    bool IsAtEnd() const { return m_text.empty(); }

    // Decimals of a second, as microseconds.
    bool TakeDecimals(int& micros) {
        micros = 0;
        int scale = 100'000;
        int digit = 0;
        if (!Take(1, digit)) {
            return false;
        }
        do {
            micros += digit * scale;
            scale /= 10;
        } while (Take(1, digit));
        return true;
    }

private:
    std::string_view m_text;
};

bool TakeDate(Digits& digits, std::int64_t& days) {
    int year = 0;
    int month = 0;
    int day = 0;
    if (!digits.Take(4, year) || !digits.Take('-') || !digits.Take(2, month) || !digits.Take('-') ||
        !digits.Take(2, day)) {
        return false;
    }
    const std::chrono::year_month_day date{std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    days = std::chrono::sys_days(date).time_since_epoch().count();
    return date.ok();
}

// "Z", "+01:00" or "-01:00", as minutes.
bool TakeOffset(Digits& digits, std::int64_t& minutes) {
    minutes = 0;
    if (digits.Take('Z')) {
        return true;
    }
    const bool isWest = digits.Take('-');
    int hour = 0;
    int minute = 0;
    if ((!isWest && !digits.Take('+')) || !digits.Take(2, hour) || !digits.Take(':') ||
        !digits.Take(2, minute)) {
        return false;
    }
    minutes = std::int64_t{isWest ? -1 : 1} * (std::int64_t{hour} * 60 + minute);
    return true;
}

}  // namespace

std::optional<Microseconds> ParseTimestamp(std::string_view text) {
    Digits digits(text);
    std::int64_t days = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int micros = 0;
    std::int64_t offset = 0;
    if (!TakeDate(digits, days) || !digits.Take('T') || !digits.Take(2, hour) ||
        !digits.Take(':') || !digits.Take(2, minute) || !digits.Take(':') ||
        !digits.Take(2, second) || (digits.Take('.') && !digits.TakeDecimals(micros)) ||
        !TakeOffset(digits, offset) || !digits.IsAtEnd() || hour > 23 || minute > 59 ||
        second > 60) {
        return std::nullopt;
    }
    const std::int64_t minutes = (days * 24 + hour) * 60 + minute - offset;
    return (minutes * 60 + second) * microsecondsPerSecond + micros;
}

std::optional<Microseconds> ParseLooseTimestamp(std::string_view text) {
    constexpr std::string_view pattern = "0000-01-01T00:00:00Z";
    std::string whole(text);
    if (whole.size() > 10 && whole[10] == ' ') {
        whole[10] = 'T';
    }
    if (whole.size() == 10 || whole.size() == 16 || whole.size() == 19) {
        whole += pattern.substr(whole.size());
    } else if (whole.size() > 19 && whole.find_first_of("Z+-", 19) == std::string::npos) {
        whole += 'Z';
    }
    return ParseTimestamp(whole);
}

std::string FormatTimestamp(Microseconds time) {
    const std::chrono::sys_time<std::chrono::microseconds> point{std::chrono::microseconds(time)};
    const auto day = std::chrono::floor<std::chrono::days>(point);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(point - day);
    char text[48];
    std::snprintf(text,
                  sizeof(text),
                  "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ",
                  static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()),
                  static_cast<int>(clock.subseconds().count()));
    return text;
}

}  // namespace tarnview
