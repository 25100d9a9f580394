#include "commands/TopOverTime.h"

#include "commands/LoadTrees.h"
#include "model/OverTime.h"
#include "output/Table.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace tarnview {

namespace {

TableFormat FormatOf(TopFormat format) {
    switch (format) {
        case TopFormat::Csv:
            return TableFormat::Csv;
        case TopFormat::Json:
            return TableFormat::Json;
        case TopFormat::Table:
            break;
    }
    return TableFormat::Text;
}

std::string Rate(const char* format, std::uint64_t count, Microseconds length) {
    char text[48];
    std::snprintf(text,
                  sizeof(text),
                  format,
                  static_cast<double>(count) / (static_cast<double>(length) / 1e6));
    return text;
}

void AddInterval(Table& table,
                 Microseconds begin,
                 Microseconds length,
                 const std::vector<std::string>& groups,
                 const Interval& interval,
                 const TimeStyle& times) {
    std::vector<Cell> row{Cell::Time(begin, times)};
    for (const std::string& group : groups) {
        row.push_back(Cell::Text(group));
    }
    row.push_back(Cell::Count(interval.count));
    row.push_back(
        Cell::Number(Rate("%.3g", interval.count, length), Rate("%.6f", interval.count, length)));
    row.push_back(Cell::Count(interval.failed).Bad(interval.failed != 0));
    row.push_back(Cell::Count(interval.terminated).Bad(interval.terminated != 0));
    const auto duration = [&](double microseconds) {
        return interval.count == 0 ? Cell::Missing() : Cell::Duration(microseconds);
    };
    for (const double share : {0.5, 0.9, 0.99}) {
        row.push_back(duration(static_cast<double>(interval.durations.Quantile(share))));
    }
    row.push_back(duration(static_cast<double>(interval.maximum)));
    table.Add(std::move(row));
}

}  // namespace

int RunTopOverTime(const TopOptions& options, Context& context) {
    const std::vector<std::string> groups =
        options.isGroupedOverTime ? options.groupBy : std::vector<std::string>();
    Grouping grouping = Grouping::FromNames(groups).value();
    Input input(options.input, context);
    ParserOptions parsing = ParsingFor(options.filter);
    parsing.wantsTables = parsing.wantsTables || grouping.NeedsTables();
    OverTime times(*options.over);
    ReadActivities(input, parsing, [&](Activity&& activity) {
        if (options.filter.Passes(activity)) {
            times.Take(activity, std::string(grouping.KeyOf(activity)));
        }
    });
    std::vector<TableColumn> columns{{"time", "time", true}};
    for (const std::string& group : groups) {
        columns.push_back({group, group, true});
    }
    const std::vector<TableColumn> figures{{"count", "count"},
                                           {"per second", "per_second", false, 1},
                                           {"failed", "failed", false, 2},
                                           {"early", "early_terminations", false, 5},
                                           {"p50", "p50_seconds"},
                                           {"p90", "p90_seconds", false, 4},
                                           {"p99", "p99_seconds", false, 3},
                                           {"max", "max_seconds", false, 6}};
    columns.insert(columns.end(), figures.begin(), figures.end());
    Table table(std::move(columns));
    const auto isFull = [&] { return options.limit != 0 && table.Rows() >= options.limit; };
    // Intervals in which nothing ended say something, too; but not millions of them.
    constexpr Microseconds mostEmpty = 10'000;
    const auto& intervals = times.Intervals();
    for (auto interval = intervals.begin(); interval != intervals.end(); ++interval) {
        if (groups.empty() && interval != intervals.begin()) {
            const Microseconds last = std::prev(interval)->first;
            const Microseconds missing = (interval->first - last) / times.Length() - 1;
            for (Microseconds number = 1; number <= missing && missing <= mostEmpty && !isFull();
                 ++number) {
                AddInterval(
                    table, last + number * times.Length(), times.Length(), {}, {}, context.times);
            }
        }
        for (const auto& [key, figuresOfKey] : interval->second) {
            if (!isFull()) {
                AddInterval(table,
                            interval->first,
                            times.Length(),
                            grouping.ValuesOf(key),
                            figuresOfKey,
                            context.times);
            }
        }
    }
    table.Print(context.out, context.terminal, FormatOf(options.format));
    return input.Finish();
}

}  // namespace tarnview
