#include "commands/HeatCommand.h"

#include "commands/LoadTrees.h"
#include "commands/QuestionOptions.h"
#include "model/DurationClasses.h"
#include "model/HeatMap.h"
#include "model/OverTime.h"
#include "output/Units.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <ostream>

namespace tarnview {

namespace {

constexpr std::size_t labelWidth = 9;
constexpr std::size_t mostColumns = 1'000;
constexpr std::string_view shades = ".:-=+*#%@";

constexpr const char* heatFooter =
    R"(A column is an interval of time, a row a class of durations, from the one that its label names up to
the next one; an activity counts where it ended. The darker a sign, the more there were; each sign
stands for about as many times more than the one before it.

Examples:
  tarnview heat --name query server.log
  tarnview heat --interval 1m --where 'user == "ada"' server.log
  tarnview heat --json server.log)";

std::string LabelOf(std::size_t classNumber) {
    const auto begin = static_cast<double>(BeginOfDurationClass(classNumber));
    return FitRight(FormatDuration(begin / 1e6), labelWidth);
}

char ShadeOf(std::uint64_t count, std::uint64_t most) {
    if (count == 0) {
        return ' ';
    }
    const double share =
        most == 1 ? 1 : std::log(static_cast<double>(count)) / std::log(static_cast<double>(most));
    const auto last = static_cast<double>(shades.size() - 1);
    return shades[static_cast<std::size_t>(std::lround(share * last))];
}

struct Extent {
    std::size_t lowest = 0;
    std::size_t highest = 0;
    std::uint64_t most = 0;
};

Extent ExtentOf(const HeatMap::Columns& columns) {
    Extent extent{columns.begin()->second.begin()->first, 0, 0};
    for (const auto& [time, classes] : columns) {
        extent.lowest = std::min(extent.lowest, classes.begin()->first);
        extent.highest = std::max(extent.highest, classes.rbegin()->first);
        for (const auto& [number, count] : classes) {
            extent.most = std::max(extent.most, count);
        }
    }
    return extent;
}

void PrintMap(const HeatMap::Columns& columns, Microseconds length, Context& context) {
    const Extent extent = ExtentOf(columns);
    const Microseconds first = columns.begin()->first;
    const Microseconds last = columns.rbegin()->first;
    for (std::size_t number = extent.highest + 1; number-- > extent.lowest;) {
        std::string row = LabelOf(number) + " |";
        for (Microseconds time = first; time <= last; time += length) {
            const auto column = columns.find(time);
            const auto found = column == columns.end() ? HeatMap::Classes::const_iterator()
                                                       : column->second.find(number);
            const bool isThere = column != columns.end() && found != column->second.end();
            row += ShadeOf(isThere ? found->second : 0, extent.most);
        }
        row.erase(row.find_last_not_of(' ') + 1);
        context.out << row << '\n';
    }
    context.out << std::string(labelWidth + 1, ' ') << '+'
                << std::string(static_cast<std::size_t>((last - first) / length + 1), '-') << '\n'
                << "from " << context.times.Text(first) << " to "
                << context.times.Text(last + length) << ", each column "
                << FormatDuration(static_cast<double>(length) / 1e6) << ", at most " << extent.most
                << " in one place\n";
}

Table TableOf(const HeatMap::Columns& columns, Microseconds length) {
    Table table({{"", "time"},
                 {"", "interval_seconds"},
                 {"", "from_seconds"},
                 {"", "to_seconds"},
                 {"", "count"}});
    for (const auto& [time, classes] : columns) {
        for (const auto& [number, count] : classes) {
            table.Add({Cell::Text(FormatTimestamp(time)),
                       Cell::Duration(static_cast<double>(length)),
                       Cell::Duration(static_cast<double>(BeginOfDurationClass(number))),
                       Cell::Duration(static_cast<double>(BeginOfDurationClass(number + 1))),
                       Cell::Count(count)});
        }
    }
    return table;
}

}  // namespace

int RunHeat(const HeatOptions& options, Context& context) {
    constexpr std::size_t widthOfFiles = 100;
    Input input(options.question.input, context);
    const Filter& filter = options.question.filter;
    HeatMap map;
    ReadActivities(input, ParsingFor(filter), [&](Activity&& activity) {
        if (activity.hasEnd && filter.Passes(activity)) {
            map.Add(activity.end, DurationClassOf(activity.Duration()));
        }
    });
    if (map.IsEmpty()) {
        context.err << "tarnview: nothing to show, no activity fits\n";
        return input.Finish();
    }
    const std::size_t width = context.terminal.width == 0 ? widthOfFiles : context.terminal.width;
    const std::size_t room = std::clamp(width, labelWidth + 12, mostColumns) - labelWidth - 2;
    const Microseconds span = map.Last() - map.First();
    // One that is too short for the log would take all memory.
    const Microseconds length = std::max(options.interval.value_or(IntervalFor(span, room)),
                                         IntervalFor(span, mostColumns));
    const HeatMap::Columns columns = map.In(length);
    if (options.question.format == TableFormat::Text) {
        PrintMap(columns, length, context);
    } else {
        TableOf(columns, length).Print(context.out, context.terminal, options.question.format);
    }
    return input.Finish();
}

void AddHeat(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<HeatOptions>();
    CLI::App& command =
        *program.add_subcommand("heat", "How long activities took over time, as a map");
    AddParsed(command,
              "--interval",
              options->interval,
              ParseInterval,
              "DURATION",
              "The time that a column covers, as '10s' or '1m'; otherwise as the width allows");
    AddQuestionOptions(command, options->question, common);
    command.footer(heatFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunHeat(*options, context); };
    });
}

}  // namespace tarnview
