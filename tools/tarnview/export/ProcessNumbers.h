#pragma once

#include "model/ActivityForest.h"

#include <cstdint>
#include <map>

namespace tarnview {

/// Numbers for formats that know a process by its number alone: its own, or one that no process has
/// if another host's process has that already.
class ProcessNumbers {
public:
    explicit ProcessNumbers(const ActivityForest& forest);

    std::int64_t Of(const ProcessId& process) const { return m_numbers.at(process); }

private:
    std::map<ProcessId, std::int64_t> m_numbers;
};

}  // namespace tarnview
