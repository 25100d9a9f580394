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

    /// A process has left out so many lines on purpose, which have their numbers as well.
    void TakeLeftOut(const ProcessId& process, std::int64_t lines, const Place& place);

    /// Reports each range that is missing before the last number of a process; of one that has left
    /// out lines on purpose, how many more than these are missing.
    void ReportGaps(Problems& problems) const;

    /// Of all processes.
    std::int64_t CountLeftOut() const { return m_leftOut; }

    /// Whether any line has a number. Without one nobody can tell whether lines are missing.
    bool HasAny() const { return m_hasAny; }

private:
    // First and last number of each range that has been read.
    using Ranges = std::map<std::int64_t, std::int64_t>;

    struct Process {
        Ranges ranges;
        std::string file;  // in which it wrote last
        std::int64_t leftOut = 0;
    };

    static bool Holds(const Ranges& ranges, std::int64_t number);
    static void Add(Ranges& ranges, std::int64_t number);
    static std::int64_t CountMissing(const Ranges& ranges);
    static void Report(const ProcessId& id, const Process& process, Problems& problems);

    std::map<ProcessId, Process> m_processes;
    bool m_hasAny = false;
    // Those whose process id was used again by another one.
    std::multimap<ProcessId, Process> m_former;
    std::int64_t m_leftOut = 0;
};

}  // namespace tarnview
