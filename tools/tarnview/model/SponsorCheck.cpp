#include "model/SponsorCheck.h"

#include <algorithm>
#include <unordered_set>

namespace tarnview {

void SponsorCheck::Take(const LogLine& line, const Place& place) {
    m_processes.insert(line.process);
    if (line.sponsor.empty() || line.sponsor == "-") {
        return;
    }
    const bool isAdopted = line.sponsor == line.id;
    const std::string wanted(isAdopted ? line.root : line.sponsor);
    if (isAdopted && wanted == line.id) {
        return;
    }
    const bool isMissing = m_joiner.FindOpen(wanted) == nullptr && !IsKnown(wanted);
    const std::string id(line.id);
    if (isMissing) {
        m_waiting.push_back({wanted, {std::string(line.name), id, place, isAdopted}});
    }
    if (!isAdopted && (isMissing || m_links.count(wanted) != 0)) {
        m_links.insert({id, {wanted, std::string(line.name), place}});
    }
}

bool SponsorCheck::IsKnown(const std::string& id) const {
    return std::any_of(m_processes.begin(), m_processes.end(), [&](const ProcessId& process) {
        return m_ids.Has(process, id);
    });
}

void SponsorCheck::Finish() {
    ReportOrphans();
    ReportCircles();
}

void SponsorCheck::ReportOrphans() const {
    for (const auto& [wanted, activity] : m_waiting) {
        if (!IsKnown(wanted)) {
            m_problems.Report(ProblemKind::Orphan,
                              activity.place,
                              activity.name + " " + activity.id +
                                  (activity.isAdopted ? ", root " : ", sponsor ") + wanted);
        }
    }
}

void SponsorCheck::ReportCircles() const {
    std::unordered_set<std::string_view> done;
    for (const auto& [wanted, first] : m_waiting) {
        std::vector<std::string_view> walk;
        std::unordered_set<std::string_view> onWalk;
        std::string_view id = first.id;
        auto link = m_links.find(first.id);
        while (link != m_links.end() && done.count(id) == 0 && onWalk.insert(id).second) {
            walk.push_back(id);
            link = m_links.find(link->second.sponsor);
            id = link == m_links.end() ? std::string_view() : std::string_view(link->first);
        }
        if (link != m_links.end() && onWalk.count(id) != 0) {
            m_problems.Report(ProblemKind::SponsorCycle, first.place, first.name + " " + first.id);
        }
        done.insert(walk.begin(), walk.end());
    }
}

}  // namespace tarnview
