#pragma once

#include "cvlsys/IntegerTypes.h"

#include <cstdlib>
#include <optional>

namespace tarn::test {

/// A number, decimal or with 0x, that whoever starts the tests has given; none if there is no such
/// variable or it is empty.
inline std::optional<uint64> NumberFromEnvironment(const char* name) {
    const char* const text = std::getenv(name);
    if (text == nullptr || *text == '\0') {
        return std::nullopt;
    }
    return std::strtoull(text, nullptr, 0);
}

}  // namespace tarn::test
