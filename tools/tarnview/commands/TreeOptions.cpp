#include "commands/CommonOptions.h"
#include "commands/TreeCommand.h"

#include <memory>

namespace tarnview {

namespace {

constexpr const char* treeFooter = R"(A tree is shown if one of its activities fits all filters.

Examples:
  tarnview tree --slowest 3 server.log
  tarnview tree --failed --last 5 --attributes server.log
  tarnview tree --root 766D8930 front.log back.log
  tarnview tree --name 'load*' --slower-than 250ms --since 2026-11-21T06:00 server.log)";

}  // namespace

void AddTree(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<TreeOptions>();
    CLI::App& command = *program.add_subcommand(
        "tree", "Activities as trees, across threads and processes, with figures and failures");
    AddSourceOptions(command, options->input);
    auto* const slowest = command.add_option_function<std::size_t>(
        "--slowest",
        [options](std::size_t count) {
            options->order = TreeOrder::Slowest;
            options->count = count;
        },
        "The N trees in which what fits the filters took longest, without filters the roots; the "
        "slowest first");
    slowest->type_name("N")->check(CLI::Range(1, mostTrees).description(""));
    auto* const last = command.add_option_function<std::size_t>(
        "--last",
        [options](std::size_t count) {
            options->order = TreeOrder::Last;
            options->count = count;
        },
        "The N trees that began last");
    last->type_name("N")->check(CLI::Range(1, mostTrees).description(""))->excludes(slowest);
    command.add_option("--depth", options->depth, "As many levels at most")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000'000).description(""));
    command.add_flag("-a,--attributes",
                     options->showsAttributes,
                     "Below each activity its attributes and supplements");
    command.add_flag(
        "-m,--messages",
        options->showsMessages,
        "Below each activity the messages of its thread and time, or that name its id");
    command
        .add_option("--fold",
                    options->most,
                    "Show more than N siblings of one name and outcome as one line with their sum "
                    "(5); 0: none")
        ->type_name("N")
        ->check(CLI::Range(0, 1'000'000'000).description(""));
    command
        .add_option_function<std::vector<std::string>>(
            "--label",
            [options](const std::vector<std::string>& names) {
                for (const std::string& name : names) {
                    const auto field = ActivityField::Find(name);
                    if (!field) {
                        throw CLI::ValidationError("--label",
                                                   "known are " + ActivityField::KnownNames());
                    }
                    options->labels.push_back(*field);
                }
            },
            "Behind each name these fields, joined by commas, as body.shard")
        ->type_name("FIELDS")
        ->delimiter(',')
        ->allow_extra_args(false);
    command.add_flag("--json", options->isJson, "A JSON object for each activity");
    AddFollowOptions(command, options->follow);
    for (const char* const other : {"--slowest", "--last", "--messages"}) {
        command.get_option("--follow")->excludes(other);
    }
    AddFilterOptions(command, options->filter);
    AddTimeOptions(command, common);
    AddCommonOptions(command, common);
    command.footer(treeFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunTree(*options, context); };
    });
}

}  // namespace tarnview
