#include "commands/CommonOptions.h"

#include "commands/HumanTime.h"
#ifdef TARNVIEW_HAS_NETWORK
#include "engine/EngineAddress.h"
#endif
#include "output/ExpressionText.h"
#include "read/InputFiles.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <stdexcept>
#include <unistd.h>

namespace tarnview {

namespace {

void AddPatterns(CLI::App& command,
                 const char* name,
                 std::vector<std::string>& patterns,
                 const char* type,
                 const char* help) {
    command.add_option(name, patterns, help)
        ->type_name(type)
        ->delimiter(',')
        ->group("Filters")
        ->allow_extra_args(false);
}

}  // namespace

std::optional<Microseconds> ParseTime(const CLI::App& command, const std::string& text) {
    // Options are counted before any of them is read, in whatever order they were given.
    const bool isLocal = command.count("--local") != 0;
    return ParseHumanTime(text, CurrentTime(), isLocal ? Zone::Local : Zone::Utc);
}

void AddCommonOptions(CLI::App& command, CommonOptions& options) {
    static const std::map<std::string, ColourChoice> choices{{"auto", ColourChoice::Automatic},
                                                             {"always", ColourChoice::Always},
                                                             {"never", ColourChoice::Never}};
    command
        .add_option_function<std::string>(
            "--color",
            [&options](const std::string& choice) { options.colour = choices.at(choice); },
            "Colours: auto (on a terminal, unless NO_COLOR is set), always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    command.add_flag_callback(
        "--no-progress",
        [&options] { options.hasProgress = false; },
        "No progress bar, not even on a terminal");
    command
        .add_option("-o,--output",
                    options.output,
                    "Write to this file instead of standard output; it is replaced only when all "
                    "has been written")
        ->type_name("FILE");
}

void AddTimeOptions(CLI::App& command, CommonOptions& options) {
    const auto add = [&](const char* name, TimeStyle::Kind kind, const char* help) {
        return command.add_flag_callback(
            name, [&options, kind] { options.times = kind; }, help);
    };
    CLI::Option* const utc =
        add("--utc", TimeStyle::Kind::Utc, "Times are UTC, which is the default");
    // ParseTime() looks whether it is there.
    CLI::Option* const local =
        add("--local", TimeStyle::Kind::Local, "Times are local times, those of options, too");
    add("--relative", TimeStyle::Kind::Relative, "Times are shown as seconds since the log began")
        ->excludes(utc)
        ->excludes(local);
    local->excludes(utc);
}

void AddSourceOptions(CLI::App& command, InputOptions& options) {
#ifdef TARNVIEW_HAS_NETWORK
    command
        .add_option_function<std::string>(
            "--from",
            [&options](const std::string& url) {
                try {
                    EngineAddress::Parse(url);
                } catch (const std::invalid_argument& error) {
                    throw CLI::ValidationError("--from", error.what());
                }
                options.from = url;
            },
            "Ask a ClickHouse server that has the logs, http://HOST:8123/DATABASE; see 'load'")
        ->type_name("URL");
#endif
    AddInputOptions(command, options);
    AddHostOption(command, options);
}

void AddInputOptions(CLI::App& command, InputOptions& options) {
    options.files.clear();
    command
        .add_option("log",
                    options.files,
                    "Log files; '-' is standard input, which is the default "
                    "if it is no terminal")
        ->type_name("LOG");
    command.add_flag_callback(
        "--no-rotated",
        [&options] { options.addsRotated = false; },
        "Read the named files only, not the full ones beside them (a.1.log, a.2.log ... of a.log)");
    command.parse_complete_callback([&options] {
        if (!options.from.empty() && !(options.files.empty() && options.hosts.empty())) {
            throw CLI::ValidationError("--from", "log files cannot be read as well");
        }
        if (!options.from.empty()) {
            return;
        }
        for (const HostedLog& log : options.hosts) {
            if (std::find(options.files.begin(), options.files.end(), log.path) ==
                options.files.end()) {
                options.files.push_back(log.path);
            }
        }
        if (options.files.empty() && isatty(STDIN_FILENO) != 0) {
            throw CLI::RequiredError("LOG");
        }
        if (options.files.empty()) {
            options.files.emplace_back(standardInput);
        }
    });
}

void AddHostOption(CLI::App& command, InputOptions& options) {
    command
        .add_option_function<std::vector<std::string>>(
            "--host",
            [&options](const std::vector<std::string>& texts) {
                for (const std::string& text : texts) {
                    const std::size_t equal = text.find('=');
                    if (equal == std::string::npos || equal == 0 || equal + 1 == text.size()) {
                        throw CLI::ValidationError("--host", "'" + text + "' is no NAME=LOG");
                    }
                    options.hosts.push_back({text.substr(0, equal), text.substr(equal + 1)});
                }
            },
            "The host that a log is of, which is read as well; else the log says it itself")
        ->type_name("NAME=LOG")
        ->allow_extra_args(false);
}

void AddFollowOptions(CLI::App& command, FollowOptions& options) {
    auto* const follow = command.add_flag(
        "-f,--follow", options.isFollowing, "Go on while the log grows, also when it is rotated");
    command
        .add_option_function<double>(
            "--interval",
            [&options](double seconds) {
                options.interval = std::chrono::milliseconds(static_cast<int>(seconds * 1e3));
            },
            "Seconds between two reads of the log, with --follow (1)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 3600.0).description(""))
        ->needs(follow);
    command.add_option("--updates", options.updates, "End after so many reads, with --follow")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000'000).description(""))
        ->needs(follow);
}

void AddWhereOption(CLI::App& command, Filter& filter) {
    command
        .add_option_function<std::string>(
            "--where",
            [&filter](const std::string& text) {
                try {
                    filter.where = Expression(text);
                } catch (const ExpressionError& error) {
                    throw CLI::ValidationError("--where", Describe(error, text));
                }
            },
            "A condition, as 'user == \"ada\" and elapsed > 5ms and body.shard in (3, 4)'")
        ->type_name("CONDITION")
        ->group("Filters");
}

void AddOpenFilterOptions(CLI::App& command, Filter& filter) {
    AddPatterns(command, "--name", filter.names, "PATTERN", "Name, as 'load' or 'load*'");
    AddPatterns(command, "--user", filter.users, "PATTERN", "User");
    command.add_option("--pid", filter.processes, "Process")
        ->type_name("ID")
        ->delimiter(',')
        ->group("Filters")
        ->allow_extra_args(false);
}

void AddFilterOptions(CLI::App& command, Filter& filter) {
    AddPatterns(command, "--root", filter.roots, "ID", "Root activity, or the beginning of its id");
    AddOpenFilterOptions(command, filter);
    AddPatterns(command, "--site", filter.sites, "PATTERN", "Site");
    AddPatterns(command, "--result", filter.results, "PATTERN", "Result, as 'exception'");
    command
        .add_flag("--failed",
                  filter.isFailed,
                  "Any result but 'ok' and 'early-termination', as top counts failures")
        ->group("Filters");
    command.add_flag("--not-ok", filter.isNotOk, "Any result but 'ok'")->group("Filters");
    AddParsed(command,
              "--slower-than",
              filter.slowerThan,
              ParseDuration,
              "DURATION",
              "Longer than this, as '250ms' or '1.5s'");
    command.get_option("--slower-than")->group("Filters");
    const auto parse = [&command](const std::string& text) { return ParseTime(command, text); };
    AddParsed(command,
              "--since",
              filter.since,
              parse,
              "TIME",
              "Still running at this time or later, as 2026-11-21T06:02:25, 13:00, yesterday, -10m "
              "(ten minutes ago); in UTC");
    command.get_option("--since")->group("Filters");
    AddParsed(command, "--before", filter.before, parse, "TIME", "Begun before this time");
    command.get_option("--before")->group("Filters");
    AddWhereOption(command, filter);
}

}  // namespace tarnview
