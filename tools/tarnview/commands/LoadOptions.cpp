#include "commands/CommonOptions.h"
#include "commands/LoadCommand.h"

#include <memory>
#include <stdexcept>

namespace tarnview {

namespace {

constexpr const char* examples =
    R"(Every line is in the engine once, however often this is run and wherever it was ended: a file says how far
the logs are loaded, LOG.loaded unless named. An engine that is away is waited for. Lines that are no
lines of a log are kept in the table rejected_lines. 'tarnview top --from URL' and the other questions
then ask the engine.

Examples:
  tarnview load --to http://localhost:8123/logs server.log
  tarnview load --to http://localhost:8123/logs --follow --checkpoint /var/lib/logs.loaded front.log back.log
  tarnview load --to http://localhost:8123/logs --cluster two server.log)";

}  // namespace

void AddLoad(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<LoadOptions>();
    CLI::App& command =
        *program.add_subcommand("load", "Logs into the tables of a ClickHouse server or cluster");
    AddInputOptions(command, options->input);
    command
        .add_option_function<std::string>(
            "--to",
            [options](const std::string& url) {
                try {
                    options->to = EngineAddress::Parse(url);
                } catch (const std::invalid_argument& error) {
                    throw CLI::ValidationError("--to", error.what());
                }
            },
            "Where the engine answers, and the database: http://HOST:8123/DATABASE")
        ->type_name("URL")
        ->required();
    command
        .add_option("--cluster",
                    options->cluster,
                    "Make the tables on all servers of this cluster: replicated on each shard")
        ->type_name("NAME")
        ->check([](const std::string& name) {
            return name.empty() || name.find_first_not_of(
                                       "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMN"
                                       "OPQRSTUVWXYZ0123456789_") != std::string::npos
                       ? "a name has letters, digits and '_'"
                       : "";
        });
    command
        .add_option("--checkpoint",
                    options->checkpoint,
                    "A file that says how far the logs are loaded; for one database and one set of "
                    "logs")
        ->type_name("FILE");
    command
        .add_option(
            "--block-lines", options->blockLines, "Send as many lines together at most (200000)")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000).description(""));
    command
        .add_option_function<double>(
            "--timeout",
            [options](double seconds) {
                options->timeout =
                    std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1e3));
            },
            "End when the engine takes nothing for so long (600; with --follow, and with 0, never)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e6).description(""));
    AddFollowOptions(command, options->follow);
    AddCommonOptions(command, common);
    command.footer(examples);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunLoad(*options, context); };
    });
}

}  // namespace tarnview
