#pragma once

#include "cvlsys/IntegerTypes.h"

#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

// How the values of settings are read.
namespace tarn {

/// Without the blanks around it.
std::string_view Trim(std::string_view text);

/// The parts between the separators that are not blank.
std::vector<std::string> Split(std::string_view text, char separator = ',');

/// Nothing unless the whole text is a number of that type.
template <class Number>
std::optional<Number> ReadNumber(std::string_view text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// A number with K, M or G behind it, or without.
std::optional<uint64> ReadBytes(std::string_view text);

/// "name=value", where the name is the one asked for and the value is not empty.
std::optional<std::string_view> ValueOf(std::string_view part, std::string_view name);

}  // namespace tarn
