#include "commands/FailuresCommand.h"

#include "commands/LoadTrees.h"
#include "commands/QuestionOptions.h"

#include <algorithm>
#include <memory>
#include <ostream>

namespace tarnview {

namespace {

constexpr const char* failuresFooter =
    R"(What failed because something below it did is not counted: an early termination, or a failure of
which the log says that a child failed. Numbers in messages read '#', so that 'order 17 is late' and
'order 18 is late' are one row. The id is that of the first one, for 'tarnview show ID'.

Examples:
  tarnview failures server.log
  tarnview failures --sort first --limit 1 server.log
  tarnview failures --name 'load*' --since 2026-11-21T06:00 server.log)";

void Sort(std::vector<FailureGroup>& groups, FailureOrder order) {
    std::stable_sort(groups.begin(), groups.end(), [&](const auto& a, const auto& b) {
        switch (order) {
            case FailureOrder::First:
                return a.first < b.first;
            case FailureOrder::Last:
                return a.last > b.last;
            case FailureOrder::Count:
                break;
        }
        return a.count > b.count;
    });
}

}  // namespace

int RunFailures(const FailuresOptions& options, Context& context) {
    Input input(options.question.input, context);
    FailureGroups failures(options.grouping);
    const Filter& filter = options.question.filter;
    ReadActivities(
        input,
        {.wantsTables = true},
        [&](Activity&& activity) {
            if (filter.Passes(activity)) {
                failures.Take(activity);
            }
        },
        &filter);
    std::vector<FailureGroup> groups = failures.Groups();
    Sort(groups, options.order);
    if (options.limit != 0 && groups.size() > options.limit) {
        groups.resize(options.limit);
    }
    Table table({{"count", "count"},
                 {"requests", "requests", false, 3},
                 {"first", "first", true, 2},
                 {"last", "last", true, 4},
                 {"name", "name", true},
                 {"result", "result", true, 5},
                 {"type", "type", true, 1},
                 {"message", "message", true},
                 {"id of the first", "id", true, 6}});
    for (const FailureGroup& group : groups) {
        table.Add({Cell::Count(group.count),
                   Cell::Count(group.roots.size()),
                   Cell::Time(group.first, context.times),
                   Cell::Time(group.last, context.times),
                   Cell::Text(group.name),
                   Cell::Text(group.result),
                   Cell::Text(group.type),
                   Cell::Text(group.message),
                   Cell::Text(group.firstId)});
    }
    if (table.Rows() != 0 || options.question.format != TableFormat::Text) {
        table.Print(context.out, context.terminal, options.question.format);
    }
    if (groups.empty()) {
        context.err << "tarnview: no activity failed\n";
    }
    if (failures.Consequences() != 0) {
        context.err << "tarnview: " << failures.Consequences()
                    << " more ended so because something below them failed (--all shows them)\n";
    }
    return input.Finish();
}

void AddFailures(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<FailuresOptions>();
    CLI::App& command = *program.add_subcommand(
        "failures", "What failed, grouped by name, result, type and message");
    static const std::map<std::string, FailureOrder> orders{{"count", FailureOrder::Count},
                                                            {"first", FailureOrder::First},
                                                            {"last", FailureOrder::Last}};
    command
        .add_option_function<std::string>(
            "--sort",
            [options](const std::string& order) { options->order = orders.at(order); },
            "count: the most first; first: the earliest first; last: the latest first")
        ->type_name("ORDER")
        ->check(CLI::IsMember({"count", "first", "last"}));
    command.add_option("--limit", options->limit, "As many rows at most")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    command.add_flag("--all",
                     options->grouping.takesAll,
                     "Also early terminations, and what failed because something below it did");
    command.add_flag(
        "--exact", options->grouping.isExact, "Tell messages apart that differ in numbers only");
    AddQuestionOptions(command, options->question, common);
    command.footer(failuresFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunFailures(*options, context); };
    });
}

}  // namespace tarnview
