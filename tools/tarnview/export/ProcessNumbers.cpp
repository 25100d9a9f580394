#include "export/ProcessNumbers.h"

#include <algorithm>
#include <set>

namespace tarnview {

ProcessNumbers::ProcessNumbers(const ActivityForest& forest) {
    std::int64_t highest = 0;
    for (ActivityForest::Index index = 0; index < forest.Size(); ++index) {
        const ProcessId& process = forest[index].process;
        m_numbers.emplace(process, process.number);
        highest = std::max(highest, process.number);
    }
    std::set<std::int64_t> used;
    for (auto& [process, number] : m_numbers) {
        if (!used.insert(number).second) {
            number = ++highest;
        }
    }
}

}  // namespace tarnview
