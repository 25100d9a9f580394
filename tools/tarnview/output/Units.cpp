#include "output/Units.h"

#include "output/DisplayWidth.h"
#include "read/Printable.h"

#include <cmath>
#include <cstdio>

namespace tarnview {

namespace {

// Three digits that count.
std::string ThreeDigits(double number, const char* unit) {
    char text[48];
    const double size = std::fabs(number);
    const int decimals = size < 9.995 ? 2 : size < 99.95 ? 1 : 0;
    std::snprintf(text, sizeof(text), "%.*f %s", decimals, number, unit);
    return text;
}

std::string WholeUnits(long long larger,
                       const char* largeUnit,
                       long long smaller,
                       const char* unit) {
    return std::to_string(larger) + " " + largeUnit + " " + std::to_string(smaller) + " " + unit;
}

}  // namespace

std::string FormatDuration(double seconds) {
    const double size = std::fabs(seconds);
    if (size < 0.0009995) {
        return std::to_string(std::llround(seconds * 1e6)) + " us";
    }
    if (size < 0.9995) {
        return ThreeDigits(seconds * 1e3, "ms");
    }
    if (size < 119.5) {
        return ThreeDigits(seconds, "s");
    }
    // Never more than eleven characters, which is what tables have room for.
    const long long whole = std::llround(seconds);
    if (size < 3599.5) {
        return WholeUnits(whole / 60, "min", std::llabs(whole % 60), "s");
    }
    constexpr long long day = 24 * 3600;
    if (std::llabs(whole) < 2 * day) {
        return WholeUnits(whole / 3600, "h", std::llabs(whole / 60 % 60), "min");
    }
    return WholeUnits(whole / day, "d", std::llabs(whole / 3600 % 24), "h");
}

std::string FormatBytes(double bytes) {
    constexpr const char* units[] = {"kB", "MB", "GB", "TB", "PB"};
    if (std::fabs(bytes) < 999.5) {
        return std::to_string(std::llround(bytes)) + " B";
    }
    std::size_t unit = 0;
    bytes /= 1000;
    while (std::fabs(bytes) >= 999.5 && unit + 1 < std::size(units)) {
        bytes /= 1000;
        ++unit;
    }
    return ThreeDigits(bytes, units[unit]);
}

std::string FormatCount(std::uint64_t count) {
    std::string text = std::to_string(count);
    for (std::size_t place = text.size(); place > 3; place -= 3) {
        text.insert(place - 3, ",");
    }
    return text;
}

std::size_t TextWidth(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const DisplayedCharacter character = FirstCharacterOf(text);
        width += character.columns;
        text.remove_prefix(character.bytes);
    }
    return width;
}

std::string FitLeft(std::string_view text, std::size_t width) {
    const std::size_t own = TextWidth(text);
    std::string result(text);
    if (own <= width) {
        return result.append(width - own, ' ');
    }
    std::size_t kept = 0;
    std::size_t bytes = 0;
    while (bytes < text.size()) {
        const DisplayedCharacter character = FirstCharacterOf(text.substr(bytes));
        if (kept + character.columns + 1 > width) {
            break;
        }
        kept += character.columns;
        bytes += character.bytes;
    }
    result.resize(bytes);
    // A wide character that does not fit leaves a column empty.
    return width == 0 ? result : result.append(width - kept - 1, ' ') + "~";
}

std::string FitRight(std::string_view text, std::size_t width) {
    const std::size_t own = TextWidth(text);
    return own >= width ? FitLeft(text, width) : std::string(width - own, ' ').append(text);
}

std::string OnOneLine(std::string_view text) {
    return Printable(text);
}

}  // namespace tarnview
