#include "export/SpanIds.h"

#include <cstdio>
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

}  // namespace

std::string TraceIdOf(const Activity& activity) {
    return DigitsOf(activity.root);
}

std::string SpanIdOf(const Activity& activity) {
    return DigitsOf(activity.id).substr(traceDigits - spanDigits);
}

}  // namespace tarnview
