#pragma once

#include "read/ProcessId.h"

#include <cstdint>
#include <string_view>
#include <unordered_set>

namespace tarnview {

/// Which ids have been seen. Holds 16 bytes of each, whatever its length; that two ids have those
/// in common does not happen.
class SeenIds {
public:
    /// False if the id of that process has been added before.
    bool Add(const ProcessId& process, std::string_view id);

    bool Has(const ProcessId& process, std::string_view id) const;

private:
    struct Print {
        std::uint64_t low = 0;
        std::uint64_t high = 0;
        bool operator==(const Print&) const = default;
    };

    struct PrintHash {
        std::size_t operator()(const Print& print) const { return print.low; }
    };

    static Print PrintOf(const ProcessId& process, std::string_view id);

    std::unordered_set<Print, PrintHash> m_prints;
};

}  // namespace tarnview
