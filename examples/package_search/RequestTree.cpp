#include "RequestTree.h"

#include "tarn/ActivityTokens.h"

#include "cvlcoreplatform/TString.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <map>
#include <ostream>
#include <set>
#include <utility>

namespace packagesearch {

namespace {

using Thread = std::pair<std::uint64_t, std::uint64_t>;  // process and thread

struct Row {
    const LoggedActivity* activity = nullptr;
    const LoggedActivity* parent = nullptr;  // null for the request itself
    std::size_t indent = 0;
};

// Exclusive figures of the rows that belong together, and the inclusive ones of the topmost.
struct Sum {
    std::size_t rows = 0;
    std::int64_t memory = 0;
    std::int64_t cpu = 0;
    std::int64_t milliseconds = 0;
    std::int64_t topMemory = 0;
    std::int64_t topCpu = 0;
    std::int64_t topMilliseconds = 0;
};

std::int64_t Milliseconds(double seconds) {
    return std::llround(seconds * 1000);
}

Thread ThreadOf(const LoggedActivity& activity) {
    return {activity.processId, activity.threadId};
}

void CollectRows(const LogReport& report,
                 const LoggedActivity& activity,
                 const LoggedActivity* parent,
                 std::size_t indent,
                 std::vector<Row>& rows) {
    rows.push_back({&activity, parent, indent});
    for (const std::size_t child : activity.children) {
        CollectRows(report, report.activities[child], &activity, indent + 2, rows);
    }
}

// Short names for the threads: a letter for the process and a number, in order of appearance.
class ThreadNames {
public:
    explicit ThreadNames(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            const Thread thread = ThreadOf(*row.activity);
            const auto process = m_processes.emplace(thread.first, m_processes.size()).first;
            if (m_names.count(thread) == 0) {
                const std::string letter = Letter(process->second);
                m_names[thread] = letter + std::to_string(++m_threads[letter]);
            }
        }
    }

    std::string Process(std::uint64_t process) const { return Letter(m_processes.at(process)); }

    const std::string& Name(const LoggedActivity& activity) const {
        return m_names.at(ThreadOf(activity));
    }

private:
    static std::string Letter(std::size_t number) {
        return number < 26 ? std::string(1, static_cast<char>('A' + number))
                           : "P" + std::to_string(number);
    }

    std::map<std::uint64_t, std::size_t> m_processes;
    std::map<Thread, std::string> m_names;
    std::map<std::string, std::size_t> m_threads;
};

std::string Outcome(const LoggedActivity& activity) {
    if (activity.result.empty()) {
        return "never ended";
    }
    return activity.result + (activity.resultDetails.empty() ? "" : ": " + activity.resultDetails);
}

void PrintHeading(std::ostream& out, std::size_t width) {
    out << std::left << std::setw(static_cast<int>(width)) << "activity"
        << "  on   " << std::right << std::setw(13) << "time ms" << std::setw(20) << "memory bytes"
        << std::setw(10) << "peak" << std::setw(16) << "cpu us" << '\n'
        << std::string(width + 7, ' ') << std::setw(7) << "all" << std::setw(6) << "own"
        << std::setw(10) << "all" << std::setw(10) << "own" << std::setw(10) << "" << std::setw(8)
        << "all" << std::setw(8) << "own" << '\n';
}

void PrintRow(std::ostream& out, const Row& row, std::size_t width, const ThreadNames& threads) {
    const LoggedActivity& activity = *row.activity;
    const LoggedFigures& figures = activity.figures;
    out << std::string(row.indent, ' ') << std::left
        << std::setw(static_cast<int>(width - row.indent)) << activity.name << "  " << std::setw(5)
        << threads.Name(activity) << std::right << std::setw(7) << Milliseconds(activity.elapsed)
        << std::setw(6) << Milliseconds(activity.exclusive) << std::setw(10) << figures.allocated
        << std::setw(10) << figures.allocatedExclusive << std::setw(10) << figures.allocatedPeak
        << std::setw(8) << figures.cpu << std::setw(8) << figures.cpuExclusive;
    if (!activity.attributes.empty()) {
        out << "  " << activity.attributes;
    }
    out << '\n';
    const std::string margin(row.indent + 2, ' ');
    if (HasFailed(activity)) {
        out << margin << "! " << Outcome(activity) << '\n';
    }
    for (const std::string& supplement : activity.supplements) {
        out << margin << "* " << supplement << '\n';
    }
}

void AddTo(Sum& sum, const LoggedActivity& activity, bool isTop) {
    ++sum.rows;
    sum.memory += activity.figures.allocatedExclusive;
    sum.cpu += activity.figures.cpuExclusive;
    sum.milliseconds += Milliseconds(activity.exclusive);
    if (isTop) {
        sum.topMemory += activity.figures.allocated;
        sum.topCpu += activity.figures.cpu;
        sum.topMilliseconds += Milliseconds(activity.elapsed);
    }
}

void PrintComparison(
    std::ostream& out, const char* unit, std::int64_t own, std::int64_t all, const char* end) {
    out << own << ' ' << unit;
    if (own != all) {
        out << " (but all: " << all << ")";
    }
    out << end;
}

// Memory and processor time pass from thread to thread, but not from process to process; time
// passes up within a thread only.
void PrintSums(std::ostream& out, const std::vector<Row>& rows, const ThreadNames& threads) {
    std::map<std::string, Sum> processes;
    std::map<std::string, Sum> perThread;
    for (const Row& row : rows) {
        const LoggedActivity& activity = *row.activity;
        const bool isTopOfProcess =
            row.parent == nullptr || row.parent->processId != activity.processId;
        const bool isTopOfThread =
            row.parent == nullptr || ThreadOf(*row.parent) != ThreadOf(activity);
        AddTo(processes[threads.Process(activity.processId)], activity, isTopOfProcess);
        AddTo(perThread[threads.Name(activity)], activity, isTopOfThread);
    }
    out << "The own figures add up to what the topmost activity has in all:\n";
    for (const auto& [name, sum] : processes) {
        out << "  in process " << name << " ";
        PrintComparison(out, "bytes", sum.memory, sum.topMemory, ", ");
        PrintComparison(out, "us", sum.cpu, sum.topCpu, "\n");
    }
    out << "  on thread ";
    const char* separator = "";
    for (const auto& [name, sum] : perThread) {
        out << separator << name << " ";
        PrintComparison(out, "ms", sum.milliseconds, sum.topMilliseconds, "");
        separator = ", ";
    }
    out << '\n';
}

}  // namespace

std::vector<const LoggedActivity*> TopActivities(const LogReport& report) {
    std::set<std::size_t> parts;
    for (const LoggedActivity& activity : report.activities) {
        parts.insert(activity.children.begin(), activity.children.end());
    }
    std::vector<const LoggedActivity*> tops;
    for (std::size_t index = 0; index < report.activities.size(); ++index) {
        if (parts.count(index) == 0) {
            tops.push_back(&report.activities[index]);
        }
    }
    std::stable_sort(
        tops.begin(), tops.end(), [](const auto* a, const auto* b) { return a->begin < b->begin; });
    return tops;
}

bool HasFailed(const LoggedActivity& activity) {
    return activity.result != TString(ActivityTokens::resultOk).ToUtf8();
}

void PrintRequest(std::ostream& out, const LogReport& report, const LoggedActivity& request) {
    std::vector<Row> rows;
    CollectRows(report, request, nullptr, 0, rows);
    const ThreadNames threads(rows);
    std::size_t width = 8;
    std::map<std::string, std::string> sites;
    for (const Row& row : rows) {
        width = std::max(width, row.indent + row.activity->name.size());
        sites[threads.Process(row.activity->processId)] =
            "process " + std::to_string(row.activity->processId) + " at " + row.activity->site;
    }
    out << request.description << "  (user " << request.user << ", request " << request.request
        << ", root " << request.root << ")\n";
    for (const auto& [name, site] : sites) {
        out << name << " is " << site << '\n';
    }
    out << '\n';
    PrintHeading(out, width);
    for (const Row& row : rows) {
        PrintRow(out, row, width, threads);
    }
    PrintSums(out, rows, threads);
}

void PrintRequestLine(std::ostream& out, const LoggedActivity& request) {
    // Of the time of day the milliseconds are enough.
    constexpr std::size_t timeBegin = 11;
    constexpr std::size_t timeLength = 12;
    const std::string time =
        request.begin.size() > timeBegin ? request.begin.substr(timeBegin, timeLength) : "?";
    out << time << "  " << request.description << "  (user " << request.user << ", "
        << Milliseconds(request.elapsed) << " ms, root " << request.root << ")\n    "
        << Outcome(request) << (request.attributes.empty() ? "" : "  [" + request.attributes + "]")
        << '\n';
}

}  // namespace packagesearch
