#include "cvlsys/THash32.h"

#include <xxhash.h>

uint32 THash32(const void* data, std::size_t bytes, uint32 seed) noexcept {
    // An empty view may bring a null pointer, which the hash must never see.
    return XXH32(data != nullptr ? data : "", bytes, seed);
}
