#include "model/Filter.h"

#include "read/Rounding.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fnmatch.h>
#include <string_view>

namespace tarnview {

namespace {

bool FitsOne(const std::vector<std::string>& patterns, const std::string& text) {
    return patterns.empty() ||
           std::any_of(patterns.begin(), patterns.end(), [&](const std::string& pattern) {
               return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
           });
}

bool FitsOne(const std::vector<std::string>& patterns, std::string_view text) {
    return patterns.empty() || FitsOne(patterns, std::string(text));
}

bool BeginsWithOne(const std::vector<std::string>& beginnings, std::string_view text) {
    return beginnings.empty() ||
           std::any_of(beginnings.begin(), beginnings.end(), [&](const std::string& beginning) {
               return text.substr(0, beginning.size()) == beginning;
           });
}

bool IsWithin(const Filter& filter, Microseconds begin, Microseconds end) {
    return (!filter.since || end >= *filter.since) && (!filter.before || begin < *filter.before);
}

}  // namespace

bool Filter::IsEmpty() const {
    return roots.empty() && names.empty() && users.empty() && sites.empty() && WantsOpen() &&
           !since && !before;
}

bool Filter::Passes(const Activity& activity) const {
    if (!activity.hasEnd && !WantsOpen()) {
        return false;
    }
    return BeginsWithOne(roots, activity.root) && FitsOne(names, activity.name) &&
           FitsOne(users, activity.user) && FitsOne(sites, activity.site) &&
           FitsOne(results, activity.result) && (!isFailed || activity.result != "ok") &&
           (!slowerThan || activity.elapsed > *slowerThan) &&
           (activity.hasEnd ? IsWithin(*this, activity.begin, activity.end)
                            : !before || activity.begin < *before);
}

bool Filter::Passes(const LogLine& line) const {
    const Microseconds begin = line.time - Rounded(line.elapsed * 1e6);
    return BeginsWithOne(roots, line.root) && FitsOne(names, line.name) &&
           FitsOne(users, line.user) && FitsOne(sites, line.site) &&
           FitsOne(results, line.result) && (!isFailed || line.result != "ok") &&
           (!slowerThan || line.elapsed > *slowerThan) && IsWithin(*this, begin, line.time);
}

std::optional<double> ParseDuration(const std::string& text) {
    char* rest = nullptr;
    const double number = std::strtod(text.c_str(), &rest);
    const std::string_view unit(rest);
    if (rest == text.c_str() || !std::isfinite(number) || number < 0) {
        return std::nullopt;
    }
    if (unit.empty() || unit == "s") {
        return number;
    }
    if (unit == "us") {
        return number / 1e6;
    }
    if (unit == "ms") {
        return number / 1e3;
    }
    if (unit == "m" || unit == "min") {
        return number * 60;
    }
    return unit == "h" ? std::optional(number * 3600) : std::nullopt;
}

}  // namespace tarnview
