#include "commands/CommonOptions.h"
#include "commands/OpenCommand.h"
#include "commands/QuestionOptions.h"

#include <memory>

namespace tarnview {

namespace {

constexpr const char* openFooter = R"(Examples:
  tarnview open server.log
  tarnview open --user ada --pid 4711 server.log
  tarnview open --stuck 30 --now server.log
  tarnview open --follow server.log)";

}  // namespace

void AddOpen(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<OpenOptions>();
    CLI::App& command = *program.add_subcommand(
        "open", "What is running, or was when the log ended, longest first");
    AddSourceOptions(command, options->input);
    command.add_option("--stuck", options->stuck, "Only what has been running as long as this")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber);
    command.add_flag("--now", options->isNow, "Measure up to now, not up to the log's last line");
    AddFollowOptions(command, options->follow);
    command
        .add_option("--silent-after",
                    options->silentAfter,
                    "Seconds after which a process that writes nothing is not called running (60)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber);
    AddOpenFilterOptions(command, options->filter);
    AddWhereOption(command, options->filter);
    AddTableOptions(command, options->format);
    AddTimeOptions(command, common);
    AddCommonOptions(command, common);
    command.footer(openFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunOpen(*options, context); };
    });
}

}  // namespace tarnview
