#include "config/KeyValueList.h"

#include <charconv>

namespace tarn::otlp {

namespace {

std::string_view Trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool Decode(std::string_view text, std::string& decoded) {
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] != '%') {
            decoded.push_back(text[index]);
            continue;
        }
        const std::string_view digits = text.substr(index + 1, 2);
        unsigned code = 0;
        const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), code, 16);
        if (digits.size() != 2 || result.ptr != digits.data() + 2) {
            return false;
        }
        decoded.push_back(static_cast<char>(code));
        index += 2;
    }
    return true;
}

}  // namespace

std::optional<std::vector<std::pair<std::string, std::string>>> ParseKeyValueList(
    std::string_view text) {
    std::vector<std::pair<std::string, std::string>> pairs;
    while (!text.empty()) {
        const std::size_t comma = text.find(',');
        const std::string_view pair = Trimmed(text.substr(0, comma));
        text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
        if (pair.empty()) {
            continue;
        }
        const std::size_t equals = pair.find('=');
        const std::string_view key = Trimmed(pair.substr(0, equals));
        if (equals == std::string_view::npos || key.empty()) {
            return std::nullopt;
        }
        auto& [name, value] = pairs.emplace_back();
        if (!Decode(key, name) || !Decode(Trimmed(pair.substr(equals + 1)), value)) {
            return std::nullopt;
        }
    }
    return pairs;
}

}  // namespace tarn::otlp
