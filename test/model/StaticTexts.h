#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace model {

/// The text as one that lives as long as the process; the same object each time. A reader of names
/// may know such texts by their addresses: they lie 128 texts apart, in three rows, so that a cache
/// of up to 128 places sees many of them in the same one. One thread at a time.
template <class Unit>
const std::basic_string<Unit>& StaticText(std::basic_string_view<Unit> text) {
    using Text = std::basic_string<Unit>;
    constexpr std::size_t most = 3000;
    constexpr std::size_t distance = 128;
    constexpr std::size_t rows = 3;
    static std::vector<Text>& places = *new std::vector<Text>(most / rows * distance);
    static std::unordered_map<Text, const Text*>& known =
        *new std::unordered_map<Text, const Text*>;

    const std::size_t number = known.size();
    const auto [entry, isNew] = known.try_emplace(Text(text), nullptr);
    if (isNew) {
        if (number == most) {
            throw std::length_error("more static texts than the streams were thought to have");
        }
        Text& place = places[number / rows * distance + number % rows];
        place = text;
        entry->second = &place;
    }
    return *entry->second;
}

}  // namespace model
