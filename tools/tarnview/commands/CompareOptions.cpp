#include "commands/CompareCommand.h"
#include "commands/QuestionOptions.h"
#include "model/Grouping.h"

#include <map>
#include <memory>

namespace tarnview {

namespace {

constexpr const char* compareFooter =
    R"(The first log is the old side, the second one the new side; with --at, what began before that time
is old and the rest is new. 'change' is that of the mean; 'cost' the difference of the means times
the new count: what it costs in all. 'chance' says how likely durations differ as much by chance: up
to 400 of each side are dealt out anew 1,999 times, always in the same way. '*' marks what is
significant; of all that are marked, about one in twenty is so by chance.

Examples:
  tarnview compare yesterday.log today.log
  tarnview compare --old old/front.log --old old/back.log front.log back.log
  tarnview compare --at 2026-11-21T06:00 server.log
  tarnview compare --by body.shard --name query --sort change old.log new.log)";

void Check(const CompareOptions& options) {
    if (!Grouping::FromNames(options.groupBy)) {
        throw CLI::ValidationError("--by", "known are " + Grouping::KnownNames());
    }
    if (!options.at && !options.question.input.from.empty()) {
        throw CLI::ValidationError("--from", "needs --at TIME to part the sides");
    }
    if (!options.at && options.old.empty() && options.question.input.files.size() != 2) {
        throw CLI::ValidationError(
            "LOG",
            "two logs are compared, the old one first; or name the old ones by --old; or give --at "
            "TIME to part them");
    }
}

}  // namespace

void AddCompare(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<CompareOptions>();
    CLI::App& command = *program.add_subcommand(
        "compare", "What differs between two logs, or before and after a time");
    AddParsed(
        command,
        "--at",
        options->at,
        [&command](const std::string& text) { return ParseTime(command, text); },
        "TIME",
        "Compare what began before this time with the rest");
    command.add_option("--old", options->old, "A log of the old side; the others are the new one")
        ->type_name("LOG")
        ->allow_extra_args(false)
        ->excludes("--at");
    command
        .add_option("--by",
                    options->groupBy,
                    "Group by these fields, joined by commas: " + Grouping::KnownNames())
        ->type_name("FIELDS")
        ->delimiter(',')
        ->default_str("name")
        ->allow_extra_args(false);
    static const std::map<std::string, CompareOrder> orders{{"cost", CompareOrder::Cost},
                                                            {"failed", CompareOrder::Failed},
                                                            {"change", CompareOrder::Change},
                                                            {"name", CompareOrder::Name}};
    command
        .add_option_function<std::string>(
            "--sort",
            [options](const std::string& order) { options->order = orders.at(order); },
            "The greatest difference first, in either direction: of cost (the default), failed or "
            "change; or by name")
        ->type_name("ORDER")
        ->check(CLI::IsMember({"cost", "failed", "change", "name"}));
    command.add_option("--limit", options->limit, "As many rows at most")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    command.add_flag(
        "--significant", options->isSignificantOnly, "Only what is unlikely to differ by chance");
    AddQuestionOptions(command, options->question, common);
    command.footer(compareFooter);
    command.callback([options, &chosen] {
        Check(*options);
        chosen = [options](Context& context) { return RunCompare(*options, context); };
    });
}

}  // namespace tarnview
