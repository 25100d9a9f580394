#include "SettingText.h"

#include <cstddef>
#include <limits>

namespace tarn {

std::string_view Trim(std::string_view text) {
    constexpr std::string_view blanks = " \t\r";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string> Split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t end = text.find(separator);
        if (const std::string_view part = Trim(text.substr(0, end)); !part.empty()) {
            parts.emplace_back(part);
        }
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    return parts;
}

std::optional<uint64> ReadBytes(std::string_view text) {
    unsigned shift = 0;
    if (!text.empty()) {
        switch (text.back()) {
            case 'K':
                shift = 10;
                break;
            case 'M':
                shift = 20;
                break;
            case 'G':
                shift = 30;
                break;
            default:
                break;
        }
    }
    const std::optional<uint64> number =
        ReadNumber<uint64>(shift == 0 ? text : text.substr(0, text.size() - 1));
    if (!number || *number > (std::numeric_limits<uint64>::max() >> shift)) {
        return std::nullopt;
    }
    return *number << shift;
}

std::optional<std::string_view> ValueOf(std::string_view part, std::string_view name) {
    if (part.size() <= name.size() + 1 || !part.starts_with(name) || part[name.size()] != '=') {
        return std::nullopt;
    }
    return part.substr(name.size() + 1);
}

}  // namespace tarn
