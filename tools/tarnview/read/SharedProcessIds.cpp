#include "read/SharedProcessIds.h"

#include <algorithm>

namespace tarnview {

void SharedProcessIds::BeginLog(const std::string& log, bool isHostKnown) {
    const auto known =
        std::find_if(m_logs.begin(), m_logs.end(), [&](const auto& it) { return it.first == log; });
    m_log = static_cast<std::size_t>(known - m_logs.begin());
    if (known == m_logs.end()) {
        m_logs.emplace_back(log, isHostKnown);
    }
    m_part = nullptr;
}

void SharedProcessIds::Take(const ProcessId& process, Microseconds time) {
    if (time == 0) {
        return;
    }
    if (m_part == nullptr || m_process != process) {
        std::vector<Part>& parts = m_parts[process];
        const auto known = std::find_if(
            parts.begin(), parts.end(), [&](const Part& part) { return part.log == m_log; });
        m_part = known == parts.end() ? &parts.emplace_back(Part{m_log, time, time}) : &*known;
        m_process = process;
    }
    m_part->first = std::min(m_part->first, time);
    m_part->last = std::max(m_part->last, time);
}

std::optional<SharedProcessIds::Shared> SharedProcessIds::Find(Microseconds lateness) const {
    // Parts of one log that were given other names follow each other, but for lines that are late.
    constexpr Microseconds tolerance = 1'000'000;
    for (const auto& [process, parts] : m_parts) {
        for (std::size_t a = 0; a < parts.size(); ++a) {
            for (std::size_t b = a + 1; b < parts.size(); ++b) {
                const auto& [log, isKnown] = m_logs[parts[a].log];
                const auto& [other, isOtherKnown] = m_logs[parts[b].log];
                const Microseconds both = std::min(parts[a].last, parts[b].last) -
                                          std::max(parts[a].first, parts[b].first);
                if (both > tolerance + lateness && !(isKnown && isOtherKnown)) {
                    return Shared{process, log, other};
                }
            }
        }
    }
    return std::nullopt;
}

}  // namespace tarnview
