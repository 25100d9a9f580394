#include "output/TimeStyle.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace tarnview {

namespace {

constexpr Microseconds second = 1'000'000;

// Without the "Z", as if the zone were UTC, and then the offset.
std::string LocalText(Microseconds time) {
    const Microseconds seconds = time >= 0 ? time / second : (time - second + 1) / second;
    const std::time_t whole = seconds;
    std::tm parts{};
    if (localtime_r(&whole, &parts) == nullptr) {
        return FormatTimestamp(time);
    }
    std::string text = FormatTimestamp(time + Microseconds{parts.tm_gmtoff} * second);
    text.pop_back();
    const long minutes = std::labs(parts.tm_gmtoff) / 60;
    char offset[32];
    std::snprintf(offset,
                  sizeof(offset),
                  "%c%02ld:%02ld",
                  parts.tm_gmtoff < 0 ? '-' : '+',
                  minutes / 60,
                  minutes % 60);
    return text + offset;
}

std::string RelativeText(Microseconds time) {
    char text[48];
    const bool isBefore = time < 0;
    const Microseconds amount = isBefore ? -time : time;
    std::snprintf(text,
                  sizeof(text),
                  "%c%lld.%06lld s",
                  isBefore ? '-' : '+',
                  static_cast<long long>(amount / second),
                  static_cast<long long>(amount % second));
    return text;
}

}  // namespace

std::string TimeStyle::Text(Microseconds time) const {
    switch (kind) {
        case Kind::Utc:
            return FormatTimestamp(time);
        case Kind::Local:
            return LocalText(time);
        case Kind::Relative:
            return RelativeText(time - base);
    }
    return "";
}

}  // namespace tarnview
