#include "commands/LoadTrees.h"

#include "model/Joiner.h"
#include "model/ProcessWatch.h"
#include "output/Units.h"

#include <cmath>
#include <ostream>
#include <utility>

namespace tarnview {

ParserOptions ParsingFor(const Filter& filter) {
    ParserOptions parsing;
    parsing.wantsTables = filter.where && filter.where->NeedsTables();
    return parsing;
}

void ReadActivities(Input& input,
                    const ParserOptions& parsing,
                    const std::function<void(Activity&&)>& onActivity,
                    const Filter* wanted) {
    if (ActivitySource* const source = input.Source()) {
        source->Read({.wantsTables = parsing.wantsTables, .filter = wanted}, onActivity);
        input.EndPass();
        return;
    }
    ProcessWatch processes;
    Joiner joiner(input.FindingsOfThisPass(), [&](Activity&& activity) {
        input.Look(activity);
        onActivity(std::move(activity));
    });
    input.Scanner().Scan(parsing, [&](const LogLine& line, const Place& place) {
        processes.Take(line, place);
        joiner.Take(line, place);
    });
    processes.ReportDead(joiner.Open(), input.FindingsOfThisPass());
    joiner.Finish();
    input.EndPass();
}

ActivityForest LoadAll(Input& input) {
    ActivityForest forest;
    ReadActivities(input, {.wantsTables = true}, [&](Activity&& activity) {
        forest.Add(std::move(activity));
    });
    forest.Link(input.Findings());
    return forest;
}

ActivityForest LoadTrees(Input& input, const std::vector<std::string>& roots) {
    const std::unordered_set<std::string_view> wanted(roots.begin(), roots.end());
    ActivityForest forest;
    if (ActivitySource* const source = input.Source()) {
        if (!roots.empty()) {
            source->Read({.wantsTables = true, .roots = roots},
                         [&](Activity&& activity) { forest.Add(std::move(activity)); });
        }
        input.EndPass();
        forest.Link(input.Findings());
        return forest;
    }
    Joiner joiner(input.FindingsOfThisPass(),
                  [&](Activity&& activity) { forest.Add(std::move(activity)); });
    input.Scanner().Scan({.wantsTables = true}, [&](const LogLine& line, const Place& place) {
        if (line.IsOfActivity() && wanted.count(line.root) != 0) {
            joiner.Take(line, place);
        }
    });
    joiner.Finish();
    input.EndPass();
    forest.Link(input.Findings());
    return forest;
}

Messages LoadMessages(Input& input, const ActivityForest& forest) {
    Messages messages(forest);
    const auto take = [&](const LogLine& line, const Place& place) { messages.Take(line, place); };
    if (ActivitySource* const source = input.Source()) {
        source->ReadMessages(take);
    } else {
        input.Scanner().Scan({}, take);
    }
    input.EndPass();
    return messages;
}

ActivityForest LoadSelected(Input& input,
                            const Filter& filter,
                            TreeOrder order,
                            std::size_t count,
                            std::vector<std::string>& roots) {
    if (filter.IsEmpty() && count == 0 && order != TreeOrder::Slowest) {
        return LoadAll(input);
    }
    TreeSelection selection(filter, order, count);
    const ParserOptions parsing = ParsingFor(filter);
    const auto take = [&](Activity&& activity) { selection.Take(activity); };
    if (ActivitySource* const source = input.Source()) {
        source->Read({.wantsTables = parsing.wantsTables,
                      .filter = filter.IsEmpty() ? nullptr : &filter,
                      .wantsWholeTrees = true},
                     take);
        selection.NoteTime(order == TreeOrder::Slowest ? source->LastTime() : 0);
        input.EndPass();
    } else {
        input.AllowAnotherPass();
        ReadActivities(input, parsing, take);
    }
    roots = selection.Chosen();
    return LoadTrees(input, roots);
}

void SayWhatIsGuessed(const ActivityForest& forest, Context& context) {
    if (forest.Size() == 0) {
        context.err << "tarnview: nothing to show, no activity fits\n";
    }
    std::uint64_t guessed = 0;
    std::uint64_t ambiguous = 0;
    for (ActivityForest::Index index = 0; index < forest.Size(); ++index) {
        guessed += forest.LinkOf(index) == LinkKind::Guessed ? 1U : 0U;
        ambiguous += forest.LinkOf(index) == LinkKind::Ambiguous ? 1U : 0U;
    }
    if (guessed + ambiguous != 0) {
        context.err << "tarnview: callers that the log does not name were guessed: "
                    << guessed + ambiguous;
        if (ambiguous != 0) {
            context.err << ", " << ambiguous << " of them among several";
        }
        context.err << '\n';
    }
    for (const auto& [processes, skew] : forest.ClockSkews()) {
        context.err << "tarnview: by the calls between them, the clock of process "
                    << ProcessName(processes.second) << " is "
                    << FormatDuration(std::fabs(static_cast<double>(skew)) / 1e6)
                    << (skew > 0 ? " ahead of" : " behind") << " that of process "
                    << ProcessName(processes.first) << '\n';
    }
}

}  // namespace tarnview
