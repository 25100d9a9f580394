#pragma once

#include "commands/Context.h"
#include "commands/Following.h"
#include "model/Filter.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

/// Options that all commands have.
struct CommonOptions {
    ColourChoice colour = ColourChoice::Automatic;
    bool hasProgress = true;
    TimeStyle::Kind times = TimeStyle::Kind::Utc;
    std::string output;  ///< a file; empty: the standard output stream
};

/// Runs the command that was chosen; set when the command line has been read.
using Command = std::function<int(Context&)>;

/// How many trees a command may be asked for.
inline constexpr int mostTrees = 1'000'000;

/// Adds an option whose text `parse` turns into a value, or into nothing if it is no `type`.
template <class Value, class Parse>
void AddParsed(CLI::App& command,
               const std::string& name,
               std::optional<Value>& value,
               const Parse& parse,
               const std::string& type,
               const std::string& help) {
    command
        .add_option_function<std::string>(
            name,
            [&value, parse, name, type](const std::string& text) {
                value = parse(text);
                if (!value) {
                    throw CLI::ValidationError(name, "'" + text + "' is no " + type);
                }
            },
            help)
        ->type_name(type);
}

void AddCommonOptions(CLI::App& command, CommonOptions& options);
/// --utc, --local and --relative, for commands that print times or take them; the last one given
/// counts.
void AddTimeOptions(CLI::App& command, CommonOptions& options);
/// Log files, or an engine that has the logs.
void AddSourceOptions(CLI::App& command, InputOptions& options);
void AddInputOptions(CLI::App& command, InputOptions& options);
/// --host, for commands that tell processes of several hosts apart.
void AddHostOption(CLI::App& command, InputOptions& options);
/// Reads a time as people write it, in the zone that the options of the command ask for. The
/// command must have time options.
std::optional<Microseconds> ParseTime(const CLI::App& command, const std::string& text);

void AddFilterOptions(CLI::App& command, Filter& filter);
/// --follow, --interval and --updates.
void AddFollowOptions(CLI::App& command, FollowOptions& options);
/// --where.
void AddWhereOption(CLI::App& command, Filter& filter);
/// Those that say something about what has not ended, which are among the above.
void AddOpenFilterOptions(CLI::App& command, Filter& filter);

// Each adds one command to the program.
void AddTop(CLI::App& program, CommonOptions& common, Command& chosen);
void AddTree(CLI::App& program, CommonOptions& common, Command& chosen);
void AddOpen(CLI::App& program, CommonOptions& common, Command& chosen);
void AddShow(CLI::App& program, CommonOptions& common, Command& chosen);
void AddCheck(CLI::App& program, CommonOptions& common, Command& chosen);
void AddReport(CLI::App& program, CommonOptions& common, Command& chosen);
void AddExport(CLI::App& program, CommonOptions& common, Command& chosen);
/// Only if the program was built with it.
void AddLoad(CLI::App& program, CommonOptions& common, Command& chosen);
void AddPush(CLI::App& program, CommonOptions& common, Command& chosen);

}  // namespace tarnview
