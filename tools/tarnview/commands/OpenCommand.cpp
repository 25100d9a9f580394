#include "commands/OpenCommand.h"

#include "commands/Following.h"
#include "commands/LoadTrees.h"
#include "commands/LocalProcess.h"
#include "model/Joiner.h"
#include "model/ProcessWatch.h"
#include "output/Table.h"
#include "output/Units.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <ostream>

namespace tarnview {

namespace {

Microseconds Now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// The names from the top of the tree down to the activity's sponsor, as far as they are running.
std::string ChainOf(const Joiner& joiner, const Activity& activity) {
    constexpr int longestChain = 64;
    std::string chain;
    const Activity* current = &activity;
    for (int length = 0; length < longestChain; ++length) {
        const std::string& sponsor =
            current->sponsor != current->id ? current->sponsor : current->root;
        const Activity* const next =
            sponsor.empty() || sponsor == current->id ? nullptr : joiner.FindOpen(sponsor);
        if (next == nullptr) {
            break;
        }
        chain.insert(0, next->name + (chain.empty() ? "" : " > "));
        current = next;
    }
    return chain;
}

// What is known about what has not ended, at one moment.
class OpenView {
public:
    OpenView(const Joiner& joiner,
             const ProcessWatch& processes,
             const OpenOptions& options,
             Microseconds until)
        : m_joiner(joiner),
          m_options(options),
          m_until(until) {
        for (const ProcessId& process : processes.Crashed()) {
            m_gone[process] = {processes.LastTimeOf(process), processes.LastWordsOf(process), {}};
        }
        for (const Activity* const activity : joiner.Open()) {
            if (options.filter.Passes(*activity)) {
                Add(*activity, processes);
            }
        }
    }

    void Print(Context& context) const {
        if (m_options.format != TableFormat::Text) {
            Table table = NewTable();
            AddRows(table, m_running, "running", m_until);
            for (const auto& [id, process] : m_silent) {
                AddRows(table, process.rows, "silent", process.lastTime);
            }
            for (const auto& [id, process] : m_gone) {
                AddRows(table, process.rows, "gone", process.lastTime);
            }
            table.Print(context.out, context.terminal, m_options.format);
            return;
        }
        context.out << context.times.Text(m_until) << "  " << m_running.size() << " running";
        if (m_options.stuck > 0) {
            context.out << " for " << FormatDuration(m_options.stuck) << " or longer";
        }
        const auto count = [&](const std::map<ProcessId, Process>& processes, const char* text) {
            std::size_t number = 0;
            for (const auto& [id, process] : processes) {
                number += process.rows.size();
            }
            if (number != 0) {
                context.out << ", " << number << text;
            }
        };
        count(m_silent, " of processes that are silent");
        count(m_gone, " of processes that are gone");
        context.out << '\n';
        PrintRows(m_running, m_until, context);
        PrintProcesses(m_silent, "has been silent since ", context);
        PrintProcesses(m_gone, "is gone, its last line is of ", context);
    }

private:
    struct Row {
        const Activity* activity = nullptr;
        Microseconds time = 0;  // that it has been running
    };

    struct Process {
        Microseconds lastTime = 0;
        std::string lastWords;  // of one that crashed
        std::vector<Row> rows;
    };

    void Add(const Activity& activity, const ProcessWatch& processes) {
        const ProcessId id = activity.process;
        const Microseconds last = processes.LastTimeOf(id);
        const auto silentAfter = static_cast<Microseconds>(m_options.silentAfter * 1e6);
        const bool isLive = m_options.isNow || m_options.follow.isFollowing;
        const bool isGone =
            processes.IsReplaced(id) || !processes.LastWordsOf(id).empty() ||
            (isLive && IsThisHost(processes.HostOf(id)) && !IsStillThere(id.number, last));
        const bool isSilent = m_until - last > silentAfter;
        const Row row{&activity, (isGone ? last : m_until) - activity.begin};
        if (static_cast<double>(row.time) / 1e6 < m_options.stuck) {
            return;
        }
        if (!isGone && !isSilent) {
            m_running.push_back(row);
            return;
        }
        Process& process = (isGone ? m_gone : m_silent)[id];
        process.lastTime = last;
        process.rows.push_back(row);
    }

    void PrintProcesses(const std::map<ProcessId, Process>& processes,
                        const char* text,
                        Context& context) const {
        for (const auto& [id, process] : processes) {
            context.out << "process " << ProcessName(id) << ' ' << text
                        << context.times.Text(process.lastTime) << '\n';
            if (!process.lastWords.empty()) {
                context.out << "  " << OnOneLine(process.lastWords) << '\n';
            }
            PrintRows(process.rows, process.lastTime, context);
        }
    }

    static Table NewTable() {
        return Table({{"for", "for_seconds"},
                      {"activity", "name", true},
                      {"process:thread", "", true, 2},
                      {"", "host", true, 0, true},
                      {"", "pid"},
                      {"", "tid"},
                      {"user", "user", true, 3},
                      {"id", "id", true, 1},
                      {"within", "within", true, 4},
                      {"", "begin"},
                      {"", "state"},
                      {"", "last_line"}});
    }

    void AddRows(Table& table,
                 std::vector<Row> rows,
                 const char* state,
                 Microseconds lastTime) const {
        std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
            return a.activity->begin < b.activity->begin;
        });
        for (const auto& [activity, time] : rows) {
            const std::string number = std::to_string(activity->process.number);
            const std::string thread = std::to_string(activity->beginThread);
            table.Add({Cell::Duration(static_cast<double>(time)),
                       Cell::Text(activity->name),
                       Cell::Text(ProcessName(activity->process) + ":" + thread),
                       Cell::TextIfAny(activity->process.host),
                       Cell::Number(number, number),
                       Cell::Number(thread, thread),
                       Cell::Text(activity->user),
                       Cell::Text(activity->id),
                       Cell::Text(ChainOf(m_joiner, *activity)),
                       Cell::Text(FormatTimestamp(activity->begin)),
                       Cell::Text(state),
                       Cell::Text(FormatTimestamp(lastTime))});
        }
    }

    void PrintRows(const std::vector<Row>& rows, Microseconds lastTime, Context& context) const {
        if (!rows.empty()) {
            Table table = NewTable();
            AddRows(table, rows, "", lastTime);
            table.Print(context.out, context.terminal, TableFormat::Text);
        }
    }

    const Joiner& m_joiner;
    const OpenOptions& m_options;
    Microseconds m_until;
    std::vector<Row> m_running;
    std::map<ProcessId, Process> m_silent;
    std::map<ProcessId, Process> m_gone;
};

int FollowOpen(const OpenOptions& options, Context& context) {
    Problems problems(context.err);
    Joiner joiner(problems, [](Activity&&) {});
    ProcessWatch processes;
    Follow(
        options.input,
        options.follow,
        {.wantsTables = true},  // which name the host
        true,
        problems,
        context,
        [&](const LogLine& line, const Place& place) {
            processes.Take(line, place);
            joiner.Take(line, place);
        },
        [&] { OpenView(joiner, processes, options, Now()).Print(context); });
    return exitSuccess;
}

}  // namespace

int RunOpen(const OpenOptions& options, Context& context) {
    if (options.follow.isFollowing) {
        return FollowOpen(options, context);
    }
    Input input(options.input, context);
    Joiner joiner(input.Findings(), [](Activity&&) {});
    ProcessWatch processes;
    Microseconds last = 0;
    bool hasActivities = false;
    ParserOptions parsing = ParsingFor(options.filter);
    parsing.wantsTables = parsing.wantsTables || options.isNow;  // which name the host
    const auto take = [&](const LogLine& line, const Place& place) {
        last = std::max(last, line.time);
        hasActivities = hasActivities || line.IsOfActivity();
        processes.Take(line, place);
        joiner.Take(line, place);
    };
    if (ActivitySource* const source = input.Source()) {
        source->ReadSignsOfLife(options.isNow, take);
        source->ReadOpen(parsing.wantsTables,
                         [&](Activity&& activity) { joiner.Reopen(std::move(activity)); });
        hasActivities = source->LastTime() != 0;
    } else {
        input.Scanner().Scan(parsing, take);
    }
    processes.ReportDead(joiner.Open(), input.Findings());
    input.EndPass();
    if (hasActivities) {
        OpenView(joiner, processes, options, options.isNow ? Now() : last).Print(context);
    } else if (options.format == TableFormat::Text) {
        context.out << "no activities\n";
    }
    return input.Finish();
}

}  // namespace tarnview
