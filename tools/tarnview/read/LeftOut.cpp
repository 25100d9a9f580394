#include "read/LeftOut.h"

#include <algorithm>
#include <simdjson.h>

namespace tarnview {

// There is one such line a minute, so it may cost a parser of its own.
std::int64_t CountLeftOut(std::string_view text) {
    constexpr std::int64_t most = 1'000'000'000'000'000;
    simdjson::dom::parser parser;
    std::int64_t lines = 0;
    if (parser.parse(text.data(), text.size())["body"]["lines"].get(lines) != simdjson::SUCCESS) {
        return 0;
    }
    return std::clamp<std::int64_t>(lines, 0, most);
}

Microseconds ReadLateness(std::string_view text) {
    constexpr double most = 366.0 * 24 * 3600;
    simdjson::dom::parser parser;
    double seconds = 0;
    if (parser.parse(text.data(), text.size())["body"]["late"].get(seconds) != simdjson::SUCCESS) {
        return 0;
    }
    return static_cast<Microseconds>(std::clamp(seconds, 0.0, most) * 1e6);
}

}  // namespace tarnview
