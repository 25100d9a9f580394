#include "model/SeenIds.h"

#include <xxhash.h>

namespace tarnview {

bool SeenIds::Add(std::int64_t process, std::string_view id) {
    const XXH128_hash_t hash =
        XXH3_128bits_withSeed(id.data(), id.size(), static_cast<std::uint64_t>(process));
    return m_prints.insert({hash.low64, hash.high64}).second;
}

}  // namespace tarnview
