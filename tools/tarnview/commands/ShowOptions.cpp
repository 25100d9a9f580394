#include "commands/CommonOptions.h"
#include "commands/ShowCommand.h"

#include <memory>

namespace tarnview {

namespace {

constexpr const char* showFooter = R"(Exit status: 1 if there is no such activity, or more than one.

Examples:
  tarnview show 766D8930 server.log
  tarnview show 766D8930-41F0-4007-AAEF-F70DA3E1DE9A front.log back.log)";

}  // namespace

void AddShow(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<ShowOptions>();
    CLI::App& command = *program.add_subcommand(
        "show", "All about one activity: fields, attributes, supplements, sponsors, children");
    command.add_option("id", options->id, "The activity's id, or its beginning")
        ->type_name("ID")
        ->required()
        ->check([](const std::string& id) { return id.empty() ? "an id is needed" : ""; });
    AddSourceOptions(command, options->input);
    AddWhereOption(command, options->filter);
    command.add_flag("--json", options->isJson, "As a JSON object");
    AddTimeOptions(command, common);
    AddCommonOptions(command, common);
    command.footer(showFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunShow(*options, context); };
    });
}

}  // namespace tarnview
