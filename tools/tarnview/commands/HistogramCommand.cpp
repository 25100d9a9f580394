#include "commands/HistogramCommand.h"

#include "commands/LoadTrees.h"
#include "commands/QuestionOptions.h"
#include "model/DurationClasses.h"
#include "output/Units.h"
#include "read/Rounding.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <ostream>

namespace tarnview {

namespace {

constexpr const char* histogramFooter =
    R"(Classes begin at 1, 2 and 5 of each power of ten. What never ended, or has no such figure in the log,
is not counted.

Examples:
  tarnview histogram --name query server.log
  tarnview histogram --of memory --where 'body.shard == 3' server.log)";

std::optional<Microseconds> FigureOf(const Activity& activity, HistogramFigure figure) {
    if (!activity.hasEnd) {
        return std::nullopt;
    }
    switch (figure) {
        case HistogramFigure::Elapsed:
            return activity.Duration();
        case HistogramFigure::Exclusive:
            return activity.ExclusiveTime();
        case HistogramFigure::Cpu:
            return activity.figures.hasCpu
                       ? std::optional<Microseconds>(Rounded(activity.figures.CpuExclusive()))
                       : std::nullopt;
        case HistogramFigure::Memory:
            return activity.figures.hasAllocated
                       ? std::optional<Microseconds>(Rounded(activity.figures.ae))
                       : std::nullopt;
    }
    return std::nullopt;
}

std::string Bar(std::uint64_t count, std::uint64_t most) {
    constexpr std::uint64_t width = 40;
    // One is not nothing.
    const std::uint64_t length = count == 0 ? 0 : std::max<std::uint64_t>(1, count * width / most);
    return std::string(length, '#');
}

}  // namespace

int RunHistogram(const HistogramOptions& options, Context& context) {
    Input input(options.question.input, context);
    const Filter& filter = options.question.filter;
    std::map<std::size_t, std::uint64_t> counts;
    std::uint64_t total = 0;
    ReadActivities(
        input,
        ParsingFor(filter),
        [&](Activity&& activity) {
            const auto figure = FigureOf(activity, options.figure);
            if (figure && filter.Passes(activity)) {
                ++counts[DurationClassOf(*figure)];
                ++total;
            }
        },
        &filter);
    const bool isMemory = options.figure == HistogramFigure::Memory;
    const auto cell = [&](std::size_t number) {
        const auto edge = static_cast<double>(BeginOfDurationClass(number));
        return isMemory ? Cell::Bytes(edge) : Cell::Duration(edge);
    };
    const std::string unit = isMemory ? "bytes" : "seconds";
    Table table({{"from", "from_" + unit},
                 {"to", "to_" + unit},
                 {"count", "count"},
                 {"share", "share", false, 2},
                 {"up to here", "share_up_to_here", false, 1},
                 {"bar", "", true}});
    std::uint64_t most = 0;
    for (const auto& [number, count] : counts) {
        most = std::max(most, count);
    }
    std::uint64_t seen = 0;
    if (!counts.empty()) {
        for (std::size_t number = counts.begin()->first; number <= counts.rbegin()->first;
             ++number) {
            const auto found = counts.find(number);
            const std::uint64_t count = found == counts.end() ? 0 : found->second;
            seen += count;
            const auto all = static_cast<double>(total);
            table.Add({cell(number),
                       cell(number + 1),
                       Cell::Count(count),
                       Cell::Share(static_cast<double>(count) / all),
                       Cell::Share(static_cast<double>(seen) / all),
                       Cell::Text(Bar(count, most))});
        }
    }
    if (total != 0 || options.question.format != TableFormat::Text) {
        table.Print(context.out, context.terminal, options.question.format);
    }
    if (total == 0) {
        context.err << "tarnview: nothing to show, no activity fits\n";
    }
    return input.Finish();
}

void AddHistogram(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<HistogramOptions>();
    CLI::App& command =
        *program.add_subcommand("histogram", "How many activities took how long, as bars");
    static const std::map<std::string, HistogramFigure> figures{
        {"elapsed", HistogramFigure::Elapsed},
        {"exclusive", HistogramFigure::Exclusive},
        {"cpu", HistogramFigure::Cpu},
        {"memory", HistogramFigure::Memory}};
    command
        .add_option_function<std::string>(
            "--of",
            [options](const std::string& figure) { options->figure = figures.at(figure); },
            "elapsed, exclusive, cpu (exclusive) or memory (exclusive)")
        ->type_name("FIGURE")
        ->check(CLI::IsMember({"elapsed", "exclusive", "cpu", "memory"}));
    AddQuestionOptions(command, options->question, common);
    command.footer(histogramFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunHistogram(*options, context); };
    });
}

}  // namespace tarnview
