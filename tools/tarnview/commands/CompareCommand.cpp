#include "commands/CompareCommand.h"

#include "commands/LoadTrees.h"
#include "model/Comparison.h"
#include "output/Units.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

namespace tarnview {

namespace {

using Getter = std::optional<double> (*)(const ComparedFigures&);

std::string Signed(const char* format, double number) {
    char text[48];
    std::snprintf(text, sizeof(text), format, number);
    return text;
}

Cell ChangeCell(const ComparedRow& row) {
    if (row.IsNew() || row.IsGone()) {
        Cell cell;
        cell.text = row.IsNew() ? "new" : "gone";
        return cell;
    }
    const auto change = row.Change();
    return change ? Cell::Number(Signed("%+.0f %%", *change * 100), Signed("%.6f", *change))
                  : Cell::Missing();
}

Cell CostCell(const ComparedRow& row) {
    const double cost = row.Cost();
    Cell cell = Cell::Duration(cost);
    cell.text = (cost > 0 ? "+" : "") + cell.text;
    return cell;
}

Cell ChanceCell(const ComparedRow& row) {
    if (row.IsNew() || row.IsGone()) {
        return Cell::Missing();
    }
    return Cell::Number(Signed("%.3f", row.chance) + (row.isSignificant ? " *" : "  "),
                        Signed("%.6f", row.chance));
}

// "old > new" for people, and a cell of each for programs.
void AddPair(std::vector<Cell>& cells, const Cell& before, const Cell& after, bool isBad) {
    Cell both;
    const auto text = [](const Cell& cell) { return cell.text.empty() ? "-" : cell.text; };
    both.text = before.text.empty() && after.text.empty() ? ""
                : before.text == after.text               ? before.text
                                                          : text(before) + " > " + text(after);
    both.isBad = isBad;
    cells.push_back(both);
    cells.push_back(before);
    cells.push_back(after);
}

void AddPairOf(std::vector<Cell>& cells,
               const ComparedRow& row,
               Getter get,
               Cell (*format)(double)) {
    const auto cell = [&](Side side) {
        const auto value = get(row.Of(side));
        return value ? format(*value) : Cell::Missing();
    };
    AddPair(cells, cell(Side::Old), cell(Side::New), false);
}

void AddColumns(std::vector<TableColumn>& columns,
                const std::string& heading,
                const std::string& field,
                int rank) {
    columns.push_back({heading, "", false, rank});
    columns.push_back({"", field + "_old"});
    columns.push_back({"", field + "_new"});
}

Table TableOf(const std::vector<ComparedRow>& rows, const std::vector<std::string>& groups) {
    std::vector<TableColumn> columns;
    for (const std::string& group : groups) {
        columns.push_back({group, group, true});
    }
    AddColumns(columns, "count", "count", 3);
    AddColumns(columns, "failed", "failed", 1);
    AddColumns(columns, "p50", "p50_seconds", 2);
    AddColumns(columns, "p99", "p99_seconds", 4);
    columns.push_back({"change", "change"});
    columns.push_back({"cost", "cost_seconds", false, 5});
    AddColumns(columns, "cpu of one", "cpu_exclusive_seconds", 6);
    AddColumns(columns, "memory of one", "memory_exclusive_bytes", 7);
    columns.push_back({"chance", "chance"});
    columns.push_back({"", "significant"});
    Table table(std::move(columns));
    for (const ComparedRow& row : rows) {
        const ComparedFigures& before = row.Of(Side::Old);
        const ComparedFigures& after = row.Of(Side::New);
        std::vector<Cell> cells;
        for (const std::string& key : row.key) {
            cells.push_back(Cell::Text(key));
        }
        AddPair(cells, Cell::Count(before.count), Cell::Count(after.count), false);
        AddPair(cells,
                Cell::Count(before.failed),
                Cell::Count(after.failed),
                after.failed > before.failed);
        AddPairOf(
            cells, row, [](const auto& it) { return it.Quantile(0.5); }, Cell::Duration);
        AddPairOf(
            cells, row, [](const auto& it) { return it.Quantile(0.99); }, Cell::Duration);
        cells.push_back(ChangeCell(row).Bad(row.isSignificant && row.Cost() > 0));
        cells.push_back(CostCell(row));
        AddPairOf(
            cells, row, [](const auto& it) { return it.Cpu(); }, Cell::Duration);
        AddPairOf(
            cells, row, [](const auto& it) { return it.Memory(); }, Cell::Bytes);
        cells.push_back(ChanceCell(row));
        cells.push_back(Cell::Boolean(row.isSignificant));
        table.Add(std::move(cells));
    }
    return table;
}

double SizeFor(const ComparedRow& row, CompareOrder order) {
    switch (order) {
        case CompareOrder::Cost:
            return std::fabs(row.Cost());
        case CompareOrder::Failed:
            return std::fabs(static_cast<double>(row.Of(Side::New).failed) -
                             static_cast<double>(row.Of(Side::Old).failed));
        case CompareOrder::Change:
            return row.IsNew() || row.IsGone() ? HUGE_VAL : std::fabs(row.Change().value_or(0));
        case CompareOrder::Name:
            break;
    }
    return 0;
}

int ReadSide(const CompareOptions& options,
             const InputOptions& files,
             std::optional<Side> side,
             Comparison& comparison,
             Context& context) {
    const Filter& filter = options.question.filter;
    ParserOptions parsing = ParsingFor(filter);
    parsing.wantsTables =
        parsing.wantsTables || Grouping::FromNames(options.groupBy)->NeedsTables();
    Input input(files, context);
    ReadActivities(
        input,
        parsing,
        [&](Activity&& activity) {
            if (filter.Passes(activity)) {
                const bool isOld = side ? *side == Side::Old : activity.begin < *options.at;
                comparison.Take(activity, isOld ? Side::Old : Side::New);
            }
        },
        &filter);
    return input.Finish();
}

}  // namespace

int RunCompare(const CompareOptions& options, Context& context) {
    Comparison comparison(*Grouping::FromNames(options.groupBy));
    const InputOptions& input = options.question.input;
    int status = exitSuccess;
    if (options.at) {
        status = ReadSide(options, input, std::nullopt, comparison, context);
    } else {
        InputOptions before = input;
        InputOptions after = input;
        before.files = options.old;
        std::erase_if(after.files, [&](const std::string& file) {
            return std::find(options.old.begin(), options.old.end(), file) != options.old.end();
        });
        if (before.files.empty()) {
            before.files = {after.files.front()};
            after.files.erase(after.files.begin());
        }
        status = std::max(ReadSide(options, before, Side::Old, comparison, context),
                          ReadSide(options, after, Side::New, comparison, context));
    }
    for (const Side side : {Side::Old, Side::New}) {
        if (comparison.IsEmpty(side)) {
            context.err << "tarnview: nothing on the " << (side == Side::Old ? "old" : "new")
                        << " side, no activity fits\n";
        }
    }
    std::vector<ComparedRow> rows = comparison.TakeRows();
    if (options.isSignificantOnly) {
        std::erase_if(rows, [](const ComparedRow& row) { return !row.isSignificant; });
    }
    std::stable_sort(rows.begin(), rows.end(), [&](const auto& a, const auto& b) {
        return SizeFor(a, options.order) > SizeFor(b, options.order);
    });
    if (options.limit != 0 && rows.size() > options.limit) {
        rows.resize(options.limit);
    }
    TableOf(rows, options.groupBy).Print(context.out, context.terminal, options.question.format);
    return status;
}

}  // namespace tarnview
