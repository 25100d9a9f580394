#include "commands/TopCommand.h"

#include "commands/LoadTrees.h"
#include "commands/TopColumns.h"
#include "commands/TopOverTime.h"
#include "model/Joiner.h"
#include "model/TopStatistics.h"
#include "output/Table.h"
#include "output/Units.h"
#include "read/HarmlessJson.h"

#include <algorithm>
#include <ostream>
#include <rapidjson/prettywriter.h>

namespace tarnview {

namespace {

using Rows = std::vector<TopRow>;
using Columns = std::vector<TopColumn>;
using Headings = std::vector<std::string>;

// Numbers from the largest down, what was not measured last, keys from A to Z; equal ones by key,
// so that the order is fixed.
void Sort(Rows& rows, const Headings& groups, const TopOptions& options) {
    const auto group = std::find(groups.begin(), groups.end(), options.sortBy);
    const TopColumn* const column = FindTopColumn(options.sortBy);
    const bool isByGroup = column == nullptr;
    const auto key = static_cast<std::size_t>(group - groups.begin());
    const auto isBefore = [&](const TopRow& a, const TopRow& b) {
        if (isByGroup) {
            return a.key[key] != b.key[key] ? a.key[key] < b.key[key] : a.key < b.key;
        }
        const auto first = column->value(a);
        const auto second = column->value(b);
        return first != second ? first > second : a.key < b.key;
    };
    std::sort(rows.begin(), rows.end(), [&](const TopRow& a, const TopRow& b) {
        return options.isReversed ? isBefore(b, a) : isBefore(a, b);
    });
}

// The columns that fit beside keys of these widths; of keys that do not fit the widest is cut.
Columns Fitted(Columns columns, std::vector<std::size_t>& keyWidths, std::size_t width) {
    constexpr std::size_t narrowestKey = 12;
    const auto total = [&] {
        std::size_t sum = 0;
        for (const std::size_t key : keyWidths) {
            sum += key + 1;
        }
        for (const TopColumn& column : columns) {
            sum += column.width + 1;
        }
        return sum - 1;
    };
    while (width != 0 && total() > width) {
        const auto widest = std::max_element(keyWidths.begin(), keyWidths.end());
        const auto least = std::max_element(
            columns.begin(), columns.end(), [](const TopColumn& a, const TopColumn& b) {
                return a.rank < b.rank;
            });
        const std::size_t surplus = total() - width;
        if (*widest > narrowestKey && (least->rank == 0 || *widest >= narrowestKey + surplus)) {
            *widest = std::max(narrowestKey, *widest - std::min(surplus, *widest));
        } else if (least->rank != 0) {
            columns.erase(least);
        } else {
            break;
        }
    }
    return columns;
}

void PrintTable(std::ostream& out,
                const Rows& rows,
                const Headings& groups,
                const Columns& allColumns,
                const Terminal& terminal) {
    constexpr std::size_t widestKey = 48;
    std::vector<std::size_t> keyWidths;
    for (std::size_t index = 0; index < groups.size(); ++index) {
        std::size_t width = TextWidth(groups[index]);
        for (const TopRow& row : rows) {
            width = std::max(width, TextWidth(row.key[index]));
        }
        keyWidths.push_back(std::min(width, widestKey));
    }
    const Columns columns = Fitted(allColumns, keyWidths, terminal.width);
    std::string heading;
    for (std::size_t index = 0; index < groups.size(); ++index) {
        heading += FitLeft(groups[index], keyWidths[index]) + " ";
    }
    for (const TopColumn& column : columns) {
        heading += FitRight(column.name, column.width) + " ";
    }
    heading.pop_back();
    out << terminal.Paint(heading, Colour::Bold) << '\n';
    for (const TopRow& row : rows) {
        std::string line;
        for (std::size_t index = 0; index < groups.size(); ++index) {
            line += FitLeft(OnOneLine(row.key[index]), keyWidths[index]) + " ";
        }
        for (const TopColumn& column : columns) {
            const auto value = column.value(row);
            const std::string text = FitRight(value ? column.format(*value) : "", column.width);
            const bool isBad = column.isBad && value != 0;
            line += (isBad ? terminal.Paint(text, Colour::Red) : text) + " ";
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

void PrintCsv(std::ostream& out,
              const Rows& rows,
              const Headings& groups,
              const Columns& columns,
              const Terminal& terminal) {
    for (const std::string& group : groups) {
        out << CsvField(group, terminal) << ',';
    }
    for (const TopColumn& column : columns) {
        out << column.field << (&column == &columns.back() ? "\n" : ",");
    }
    for (const TopRow& row : rows) {
        for (const std::string& key : row.key) {
            out << CsvField(key, terminal) << ',';
        }
        for (const TopColumn& column : columns) {
            const auto value = column.value(row);
            out << (value ? column.raw(*value) : "") << (&column == &columns.back() ? "\n" : ",");
        }
    }
}

void PrintJson(std::ostream& out,
               const Rows& rows,
               const Headings& groups,
               const Columns& columns) {
    HarmlessJson stream(out);
    rapidjson::PrettyWriter<HarmlessJson> writer(stream);
    writer.SetIndent(' ', 2);
    writer.StartArray();
    for (const TopRow& row : rows) {
        writer.StartObject();
        for (std::size_t index = 0; index < groups.size(); ++index) {
            writer.Key(groups[index]);
            writer.String(row.key[index]);
        }
        for (const TopColumn& column : columns) {
            const auto value = column.value(row);
            const std::string number = value ? column.raw(*value) : "null";
            writer.Key(column.field.data(), static_cast<unsigned>(column.field.size()));
            writer.RawValue(number.data(),
                            number.size(),
                            value ? rapidjson::kNumberType : rapidjson::kNullType);
        }
        writer.EndObject();
    }
    writer.EndArray();
    out << '\n';
}

void Print(Rows rows, const TopOptions& options, Context& context) {
    Sort(rows, options.groupBy, options);
    if (options.limit != 0 && rows.size() > options.limit) {
        rows.resize(options.limit);
    }
    const Columns& columns = TopColumns();
    switch (options.format) {
        case TopFormat::Table:
            PrintTable(context.out, rows, options.groupBy, columns, context.terminal);
            break;
        case TopFormat::Csv:
            PrintCsv(context.out, rows, options.groupBy, columns, context.terminal);
            break;
        case TopFormat::Json:
            PrintJson(context.out, rows, options.groupBy, columns);
            break;
    }
}

// What is open now is counted as such at each update, and ends later all the same.
int FollowTop(TopStatistics& statistics,
              const ParserOptions& parsing,
              const TopOptions& options,
              Context& context) {
    Problems problems(context.err);
    Joiner joiner(problems, [&](Activity&& activity) { statistics.Take(activity); });
    Follow(
        options.input,
        options.follow,
        parsing,
        true,
        problems,
        context,
        [&](const LogLine& line, const Place& place) { joiner.Take(line, place); },
        [&] {
            TopStatistics now = statistics;
            for (const Activity* const activity : joiner.Open()) {
                now.Take(*activity);
            }
            Print(now.TakeRows(), options, context);
        });
    return exitSuccess;
}

}  // namespace

std::vector<std::string> TopColumnNames() {
    std::vector<std::string> names;
    for (const TopColumn& column : TopColumns()) {
        names.emplace_back(column.name);
    }
    return names;
}

int RunTop(const TopOptions& options, Context& context) {
    if (options.over) {
        return RunTopOverTime(options, context);
    }
    TopStatistics statistics(Grouping::FromNames(options.groupBy).value(), options.filter);
    ParserOptions parsing = ParsingFor(options.filter);
    parsing.wantsTables = parsing.wantsTables || statistics.GroupedBy().NeedsTables();
    if (options.follow.isFollowing) {
        return FollowTop(statistics, parsing, options, context);
    }
    Input input(options.input, context);
    if (ActivitySource* const source = input.Source()) {
        if (auto rows = source->Top(options.groupBy, options.filter)) {
            input.EndPass();
            Print(std::move(*rows), options, context);
            return input.Finish();
        }
    }
    ReadActivities(
        input, parsing, [&](Activity&& activity) { statistics.Take(activity); }, &options.filter);
    Print(statistics.TakeRows(), options, context);
    if (input.Scanner().CountLeftOut() != 0) {
        context.err << "tarnview: " << input.Scanner().CountLeftOut()
                    << " lines were left out by keep rules; their activities are not counted "
                       "here\n";
    }
    return input.Finish();
}

}  // namespace tarnview
