#include "read/LineNumbers.h"

#include <iterator>
#include <string>
#include <utility>

namespace tarnview {

void LineNumbers::Take(const LogLine& line, const Place& place) {
    if (line.number <= 0) {
        return;
    }
    Process& process = m_processes[line.process];
    if (line.number == 1 && Holds(process.ranges, 1)) {
        m_former.emplace(line.process, std::exchange(process, {}));
    }
    Add(process.ranges, line.number);
    m_hasAny = true;
    if (process.file != place.file) {
        process.file = place.file;
    }
}

void LineNumbers::TakeLeftOut(const ProcessId& process, std::int64_t lines, const Place& place) {
    Process& from = m_processes[process];
    from.leftOut += lines;
    m_leftOut += lines;
    if (from.file.empty()) {
        from.file = place.file;
    }
}

bool LineNumbers::Holds(const Ranges& ranges, std::int64_t number) {
    const auto next = ranges.upper_bound(number);
    return next != ranges.begin() && std::prev(next)->second >= number;
}

// Mostly the number after the last one.
void LineNumbers::Add(Ranges& ranges, std::int64_t number) {
    auto next = ranges.upper_bound(number);
    auto range = ranges.end();
    if (next != ranges.begin()) {
        range = std::prev(next);
        if (range->second >= number) {
            return;
        }
        if (range->second + 1 == number) {
            range->second = number;
        } else {
            range = ranges.end();
        }
    }
    if (range == ranges.end()) {
        range = ranges.emplace_hint(next, number, number);
    }
    if (next != ranges.end() && next->first == number + 1) {
        range->second = next->second;
        ranges.erase(next);
    }
}

void LineNumbers::ReportGaps(Problems& problems) const {
    for (const auto& [id, process] : m_former) {
        Report(id, process, problems);
    }
    for (const auto& [id, process] : m_processes) {
        Report(id, process, problems);
    }
}

std::int64_t LineNumbers::CountMissing(const Ranges& ranges) {
    std::int64_t missing = 0;
    std::int64_t expected = 1;
    for (const auto& [first, last] : ranges) {
        missing += first - expected;
        expected = last + 1;
    }
    return missing;
}

void LineNumbers::Report(const ProcessId& id, const Process& process, Problems& problems) {
    if (process.leftOut > 0) {
        // Nobody knows which of the numbers were left out.
        if (const std::int64_t missing = CountMissing(process.ranges) - process.leftOut;
            missing > 0) {
            problems.Report(ProblemKind::MissingLines,
                            {process.file, 0},
                            "process " + ProcessName(id) + ", " + std::to_string(missing) +
                                " beside those left out by its keep rules",
                            static_cast<std::uint64_t>(missing));
        }
        return;
    }
    std::int64_t expected = 1;
    for (const auto& [first, last] : process.ranges) {
        if (first != expected) {
            const std::string range = first == expected + 1 ? std::to_string(expected)
                                                            : std::to_string(expected) + " to " +
                                                                  std::to_string(first - 1);
            problems.Report(ProblemKind::MissingLines,
                            {process.file, 0},
                            "process " + ProcessName(id) + ", " + range,
                            static_cast<std::uint64_t>(first - expected));
        }
        expected = last + 1;
    }
}

}  // namespace tarnview
