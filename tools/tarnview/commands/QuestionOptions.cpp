#include "commands/QuestionOptions.h"

namespace tarnview {

std::optional<Microseconds> ParseInterval(const std::string& text) {
    const auto length = ParseDuration(text);
    return length && *length > 0 ? length : std::nullopt;
}

void AddTableOptions(CLI::App& command, TableFormat& format) {
    auto* const csv = command.add_flag_callback(
        "--csv",
        [&format] { format = TableFormat::Csv; },
        "As CSV: seconds and bytes as plain numbers");
    command
        .add_flag_callback(
            "--json", [&format] { format = TableFormat::Json; }, "A JSON object for each row")
        ->excludes(csv);
}

void AddQuestionOptions(CLI::App& command, Question& question, CommonOptions& common) {
    AddSourceOptions(command, question.input);
    AddTableOptions(command, question.format);
    AddFilterOptions(command, question.filter);
    AddTimeOptions(command, common);
    AddCommonOptions(command, common);
}

}  // namespace tarnview
