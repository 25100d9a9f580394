#pragma once

#include "cvlsys/IntegerTypes.h"

#include <cstdlib>
#include <optional>

namespace tarn::test {

/// A number, decimal or with 0x, from an environment variable; none if it is missing or
/// empty.
inline std::optional<uint64> NumberFromEnvironment(const char* name) {
    const char* const text = std::getenv(name);
    if (text == nullptr || *text == '\0') {
        return std::nullopt;
    }
    return std::strtoull(text, nullptr, 0);
}

}  // namespace tarn::test
