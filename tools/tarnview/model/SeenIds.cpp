#include "model/SeenIds.h"

#include <xxhash.h>

namespace tarnview {

bool SeenIds::Add(std::int64_t process, std::string_view id) {
    return m_prints.insert(PrintOf(process, id)).second;
}

bool SeenIds::Has(std::int64_t process, std::string_view id) const {
    return m_prints.count(PrintOf(process, id)) != 0;
}

SeenIds::Print SeenIds::PrintOf(std::int64_t process, std::string_view id) {
    const XXH128_hash_t hash =
        XXH3_128bits_withSeed(id.data(), id.size(), static_cast<std::uint64_t>(process));
    return {hash.low64, hash.high64};
}

}  // namespace tarnview
