#include "span/SpanIds.h"

#include <cstddef>
#include <xxhash.h>

namespace tarn::otlp {

namespace {

int DigitOf(char letter) {
    return letter >= '0' && letter <= '9'   ? letter - '0'
           : letter >= 'a' && letter <= 'f' ? letter - 'a' + 10
           : letter >= 'A' && letter <= 'F' ? letter - 'A' + 10
                                            : -1;
}

// 32 digits, with hyphens anywhere; none of them is no id either.
bool ReadDigits(std::string_view id, TraceId& bytes) {
    std::size_t digits = 0;
    std::uint8_t all = 0;
    for (const char letter : id) {
        const int digit = DigitOf(letter);
        if (letter == '-') {
            continue;
        }
        if (digit < 0 || digits == 2 * bytes.size()) {
            return false;
        }
        std::uint8_t& byte = bytes[digits / 2];
        byte = static_cast<std::uint8_t>(digits % 2 == 0 ? digit << 4 : byte | digit);
        all = static_cast<std::uint8_t>(all | digit);
        ++digits;
    }
    return digits == 2 * bytes.size() && all != 0;
}

void Store(std::uint64_t number, std::uint8_t* bytes) {
    for (int index = 0; index < 8; ++index) {
        bytes[index] = static_cast<std::uint8_t>(number >> (56 - 8 * index));
    }
}

}  // namespace

TraceId TraceIdOf(std::string_view root) {
    TraceId bytes{};
    if (!ReadDigits(root, bytes)) {
        const XXH128_hash_t hash = XXH3_128bits(root.data(), root.size());
        Store(hash.high64, bytes.data());
        Store(hash.low64, bytes.data() + 8);
    }
    return bytes;
}

SpanId SpanIdOf(std::string_view id) {
    const TraceId bytes = TraceIdOf(id);
    SpanId number = 0;
    for (std::size_t index = 8; index < bytes.size(); ++index) {
        number = number << 8 | bytes[index];
    }
    return number != 0 ? number : FurtherSpanIdOf(id, 0, 0, 0);
}

SpanId FurtherSpanIdOf(std::string_view id,
                       std::int64_t process,
                       Microseconds begin,
                       std::uint64_t attempt) {
    const std::string text = std::string(id) + " " + std::to_string(process) + " " +
                             std::to_string(begin) + " " + std::to_string(attempt);
    const SpanId number = XXH3_64bits(text.data(), text.size());
    return number != 0 ? number : 1;
}

SpanIdentity IdentityOf(const ActivityFacts& activity) {
    SpanIdentity identity;
    identity.trace = TraceIdOf(activity.root);
    identity.span = SpanIdOf(activity.id);
    if (activity.isForked) {
        identity.parent = identity.span;
        identity.span = FurtherSpanIdOf(activity.id, activity.process, activity.begin, 0);
        return identity;
    }
    std::string_view parent;
    if (!activity.caller.empty()) {
        parent = activity.caller;
    } else if (activity.sponsor == activity.id) {
        parent = activity.root;
    } else if (activity.sponsor != "-") {
        parent = activity.sponsor;
    }
    if (!parent.empty() && parent != activity.id) {
        identity.parent = SpanIdOf(parent);
    }
    return identity;
}

}  // namespace tarn::otlp
