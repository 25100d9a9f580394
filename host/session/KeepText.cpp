#include "KeepText.h"

#include "SettingText.h"
#include "TreeKeeper.h"

#include "cvlsys/IntegerTypes.h"

#include <charconv>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <string>
#include <utility>

namespace tarn {
namespace {

using std::chrono::microseconds;

/// A whole number with us, ms, s or m behind it, above 0.
std::optional<microseconds> ReadDuration(std::string_view text) {
    constexpr std::pair<std::string_view, int64> units[] = {
        {"us", 1}, {"ms", 1000}, {"s", 1'000'000}, {"m", 60'000'000}};
    // A year is longer than any activity, and leaves room for sums.
    constexpr int64 longest = int64{366} * 24 * 3600 * 1'000'000;
    const std::size_t digits = text.find_first_not_of("0123456789");
    if (digits == std::string_view::npos) {
        return std::nullopt;
    }
    const std::optional<int64> number = ReadNumber<int64>(text.substr(0, digits));
    for (const auto& [name, factor] : units) {
        if (number && *number > 0 && text.substr(digits) == name && *number <= longest / factor) {
            return microseconds(*number * factor);
        }
    }
    return std::nullopt;
}

/// Takes a value that was read; whether there was one.
template <class Read, class Value>
bool Take(const std::optional<Read>& read, Value& value) {
    if (read) {
        value = static_cast<Value>(*read);
    }
    return read.has_value();
}

bool ReadFraction(std::string_view text, double& fraction) {
    const std::optional<double> number = ReadNumber<double>(text);
    // Not a number is no fraction either.
    if (!number || !(*number > 0 && *number <= 1)) {
        return false;
    }
    fraction = *number;
    return true;
}

bool ReadCount(std::string_view text, std::size_t& count) {
    const std::optional<std::size_t> number = ReadNumber<std::size_t>(text);
    return number && *number > 0 && Take(number, count);
}

bool ReadPart(std::string_view part, KeepRules& rules) {
    if (part == "failed") {
        return rules.failed = true;
    }
    if (part == "sampled") {
        return rules.sampled = true;
    }
    if (const auto slow = ValueOf(part, "slow")) {
        return Take(ReadDuration(*slow), rules.slow);
    }
    if (const auto names = ValueOf(part, "name")) {
        rules.names = Split(*names, '|');
        return !rules.names.empty();
    }
    if (const auto fraction = ValueOf(part, "fraction")) {
        return ReadFraction(*fraction, rules.fraction);
    }
    if (const auto bytes = ValueOf(part, "bytes")) {
        return Take(ReadBytes(*bytes), rules.waitingBytes);
    }
    if (const auto trees = ValueOf(part, "trees")) {
        return ReadCount(*trees, rules.waitingTrees);
    }
    if (const auto age = ValueOf(part, "age")) {
        return Take(ReadDuration(*age), rules.waitingTime);
    }
    return false;
}

}  // namespace

std::string ToText(const KeepRules& rules) {
    if (!HasConditions(rules)) {
        return "all";
    }
    std::string text;
    if (rules.slow.count() > 0) {
        text += "slow=" + std::to_string(rules.slow.count()) + "us,";
    }
    if (rules.failed) {
        text += "failed,";
    }
    const char* separator = "name=";
    for (const std::string& name : rules.names) {
        text += separator + name;
        separator = "|";
    }
    text += rules.names.empty() ? "" : ",";
    if (rules.fraction > 0) {
        char digits[32];
        text.append("fraction=")
            .append(digits, std::to_chars(digits, std::end(digits), rules.fraction).ptr)
            .append(",");
    }
    text += rules.sampled ? "sampled," : "";
    return text + "bytes=" + std::to_string(rules.waitingBytes) +
           ",trees=" + std::to_string(rules.waitingTrees) +
           ",age=" + std::to_string(rules.waitingTime.count()) + "us";
}

std::optional<KeepRules> ReadKeepRules(std::string_view text) {
    KeepRules rules;
    if (Trim(text) == "all") {
        return rules;
    }
    for (const std::string& part : Split(text)) {
        if (!ReadPart(part, rules)) {
            return std::nullopt;
        }
    }
    return HasConditions(rules) ? std::optional(std::move(rules)) : std::nullopt;
}

}  // namespace tarn
