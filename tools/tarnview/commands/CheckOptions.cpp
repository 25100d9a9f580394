#include "commands/CheckCommand.h"
#include "commands/CommonOptions.h"

#include <memory>

namespace tarnview {

namespace {

constexpr const char* checkFooter =
    R"(Exit status: 0 the log is whole, 1 it is not, 2 wrong command line, 3 a file cannot be read.

Examples:
  tarnview check server.log
  tarnview check --quiet --ignore never-ended,figures server.log || echo broken)";

std::string KnownKinds() {
    std::string words;
    for (std::size_t index = 0; index < problemKinds; ++index) {
        words.append(index == 0 ? "" : ", ").append(WordFor(static_cast<ProblemKind>(index)));
    }
    return words;
}

ProblemKind KindOf(const std::string& word) {
    for (std::size_t index = 0; index < problemKinds; ++index) {
        if (WordFor(static_cast<ProblemKind>(index)) == word) {
            return static_cast<ProblemKind>(index);
        }
    }
    throw CLI::ValidationError("--ignore", "'" + word + "' is not one of " + KnownKinds());
}

}  // namespace

void AddCheck(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<CheckOptions>();
    const auto ignored = std::make_shared<std::vector<std::string>>();
    CLI::App& command = *program.add_subcommand(
        "check",
        "Whether a log is whole: lines that do not parse, ends without a begin, ids that "
        "repeat, figures that do not add up");
    AddInputOptions(command, options->input);
    AddHostOption(command, options->input);
    command
        .add_option(
            "--ignore", *ignored, "Kinds of faults to ignore, joined by commas: " + KnownKinds())
        ->type_name("KINDS")
        ->delimiter(',')
        ->allow_extra_args(false);
    command.add_flag("-q,--quiet", options->isQuiet, "No summary");
    AddWhereOption(command, options->filter);
    command.add_flag("--json", options->isJson, "The summary as a JSON object");
    AddCommonOptions(command, common);
    command.footer(checkFooter);
    command.callback([options, ignored, &chosen] {
        for (const std::string& word : *ignored) {
            options->ignored.push_back(KindOf(word));
        }
        chosen = [options](Context& context) { return RunCheck(*options, context); };
    });
}

}  // namespace tarnview
