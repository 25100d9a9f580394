#include "commands/CommonOptions.h"
#include "commands/ExportCommand.h"
#include "commands/SlowestOption.h"

#include <map>
#include <memory>

namespace tarnview {

namespace {

constexpr const char* exportFooter =
    R"(A tree is exported if one of its activities fits all filters.

Examples:
  tarnview export --to chrome -o trace.json server.log
  tarnview export --to speedscope --slowest 50 -o profile.json server.log
  tarnview export --to folded --weight memory server.log > stacks
  tarnview export --to otlp --service shop server.log > spans.jsonl)";

template <class Value>
void AddChoice(CLI::App& command,
               const std::string& name,
               Value& value,
               const std::map<std::string, Value>& choices,
               const std::string& type,
               const std::string& help) {
    std::vector<std::string> names;
    names.reserve(choices.size());
    for (const auto& [choice, meaning] : choices) {
        names.push_back(choice);
    }
    command
        .add_option_function<std::string>(
            name, [&value, choices](const std::string& text) { value = choices.at(text); }, help)
        ->type_name(type)
        ->check(CLI::IsMember(names));
}

}  // namespace

void AddExport(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<ExportOptions>();
    CLI::App& command =
        *program.add_subcommand("export", "Activities for trace viewers and flame graphs");
    AddInputOptions(command, options->input);
    AddHostOption(command, options->input);
    AddChoice<ExportFormat>(
        command,
        "--to",
        options->format,
        {{"chrome", ExportFormat::Chrome},
         {"perfetto", ExportFormat::Perfetto},
         {"speedscope", ExportFormat::Speedscope},
         {"otlp", ExportFormat::Otlp},
         {"folded", ExportFormat::Folded},
         {"pprof", ExportFormat::Pprof}},
        "FORMAT",
        "chrome (trace-event JSON), perfetto, speedscope, otlp (JSON lines), folded "
        "(stacks) or pprof");
    command.get_option("--to")->required();
    AddChoice<FoldedWeight>(command,
                            "--weight",
                            options->weight,
                            {{"time", FoldedWeight::Time},
                             {"cpu", FoldedWeight::Cpu},
                             {"memory", FoldedWeight::Memory}},
                            "WEIGHT",
                            "For folded: exclusive time (the default), cpu or memory");
    command
        .add_option(
            "--service", options->service, "For otlp: the service.name; the site unless given")
        ->type_name("NAME");
    AddSlowestOption(command, options->order, options->count);
    AddFilterOptions(command, options->filter);
    AddTimeOptions(command, common);
    AddCommonOptions(command, common);
    command.footer(exportFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunExport(*options, context); };
    });
}

}  // namespace tarnview
