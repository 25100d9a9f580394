#pragma once

#include "commands/CommonOptions.h"
#include "commands/Question.h"

#include <optional>
#include <string>

namespace tarnview {

/// A duration that is not 0.
std::optional<Microseconds> ParseInterval(const std::string& text);

/// --csv and --json.
void AddTableOptions(CLI::App& command, TableFormat& format);

/// Files, filters, --csv and --json, and what all commands have.
void AddQuestionOptions(CLI::App& command, Question& question, CommonOptions& common);

// Each adds one command to the program.
void AddCallers(CLI::App& program, CommonOptions& common, Command& chosen);
void AddCompare(CLI::App& program, CommonOptions& common, Command& chosen);
void AddFailures(CLI::App& program, CommonOptions& common, Command& chosen);
void AddHeat(CLI::App& program, CommonOptions& common, Command& chosen);
void AddHistogram(CLI::App& program, CommonOptions& common, Command& chosen);
void AddPath(CLI::App& program, CommonOptions& common, Command& chosen);

}  // namespace tarnview
