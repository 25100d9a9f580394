#include "commands/CommonOptions.h"
#include "commands/OpenCommand.h"
#include "read/InputFiles.h"

#include <algorithm>
#include <memory>

namespace tarnview {

namespace {

constexpr const char* examples = R"(Examples:
  tarnview open server.log
  tarnview open --user ada --pid 4711 server.log
  tarnview open --stuck 30 --now server.log
  tarnview open --follow server.log)";

}  // namespace

void AddOpen(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<OpenOptions>();
    CLI::App& command = *program.add_subcommand(
        "open", "What is running, or was when the log ended, longest first");
    AddInputOptions(command, options->input);
    command.add_option("--stuck", options->stuck, "Only what has been running as long as this")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber);
    command.add_flag("--now", options->isNow, "Measure up to now, not up to the log's last line");
    auto* const follow = command.add_flag(
        "-f,--follow", options->isFollowing, "Go on while the log grows, also when it is rotated");
    command
        .add_option_function<double>(
            "--interval",
            [options](double seconds) {
                options->interval = std::chrono::milliseconds(static_cast<int>(seconds * 1e3));
            },
            "Time between two tables, with --follow (1)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 3600.0).description(""))
        ->needs(follow);
    command.add_option("--updates", options->updates, "End after as many tables, with --follow")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000'000).description(""))
        ->needs(follow);
    command
        .add_option("--silent-after",
                    options->silentAfter,
                    "Seconds after which a process that writes nothing is not called running (60)")
        ->type_name("SECONDS")
        ->check(CLI::NonNegativeNumber);
    AddOpenFilterOptions(command, options->filter);
    AddCommonOptions(command, common);
    command.footer(examples);
    command.callback([options, &chosen] {
        const auto& files = options->input.files;
        if (options->isFollowing &&
            std::find(files.begin(), files.end(), standardInput) != files.end()) {
            throw CLI::ValidationError("--follow", "needs log files");
        }
        chosen = [options](Context& context) { return RunOpen(*options, context); };
    });
}

}  // namespace tarnview
