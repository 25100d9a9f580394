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

bool BeginsWithOne(const std::vector<std::string>& beginnings, std::string_view text) {
    return beginnings.empty() ||
           std::any_of(beginnings.begin(), beginnings.end(), [&](const std::string& beginning) {
               return text.substr(0, beginning.size()) == beginning;
           });
}

bool IsOneOf(const std::vector<std::int64_t>& processes, std::int64_t process) {
    return processes.empty() ||
           std::find(processes.begin(), processes.end(), process) != processes.end();
}

bool IsWithin(const Filter& filter, Microseconds begin, Microseconds end) {
    return (!filter.since || end >= *filter.since) && (!filter.before || begin < *filter.before);
}

}  // namespace

bool Filter::IsEmpty() const {
    return roots.empty() && names.empty() && users.empty() && sites.empty() && processes.empty() &&
           WantsOpen() && !since && !before && !where;
}

bool Filter::Passes(const Activity& activity) const {
    if (!activity.hasEnd && !WantsOpen()) {
        return false;
    }
    return BeginsWithOne(roots, activity.root) && FitsOne(names, activity.name) &&
           FitsOne(users, activity.user) && FitsOne(sites, activity.site) &&
           FitsOne(results, activity.result) && IsOneOf(processes, activity.process.number) &&
           (!isFailed || activity.IsFailure()) && (!isNotOk || activity.result != "ok") &&
           (!slowerThan || activity.Duration() > *slowerThan) &&
           (activity.hasEnd ? IsWithin(*this, activity.begin, activity.end)
                            : !before || activity.begin < *before) &&
           (!where || where->Matches(activity));
}

std::optional<Microseconds> ParseDuration(const std::string& text) {
    struct Unit {
        std::string_view name;
        double microseconds;
    };

    constexpr Unit units[] = {
        {"", 1e6}, {"s", 1e6}, {"us", 1}, {"ms", 1e3}, {"m", 60e6}, {"min", 60e6}, {"h", 3600e6}};
    char* rest = nullptr;
    const double number = std::strtod(text.c_str(), &rest);
    const auto unit = std::find_if(
        std::begin(units), std::end(units), [&](const Unit& it) { return it.name == rest; });
    if (rest == text.c_str() || !std::isfinite(number) || number < 0 || unit == std::end(units)) {
        return std::nullopt;
    }
    return Rounded(number * unit->microseconds);
}

}  // namespace tarnview
