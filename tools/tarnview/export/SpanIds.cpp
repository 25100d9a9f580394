#include "export/SpanIds.h"

#include <cstdio>
#include <unordered_set>
#include <xxhash.h>

namespace tarnview {

namespace {

constexpr std::size_t traceDigits = 32;
constexpr std::size_t spanDigits = 16;

// The 32 digits of an id, in small letters; of an id that has none, 32 that stand for it.
std::string DigitsOf(const std::string& id) {
    std::string digits;
    for (const char letter : id) {
        const bool isCapital = letter >= 'A' && letter <= 'F';
        const char small = isCapital ? static_cast<char>(letter - 'A' + 'a') : letter;
        if ((small >= '0' && small <= '9') || (small >= 'a' && small <= 'f')) {
            digits.push_back(small);
        } else if (small != '-') {
            digits.clear();
            break;
        }
    }
    if (digits.size() != traceDigits) {
        const XXH128_hash_t hash = XXH3_128bits(id.data(), id.size());
        char text[traceDigits + 1];
        std::snprintf(text,
                      sizeof(text),
                      "%016llx%016llx",
                      static_cast<unsigned long long>(hash.high64),
                      static_cast<unsigned long long>(hash.low64));
        digits = text;
    }
    return digits;
}

std::string HexadecimalOf(std::uint64_t number) {
    char text[spanDigits + 1];
    std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(number));
    return text;
}

}  // namespace

// A trace id is that of the tree, so it is enough that no two activities of all have the same one.
SpanIds::SpanIds(const ActivityForest& forest) : m_forest(forest) {
    std::unordered_set<std::uint64_t> used{0};  // which stands for no span
    m_ids.reserve(forest.Size());
    for (ActivityForest::Index index = 0; index < forest.Size(); ++index) {
        const std::string& id = forest[index].id;
        std::uint64_t number =
            std::stoull(DigitsOf(id).substr(traceDigits - spanDigits), nullptr, 16);
        for (std::uint64_t attempt = 0; !used.insert(number).second; ++attempt) {
            const std::string text = id + " " + std::to_string(forest[index].process) + " " +
                                     std::to_string(forest[index].begin) + " " +
                                     std::to_string(attempt);
            number = XXH3_64bits(text.data(), text.size());
        }
        m_ids.push_back(number);
    }
}

std::string SpanIds::TraceIdOf(ActivityForest::Index index) const {
    return DigitsOf(m_forest[index].root);
}

std::string SpanIds::SpanIdOf(ActivityForest::Index index) const {
    return HexadecimalOf(m_ids[index]);
}

}  // namespace tarnview
