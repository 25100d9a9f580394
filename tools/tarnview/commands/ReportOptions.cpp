#include "commands/CommonOptions.h"
#include "commands/ReportCommand.h"
#include "commands/SlowestOption.h"

#include <memory>

namespace tarnview {

namespace {

constexpr const char* reportFooter =
    R"(The page needs nothing but a browser. Of a large log, choose what to show.

Examples:
  tarnview report -o report.html front.log back.log
  tarnview report --slowest 200 -o report.html server.log
  tarnview report --failed -o failures.html server.log)";

}  // namespace

void AddReport(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<ReportOptions>();
    CLI::App& command = *program.add_subcommand(
        "report", "A page for a browser: timeline, flame chart, table by name, failures");
    AddInputOptions(command, options->input);
    AddHostOption(command, options->input);
    AddSlowestOption(command, options->order, options->count);
    AddFilterOptions(command, options->filter);
    AddTimeOptions(command, common);
    AddCommonOptions(command, common);
    command.get_option("--output")->required();
    command.footer(reportFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunReport(*options, context); };
    });
}

}  // namespace tarnview
