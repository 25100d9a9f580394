#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tarnview {

/// A process: two hosts may well use the same number at the same time. A value.
struct ProcessId {
    std::int64_t number = 0;
    /// See Hosts: empty if only one host is read, or nobody has named it. Kept until the program
    /// ends.
    std::string_view host{};

    auto operator<=>(const ProcessId&) const = default;
    bool operator==(const ProcessId&) const = default;
};

/// "4711", or "vega/4711" if several hosts are read; printable.
std::string ProcessName(const ProcessId& process);

struct ProcessIdHash {
    std::size_t operator()(const ProcessId& process) const {
        return std::hash<std::int64_t>()(process.number) ^
               std::hash<std::string_view>()(process.host);
    }
};

}  // namespace tarnview
