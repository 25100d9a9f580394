#include "span/Timestamp.h"

#include <chrono>

namespace tarn::otlp {

namespace {

// The number at `place`, all digits; -1 if there is none.
int NumberAt(std::string_view text, std::size_t place, std::size_t digits) {
    int number = 0;
    const std::string_view part = text.substr(place, digits);
    for (const char digit : part) {
        if (digit < '0' || digit > '9') {
            return -1;
        }
        number = number * 10 + (digit - '0');
    }
    return part.size() == digits ? number : -1;
}

// Takes ".181892" from the front.
std::optional<Microseconds> TakeDecimals(std::string_view& text) {
    Microseconds micros = 0;
    Microseconds scale = 100'000;
    if (text.empty() || text.front() != '.') {
        return 0;
    }
    text.remove_prefix(1);
    if (NumberAt(text, 0, 1) < 0) {
        return std::nullopt;
    }
    for (; NumberAt(text, 0, 1) >= 0 && !text.empty(); scale /= 10) {
        micros += NumberAt(text, 0, 1) * scale;
        text.remove_prefix(1);
    }
    return micros;
}

// "Z", "+01:00" or "-01:00", as minutes.
std::optional<int> OffsetOf(std::string_view text) {
    if (text == "Z") {
        return 0;
    }
    const int hours = text.size() == 6 ? NumberAt(text, 1, 2) : -1;
    const int minutes = text.size() == 6 && text[3] == ':' ? NumberAt(text, 4, 2) : -1;
    if (hours < 0 || minutes < 0 || (text[0] != '+' && text[0] != '-')) {
        return std::nullopt;
    }
    return (text[0] == '-' ? -1 : 1) * (hours * 60 + minutes);
}

}  // namespace

std::optional<Microseconds> ParseTimestamp(std::string_view text) {
    constexpr std::string_view form = "0000-00-00T00:00:00";
    if (text.size() <= form.size()) {
        return std::nullopt;
    }
    for (std::size_t place = 0; place < form.size(); ++place) {
        if (form[place] != '0' && text[place] != form[place]) {
            return std::nullopt;
        }
    }
    const int month = NumberAt(text, 5, 2);
    const int day = NumberAt(text, 8, 2);
    const int hour = NumberAt(text, 11, 2);
    const int minute = NumberAt(text, 14, 2);
    const int second = NumberAt(text, 17, 2);
    std::string_view rest = text.substr(form.size());
    const auto micros = TakeDecimals(rest);
    const auto offset = OffsetOf(rest);
    if (month < 0 || day < 0 || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 ||
        second > 60 || NumberAt(text, 0, 4) < 0 || !micros || !offset) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date{std::chrono::year(NumberAt(text, 0, 4)),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok()) {
        return std::nullopt;
    }
    const Microseconds days = std::chrono::sys_days(date).time_since_epoch().count();
    const Microseconds minutes = (days * 24 + hour) * 60 + minute - *offset;
    return (minutes * 60 + second) * 1'000'000 + *micros;
}

}  // namespace tarn::otlp
