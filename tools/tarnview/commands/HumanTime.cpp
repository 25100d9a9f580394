#include "commands/HumanTime.h"

#include "model/Filter.h"

#include <chrono>
#include <ctime>
#include <string_view>

namespace tarnview {

namespace {

constexpr Microseconds second = 1'000'000;
constexpr Microseconds day = 86'400 * second;

// What the clocks of the zone show at a time, as if they were in UTC.
Microseconds OnTheWall(Microseconds time, Zone zone) {
    if (zone == Zone::Utc) {
        return time;
    }
    const auto seconds = static_cast<std::time_t>(time / second);
    std::tm fields{};
    localtime_r(&seconds, &fields);
    return time + fields.tm_gmtoff * second;
}

// The other way round. Of an hour that there is twice, the system chooses one.
Microseconds FromTheWall(Microseconds wall, Zone zone) {
    if (zone == Zone::Utc) {
        return wall;
    }
    const auto seconds = static_cast<std::time_t>(wall / second);
    std::tm fields{};
    gmtime_r(&seconds, &fields);
    fields.tm_isdst = -1;
    return std::mktime(&fields) * second + wall % second;
}

// "13:00" or "13:00:30", as a time since midnight.
std::optional<Microseconds> ParseTimeOfDay(std::string_view text) {
    if (text.size() < 5) {
        return std::nullopt;
    }
    return ParseLooseTimestamp("1970-01-01T" + std::string(text));
}

bool TakeWord(std::string_view& text, std::string_view word) {
    if (text.substr(0, word.size()) != word) {
        return false;
    }
    const std::string_view rest = text.substr(word.size());
    if (!rest.empty() && rest.front() != ' ') {
        return false;
    }
    text = rest.empty() ? rest : rest.substr(1);
    return true;
}

}  // namespace

Microseconds CurrentTime() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::optional<Microseconds> ParseHumanTime(const std::string& text, Microseconds now, Zone zone) {
    if (text == "now") {
        return now;
    }
    if (!text.empty() && text.front() == '-') {
        const auto ago = ParseDuration(text.substr(1));
        return ago ? std::optional(now - *ago) : std::nullopt;
    }
    const Microseconds wall = OnTheWall(now, zone);
    Microseconds midnight = wall - (wall % day + day) % day;
    std::string_view rest(text);
    const bool isYesterday = TakeWord(rest, "yesterday");
    const bool isDay = isYesterday || TakeWord(rest, "today");
    midnight -= isYesterday ? day : 0;
    if (isDay && rest.empty()) {
        return FromTheWall(midnight, zone);
    }
    if (const auto time = ParseTimeOfDay(rest);
        time && rest.find('-') == std::string_view::npos &&
        rest.find_first_of("Z+") == std::string_view::npos) {
        return FromTheWall(midnight + *time, zone);
    }
    if (isDay) {
        return std::nullopt;
    }
    if (const auto time = ParseTimestamp(text)) {
        return time;  // it names its offset
    }
    const auto time = ParseLooseTimestamp(text);
    const bool namesOffset = text.size() > 19 && text.find_first_of("Z+-", 19) != std::string::npos;
    return time && !namesOffset ? std::optional(FromTheWall(*time, zone)) : time;
}

}  // namespace tarnview
