#include "cvlsys/THash32.h"

// Most texts are so short that calling the hash costs as much as computing it.
#define XXH_INLINE_ALL
#include <xxhash.h>

uint32 THash32(const void* data, std::size_t bytes, uint32 seed) noexcept {
    // An empty view may bring a null pointer, which the hash must never see.
    return XXH32(data != nullptr ? data : "", bytes, seed);
}
