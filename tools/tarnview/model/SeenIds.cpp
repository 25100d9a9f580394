#include "model/SeenIds.h"

#include <xxhash.h>

namespace tarnview {

bool SeenIds::Add(const ProcessId& process, std::string_view id) {
    return m_prints.insert(PrintOf(process, id)).second;
}

bool SeenIds::Has(const ProcessId& process, std::string_view id) const {
    return m_prints.count(PrintOf(process, id)) != 0;
}

SeenIds::Print SeenIds::PrintOf(const ProcessId& process, std::string_view id) {
    auto seed = static_cast<std::uint64_t>(process.number);
    if (!process.host.empty()) {
        seed = XXH3_64bits_withSeed(process.host.data(), process.host.size(), seed);
    }
    const XXH128_hash_t hash = XXH3_128bits_withSeed(id.data(), id.size(), seed);
    return {hash.low64, hash.high64};
}

}  // namespace tarnview
