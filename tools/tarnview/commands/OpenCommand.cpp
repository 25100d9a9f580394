#include "commands/OpenCommand.h"

#include "commands/Input.h"
#include "commands/LocalProcess.h"
#include "model/Joiner.h"
#include "model/ProcessWatch.h"
#include "output/Units.h"
#include "read/FollowedFile.h"

#include <algorithm>
#include <list>
#include <map>
#include <ostream>
#include <thread>

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
        for (const Activity* const activity : joiner.Open()) {
            if (options.filter.Passes(*activity)) {
                Add(*activity, processes);
            }
        }
    }

    void Print(Context& context) const {
        context.out << FormatTimestamp(m_until) << "  " << m_running.size() << " running";
        if (m_options.stuck > 0) {
            context.out << " for " << FormatDuration(m_options.stuck) << " or longer";
        }
        const auto count = [&](const std::map<std::int64_t, Process>& processes, const char* text) {
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
        if (!m_running.empty()) {
            PrintRows(m_running, context);
        }
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
        std::vector<Row> rows;
    };

    void Add(const Activity& activity, const ProcessWatch& processes) {
        const std::int64_t id = activity.process;
        const Microseconds last = processes.LastTimeOf(id);
        const auto silentAfter = static_cast<Microseconds>(m_options.silentAfter * 1e6);
        const bool isLive = m_options.isNow || m_options.isFollowing;
        const bool isGone = processes.IsReplaced(id) ||
                            (isLive && IsThisHost(processes.HostOf(id)) && !IsStillThere(id, last));
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

    void PrintProcesses(const std::map<std::int64_t, Process>& processes,
                        const char* text,
                        Context& context) const {
        for (const auto& [id, process] : processes) {
            context.out << "process " << id << ' ' << text << FormatTimestamp(process.lastTime)
                        << '\n';
            PrintRows(process.rows, context);
        }
    }

    void PrintRows(std::vector<Row> rows, Context& context) const {
        std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
            return a.activity->begin < b.activity->begin;
        });
        std::size_t nameWidth = 8;
        for (const Row& row : rows) {
            nameWidth = std::max(nameWidth, TextWidth(row.activity->name));
        }
        context.out << context.terminal.Paint(
                           FitRight("for", 11) + "  " + FitLeft("activity", nameWidth) + "  " +
                               FitLeft("process:thread", 15) + "  " + FitLeft("user", 10) + "  " +
                               FitLeft("id", 36) + "  within",
                           Colour::Bold)
                    << '\n';
        for (const auto& [activity, time] : rows) {
            const std::string thread =
                std::to_string(activity->process) + ":" + std::to_string(activity->beginThread);
            context.out << FitRight(FormatDuration(static_cast<double>(time) / 1e6), 11) << "  "
                        << FitLeft(OnOneLine(activity->name), nameWidth) << "  "
                        << FitLeft(thread, 15) << "  " << FitLeft(OnOneLine(activity->user), 10)
                        << "  " << FitLeft(OnOneLine(activity->id), 36) << "  "
                        << OnOneLine(ChainOf(m_joiner, *activity)) << '\n';
        }
    }

    const Joiner& m_joiner;
    const OpenOptions& m_options;
    Microseconds m_until;
    std::vector<Row> m_running;
    std::map<std::int64_t, Process> m_silent;
    std::map<std::int64_t, Process> m_gone;
};

int Follow(const OpenOptions& options, Context& context) {
    Problems problems(context.err);
    Joiner joiner(problems, [](Activity&&) {});
    ProcessWatch processes;
    const auto take = [&](const LogLine& line, const Place& place) {
        processes.Take(line, place);
        joiner.Take(line, place);
    };
    const std::vector<std::string> paths =
        FilesToRead(options.input.files, options.input.addsRotated);
    // Full files are only read; those that were named are followed.
    std::vector<std::string> full;
    const ParserOptions parsing{.wantsTables = true};  // which name the host
    LineParser parser(parsing);
    std::list<FollowedFile> followed;
    for (const std::string& path : paths) {
        const auto& named = options.input.files;
        if (std::find(named.begin(), named.end(), path) != named.end()) {
            followed.emplace_back(path, parser, problems);
        } else {
            full.push_back(path);
        }
    }
    LogScanner(full, problems).Scan(parsing, take);
    for (std::size_t update = 0; options.updates == 0 || update < options.updates; ++update) {
        if (update != 0) {
            std::this_thread::sleep_for(options.interval);
        }
        for (FollowedFile& file : followed) {
            file.Poll(take);
        }
        if (context.terminal.isInteractive) {
            context.out << "\x1B[H\x1B[2J";
        }
        OpenView(joiner, processes, options, Now()).Print(context);
        if (!context.out.flush()) {
            break;  // nobody reads it any more
        }
    }
    return exitSuccess;
}

}  // namespace

int RunOpen(const OpenOptions& options, Context& context) {
    if (options.isFollowing) {
        return Follow(options, context);
    }
    Input input(options.input, context);
    Joiner joiner(input.Findings(), [](Activity&&) {});
    ProcessWatch processes;
    Microseconds last = 0;
    bool hasActivities = false;
    const ParserOptions parsing{.wantsTables = options.isNow};  // which name the host
    input.Scanner().Scan(parsing, [&](const LogLine& line, const Place& place) {
        last = std::max(last, line.time);
        hasActivities = hasActivities || line.IsOfActivity();
        processes.Take(line, place);
        joiner.Take(line, place);
    });
    processes.ReportDead(joiner.Open(), input.Findings());
    input.EndPass();
    if (hasActivities) {
        OpenView(joiner, processes, options, options.isNow ? Now() : last).Print(context);
    } else {
        context.out << "no activities\n";
    }
    return input.Finish();
}

}  // namespace tarnview
