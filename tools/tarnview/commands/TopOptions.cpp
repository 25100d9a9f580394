#include "commands/QuestionOptions.h"
#include "commands/TopCommand.h"

#include <algorithm>
#include <map>
#include <memory>

namespace tarnview {

namespace {

constexpr const char* topFooter =
    R"(Times are of activities that have ended, in microseconds, from the times of their lines. What was
not measured is left empty.

Examples:
  tarnview top server.log
  tarnview top --by user,name --sort p99 --limit 10 server.log
  tarnview top --by attributes.tenant --csv server.log > tenants.csv
  tarnview top --failed --by name,result --json front.log back.log
  tarnview top --over 1m --name query server.log
  tarnview top old.log.zst)";

std::string Joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

void Check(const TopOptions& options) {
    if (!Grouping::FromNames(options.groupBy)) {
        throw CLI::ValidationError("--by", "known are " + Grouping::KnownNames());
    }
    std::vector<std::string> names = TopColumnNames();
    names.insert(names.end(), options.groupBy.begin(), options.groupBy.end());
    if (std::find(names.begin(), names.end(), options.sortBy) == names.end()) {
        throw CLI::ValidationError("--sort",
                                   "'" + options.sortBy + "' is not one of " + Joined(names));
    }
}

}  // namespace

void AddTop(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<TopOptions>();
    CLI::App& command =
        *program.add_subcommand("top", "Figures of all activities of each name, or other group");
    AddSourceOptions(command, options->input);
    command
        .add_option("--by",
                    options->groupBy,
                    "Group by these fields, joined by commas: " + Grouping::KnownNames())
        ->type_name("FIELDS")
        ->delimiter(',')
        ->default_str("name")
        ->allow_extra_args(false);
    command
        .add_option("--sort",
                    options->sortBy,
                    "Sort by this column: " + Joined(TopColumnNames()) + ", or one of --by")
        ->type_name("COLUMN")
        ->capture_default_str();
    AddParsed(command,
              "--over",
              options->over,
              ParseInterval,
              "DURATION",
              "A row for each interval of this length, as '10s' or '1m', in the order of time: how "
              "many ended, how many in a second, percentiles; with --by for each group, too");
    command.get_option("--over")->excludes("--sort");
    command.add_flag("--reverse", options->isReversed, "The smallest first");
    command.add_option("--limit", options->limit, "As many rows at most")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000'000).description(""));
    auto* const csv = command.add_flag_callback(
        "--csv",
        [options] { options->format = TopFormat::Csv; },
        "As CSV: seconds, microseconds and bytes as plain numbers");
    command
        .add_flag_callback(
            "--json", [options] { options->format = TopFormat::Json; }, "As a JSON array")
        ->excludes(csv);
    AddFollowOptions(command, options->follow);
    command.get_option("--follow")->excludes("--over");
    AddFilterOptions(command, options->filter);
    AddTimeOptions(command, common);
    AddCommonOptions(command, common);
    command.footer(topFooter);
    command.callback([options, &command, &chosen] {
        options->isGroupedOverTime = command.count("--by") != 0;
        Check(*options);
        chosen = [options](Context& context) { return RunTop(*options, context); };
    });
}

}  // namespace tarnview
