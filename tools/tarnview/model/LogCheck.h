#pragma once

#include "model/FiguresCheck.h"
#include "model/Filter.h"
#include "model/Joiner.h"
#include "model/ProcessWatch.h"
#include "model/SeenIds.h"
#include "model/SponsorCheck.h"
#include "read/LogLine.h"
#include "read/Problems.h"

#include <cstdint>
#include <set>

namespace tarnview {

/// Finds out whether a log is whole: what does not fit together is reported. Used by one thread.
class LogCheck {
public:
    struct Counts {
        std::uint64_t lines = 0;
        std::uint64_t messages = 0;
        // Of the activities that pass the filter.
        std::uint64_t ended = 0;
        std::uint64_t failed = 0;
        std::uint64_t neverEnded = 0;
    };

    /// Both must live as long. The filter says which activities are counted, and reported if they
    /// never ended; all else is checked of all.
    LogCheck(Problems& problems, const Filter& filter);
    LogCheck(const LogCheck&) = delete;
    LogCheck& operator=(const LogCheck&) = delete;

    void Take(const LogLine& line, const Place& place);

    /// After the last line.
    void Finish();

    const Counts& Found() const { return m_found; }

private:
    void TakeId(const LogLine& line, const Place& place);
    bool WasBegunElsewhere(const LogLine& end) const;
    void Count(const Activity& activity);

    Problems& m_problems;
    const Filter& m_filter;
    FiguresCheck m_figures;
    SeenIds m_ids;
    Joiner m_joiner;
    SponsorCheck m_sponsors;
    ProcessWatch m_watch;
    std::set<ProcessId> m_processes;
    Counts m_found;
};

}  // namespace tarnview
