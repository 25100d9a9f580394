#include "commands/PathCommand.h"

#include "commands/LoadTrees.h"
#include "commands/QuestionOptions.h"
#include "model/CriticalPath.h"
#include "output/TreePrinter.h"
#include "output/Units.h"

#include <algorithm>
#include <map>
#include <memory>
#include <ostream>

namespace tarnview {

namespace {

constexpr std::size_t deepestIndent = 40;

constexpr const char* pathFooter =
    R"(Of activities that ran at the same time, only the one that was waited for is on the path: going back
from the end, the one that ended last. 'own' is the time in which none of what is below it is on the
path; all own times add up to the time of the request. Equal neighbours are one row, as 'write x 400'.

Examples:
  tarnview path server.log
  tarnview path --root 766D8930 front.log back.log
  tarnview path --slowest 20 --by-name --where 'user == "ada"' server.log)";

// Equal neighbours with nothing below them on the path, added up.
struct Row {
    PathStep step;
    std::size_t count = 1;
};

std::vector<Row> RowsOf(const ActivityForest& forest,
                        const std::vector<PathStep>& steps,
                        bool isFolded) {
    std::vector<Row> rows;
    for (std::size_t next = 0; next < steps.size(); ++next) {
        const PathStep& step = steps[next];
        const auto isLeaf = [&](std::size_t number) {
            return number + 1 == steps.size() || steps[number + 1].level <= steps[number].level;
        };
        const auto isLike = [&](const PathStep& other) {
            return other.level == step.level &&
                   forest[other.index].name == forest[step.index].name &&
                   OutcomeOf(forest[other.index]) == OutcomeOf(forest[step.index]);
        };
        const bool isNeighbour = next != 0 && isLeaf(next - 1) && isLeaf(next);
        if (isFolded && isNeighbour && isLike(rows.back().step)) {
            rows.back().step.own += step.own;
            rows.back().step.end = step.end;
            ++rows.back().count;
        } else {
            rows.push_back({step});
        }
    }
    return rows;
}

Table PathTable() {
    return Table({{"after", "after_seconds", false, 3},
                  {"own", "own_seconds"},
                  {"share", "own_share", false, 1},
                  {"in all", "seconds", false, 2},
                  {"activity", "", true},
                  {"", "root"},
                  {"", "level"},
                  {"", "name"},
                  {"", "id"},
                  {"process:thread", "", true, 4},
                  {"", "host", true, 0, true},
                  {"", "pid"},
                  {"", "tid"},
                  {"result", "", true, 5},
                  {"", "result"},
                  {"", "link"}});
}

// What an early termination says is always the same.
std::string ResultOf(const Activity& activity) {
    return activity.IsEarlyTermination() ? activity.result : OutcomeOf(activity);
}

std::string_view WordFor(LinkKind link) {
    return link == LinkKind::Named ? "named" : TextOf(link);
}

void AddRow(Table& table, const ActivityForest& forest, const Row& row, const PathStep& whole) {
    const PathStep& step = row.step;
    const Activity& activity = forest[step.index];
    const auto length = static_cast<double>(std::max<Microseconds>(1, whole.end - whole.begin));
    const std::string name = std::string(std::min(2 * step.level, deepestIndent), ' ') +
                             activity.name +
                             (row.count == 1 ? "" : " x " + std::to_string(row.count));
    const LinkKind link = forest.LinkOf(step.index);
    const std::string note = link == LinkKind::Named ? "" : " " + LinkNote(link);
    const std::string thread =
        ProcessName(activity.process) + ":" + std::to_string(activity.beginThread);
    table.Add({Cell::Duration(static_cast<double>(step.begin - whole.begin)),
               Cell::Duration(static_cast<double>(step.own)),
               Cell::Share(static_cast<double>(step.own) / length),
               Cell::Duration(static_cast<double>(step.end - step.begin)),
               Cell::Text(step.level == 0 ? name : name + note),
               Cell::Text(activity.root),
               Cell::Count(step.level),
               Cell::Text(activity.name),
               Cell::Text(activity.id),
               Cell::Text(thread),
               Cell::TextIfAny(activity.process.host),
               Cell::Number("", std::to_string(activity.process.number)),
               Cell::Number("", std::to_string(activity.beginThread)),
               Cell::Text(ResultOf(activity)).Bad(activity.IsFailure()),
               activity.hasEnd ? Cell::Text(activity.result) : Cell::Missing(),
               link == LinkKind::None ? Cell::Missing() : Cell::Text(WordFor(link))});
}

void PrintPath(const ActivityForest& forest,
               ActivityForest::Index top,
               const PathOptions& options,
               Context& context) {
    const bool isText = options.question.format == TableFormat::Text;
    const std::vector<PathStep> steps = CriticalPath(forest, top);
    if (isText) {
        const Activity& activity = forest[top];
        std::string title =
            context.times.Text(activity.begin) + "  root " + activity.root + "  " +
            FormatDuration(static_cast<double>(steps[0].end - steps[0].begin) / 1e6);
        context.out << context.terminal.Paint(OnOneLine(title), Colour::Faint) << '\n';
    }
    Table table = PathTable();
    for (const Row& row : RowsOf(forest, steps, isText)) {
        AddRow(table, forest, row, steps.front());
    }
    table.Print(context.out, context.terminal, options.question.format);
}

struct NameSum {
    std::uint64_t count = 0;
    Microseconds own = 0;
};

void PrintByName(const std::vector<PathStep>& steps,
                 const ActivityForest& forest,
                 const PathOptions& options,
                 Context& context) {
    std::map<std::string, NameSum> sums;
    Microseconds all = 0;
    for (const PathStep& step : steps) {
        NameSum& sum = sums[forest[step.index].name];
        ++sum.count;
        sum.own += step.own;
        all += step.own;
    }
    std::vector<std::pair<std::string, NameSum>> rows(sums.begin(), sums.end());
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        return a.second.own > b.second.own;
    });
    Table table({{"own", "own_seconds"},
                 {"share", "own_share"},
                 {"count", "count"},
                 {"name", "name", true}});
    const auto length = static_cast<double>(std::max<Microseconds>(1, all));
    for (const auto& [name, sum] : rows) {
        table.Add({Cell::Duration(static_cast<double>(sum.own)),
                   Cell::Share(static_cast<double>(sum.own) / length),
                   Cell::Count(sum.count),
                   Cell::Text(name)});
    }
    table.Print(context.out, context.terminal, options.question.format);
}

}  // namespace

int RunPath(const PathOptions& options, Context& context) {
    Input input(options.question.input, context);
    std::vector<std::string> roots;
    const ActivityForest forest =
        LoadSelected(input, options.question.filter, TreeOrder::Slowest, options.slowest, roots);
    std::vector<ActivityForest::Index> tops = forest.Tops();
    std::map<std::string_view, std::size_t> places;
    for (const std::string& root : roots) {
        places.emplace(root, places.size());
    }
    std::stable_sort(tops.begin(), tops.end(), [&](auto a, auto b) {
        return places[forest[a].root] < places[forest[b].root];
    });
    std::vector<PathStep> all;
    const char* separator = "";
    for (const ActivityForest::Index top : tops) {
        if (options.isByName) {
            const std::vector<PathStep> steps = CriticalPath(forest, top);
            all.insert(all.end(), steps.begin(), steps.end());
        } else {
            context.out << (options.question.format == TableFormat::Text ? separator : "");
            PrintPath(forest, top, options, context);
            separator = "\n";
        }
    }
    if (options.isByName && !tops.empty()) {
        PrintByName(all, forest, options, context);
    }
    SayWhatIsGuessed(forest, context);
    return input.Finish();
}

void AddPath(CLI::App& program, CommonOptions& common, Command& chosen) {
    const auto options = std::make_shared<PathOptions>();
    CLI::App& command = *program.add_subcommand(
        "path", "The critical path of the slowest requests: what their time was spent on");
    command
        .add_option("--slowest",
                    options->slowest,
                    "The N trees whose roots took longest, of those in which an activity fits all "
                    "filters")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(1, mostTrees).description(""));
    command.add_flag("--by-name", options->isByName, "Add up the own times of each name");
    AddQuestionOptions(command, options->question, common);
    command.footer(pathFooter);
    command.callback([options, &chosen] {
        chosen = [options](Context& context) { return RunPath(*options, context); };
    });
}

}  // namespace tarnview
