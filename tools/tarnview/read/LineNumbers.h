#pragma once

#include "read/LogLine.h"
#include "read/Problems.h"

#include <cstdint>
#include <map>
#include <string>

namespace tarnview {

/// Which numbers of lines (`seq`) of each process have been read, in whatever order, to say which
/// are missing. Holds the ranges that have been read: one for each process and each gap. Used by
/// one thread.
class LineNumbers {
public:
    void Take(const LogLine& line, const Place& place);

    /// Reports each range that is missing before the last number of a process.
    void ReportGaps(Problems& problems) const;

    /// Whether any line has a number. Without one nobody can tell whether lines are missing.
    bool HasAny() const { return !m_processes.empty(); }

private:
    // First and last number of each range that has been read.
    using Ranges = std::map<std::int64_t, std::int64_t>;

    struct Process {
        Ranges ranges;
        std::string file;  // in which it wrote last
    };

    static bool Holds(const Ranges& ranges, std::int64_t number);
    static void Add(Ranges& ranges, std::int64_t number);
    static void Report(std::int64_t id, const Process& process, Problems& problems);

    std::map<std::int64_t, Process> m_processes;
    // Those whose process id was used again by another one.
    std::multimap<std::int64_t, Process> m_former;
};

}  // namespace tarnview
