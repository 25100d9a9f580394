#include "commands/CallersCommand.h"

#include "commands/LoadTrees.h"
#include "commands/QuestionOptions.h"
#include "model/DurationHistogram.h"

#include <algorithm>
#include <map>
#include <memory>
#include <ostream>

namespace tarnview {

namespace {

constexpr const char* callersFooter =
    R"(Each row is a way from the top of a tree to activities of this name, across threads and processes;
'~>' is a call that the log does not name and that was guessed.
Times are of those at the end of the way that have ended; filters apply to these too.

Examples:
  tarnview callers query server.log
  tarnview callers 'load*' --levels 1 --failed front.log back.log)";

struct Caller {
    std::uint64_t count = 0;
    std::uint64_t failed = 0;
    Microseconds total = 0;
    Microseconds maximum = 0;
    DurationHistogram durations{};
};

std::string WayTo(const ActivityForest& forest, ActivityForest::Index index, std::size_t levels) {
    constexpr std::size_t longestWay = 64;
    const auto arrow = [&](ActivityForest::Index callee) {
        return forest.LinkOf(callee) == LinkKind::Named ? " > " : " ~> ";
    };
    std::string way = forest[index].name;
    ActivityForest::Index callee = index;
    const std::size_t most = levels == 0 ? longestWay : std::min(levels, longestWay);
    ActivityForest::Index next = forest.ParentOf(index);
    for (std::size_t level = 0; level < most && next != ActivityForest::none; ++level) {
        way.insert(0, forest[next].name + arrow(callee));
        callee = next;
        next = forest.ParentOf(next);
    }
    // Only where nobody has asked for less.
    return (next != ActivityForest::none && levels == 0 ? "... > " : "") + way;
}

}  // namespace

int RunCallers(const CallersOptions& options, Context& context) {
    Input input(options.question.input, context);
    Filter filter = options.question.filter;
    filter.names = {options.name};
    std::vector<std::string> roots;
    const ActivityForest forest = LoadSelected(input, filter, TreeOrder::AsBegun, 0, roots);
    std::map<std::string, Caller> callers;
    for (ActivityForest::Index index = 0; index < forest.Size(); ++index) {
        const Activity& activity = forest[index];
        if (!filter.Passes(activity)) {
            continue;
        }
        Caller& caller = callers[WayTo(forest, index, options.levels)];
        ++caller.count;
        if (activity.hasEnd) {
            const Microseconds duration = activity.Duration();
            caller.failed += activity.IsFailure() ? 1U : 0U;
            caller.total += duration;
            caller.maximum = std::max(caller.maximum, duration);
            caller.durations.Add(static_cast<std::uint64_t>(std::max<Microseconds>(duration, 0)));
        }
    }
    std::vector<std::pair<std::string, const Caller*>> rows;
    for (const auto& [way, caller] : callers) {
        rows.emplace_back(way, &caller);
    }
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return a.second->total > b.second->total;
    });
    Table table({{"count", "count"},
                 {"failed", "failed", false, 1},
                 {"total", "total_seconds"},
                 {"p50", "p50_seconds", false, 3},
                 {"p99", "p99_seconds", false, 2},
                 {"max", "max_seconds", false, 4},
                 {"callers", "callers", true}});
    for (const auto& row : rows) {
        const Caller* const caller = row.second;
        const bool isKnown = caller->durations.Count() != 0;
        const auto duration = [&](std::int64_t value) {
            return isKnown ? Cell::Duration(static_cast<double>(value)) : Cell::Missing();
        };
        const auto quantile = [&](double share) {
            return duration(static_cast<std::int64_t>(caller->durations.Quantile(share)));
        };
        table.Add({Cell::Count(caller->count),
                   Cell::Count(caller->failed).Bad(caller->failed != 0),
                   duration(caller->total),
                   quantile(0.5),
                   quantile(0.99),
                   duration(caller->maximum),
                   Cell::Text(row.first)});
    }
    if (table.Rows() != 0 || options.question.format != TableFormat::Text) {
        table.Print(context.out, context.terminal, options.question.format);
    }
    SayWhatIsGuessed(forest, context);
    return input.Finish();
}

void AddCallers(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<CallersOptions>();
    CLI::App& command =
        *program.add_subcommand("callers", "Which callers led to the activities of a name");
    command.add_option("name", options->name, "Their name, as 'load' or 'load*'")
        ->type_name("NAME")
        ->required();
    command.add_option("--levels", options->levels, "As many levels of callers at most")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    AddQuestionOptions(command, options->question, common);
    command.remove_option(command.get_option("--name"));
    command.footer(callersFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunCallers(*options, context); };
    });
}

}  // namespace tarnview
