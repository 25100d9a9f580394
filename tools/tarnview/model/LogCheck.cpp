#include "model/LogCheck.h"

#include <algorithm>
#include <string>

namespace tarnview {

LogCheck::LogCheck(Problems& problems, const Filter& filter)
    : m_problems(problems),
      m_filter(filter),
      m_figures(problems),
      m_joiner(
          problems,
          [this](Activity&& activity) { Count(activity); },
          [this](const LogLine& end) { return WasBegunElsewhere(end); }),
      m_sponsors(m_joiner, m_ids, problems) {}

void LogCheck::Take(const LogLine& line, const Place& place) {
    ++m_found.lines;
    m_found.messages += line.kind == LineKind::Message ? 1U : 0U;
    m_processes.insert(line.process);
    m_watch.Take(line, place);
    TakeId(line, place);
    m_joiner.Take(line, place);
    m_figures.Take(line, place);
}

void LogCheck::Finish() {
    m_watch.ReportDead(m_joiner.Open(), m_problems);
    m_joiner.Finish();
    m_sponsors.Finish();
}

void LogCheck::TakeId(const LogLine& line, const Place& place) {
    if (!line.IsOfActivity()) {
        return;
    }
    const bool isOpen = m_joiner.FindOpen(std::string(line.id)) != nullptr;
    if (line.kind == LineKind::End) {
        // One without a begin is in the log all the same.
        if (!isOpen && m_ids.Add(line.process, line.id)) {
            m_sponsors.Take(line, place);
        }
        return;
    }
    m_sponsors.Take(line, place);
    // One that is open already is reported by the joiner; at depth 0 an adopted context may
    // well show an id once more.
    if (!m_ids.Add(line.process, line.id) && line.depth != 0 && !isOpen) {
        m_problems.Report(
            ProblemKind::RepeatedId, place, std::string(line.id) + " has been used before");
    }
}

// A forked process ends what its parent has begun, and the parent may have ended it before.
bool LogCheck::WasBegunElsewhere(const LogLine& end) const {
    return std::any_of(m_processes.begin(), m_processes.end(), [&](const ProcessId& process) {
        return process != end.process && process.host == end.process.host &&
               m_ids.Has(process, end.id);
    });
}

void LogCheck::Count(const Activity& activity) {
    if (!m_filter.Passes(activity)) {
        return;
    }
    if (activity.hasEnd) {
        ++m_found.ended;
        m_found.failed += activity.IsFailure() ? 1U : 0U;
    } else {
        ++m_found.neverEnded;
        m_problems.Report(
            ProblemKind::NeverEnded, activity.beginPlace, activity.name + " " + activity.id);
    }
}

}  // namespace tarnview
