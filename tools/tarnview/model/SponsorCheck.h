#pragma once

#include "model/Joiner.h"
#include "model/SeenIds.h"
#include "read/LogLine.h"
#include "read/Problems.h"

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarnview {

/// Finds activities whose sponsors, or roots, are not in the log, and sponsors that go in a circle.
/// Holds only what began while its sponsor was not open, and what began below that; a circle cannot
/// be without such a one. Used by one thread.
class SponsorCheck {
public:
    /// All of these must live as long. `ids` has to know the ids of all lines in the end.
    SponsorCheck(const Joiner& joiner, const SeenIds& ids, Problems& problems)
        : m_joiner(joiner),
          m_ids(ids),
          m_problems(problems) {}

    /// A begin line, or an end line without one; before the joiner has it.
    void Take(const LogLine& line, const Place& place);

    /// After the last line.
    void Finish();

private:
    struct Waiting {
        std::string name;
        std::string id;
        Place place;
        bool isAdopted = false;
    };

    struct Link {
        std::string sponsor;
        std::string name;
        Place place;
    };

    bool IsKnown(const std::string& id) const;
    void ReportOrphans() const;
    void ReportCircles() const;

    const Joiner& m_joiner;
    const SeenIds& m_ids;
    Problems& m_problems;
    std::set<ProcessId> m_processes;
    std::vector<std::pair<std::string, Waiting>> m_waiting;  // with the id that is not there yet
    std::unordered_map<std::string, Link> m_links;           // by id
};

}  // namespace tarnview
