#include "commands/LoadTrees.h"

#include "model/Joiner.h"

#include <ostream>
#include <utility>

namespace tarnview {

void ReadActivities(Input& input,
                    const ParserOptions& parsing,
                    const std::function<void(Activity&&)>& onActivity) {
    Joiner joiner(input.FindingsOfThisPass(), onActivity);
    input.Scanner().Scan(
        parsing, [&](const LogLine& line, const Place& place) { joiner.Take(line, place); });
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

ActivityForest LoadSelected(Input& input,
                            const Filter& filter,
                            TreeOrder order,
                            std::size_t count,
                            std::vector<std::string>& roots) {
    if (filter.IsEmpty() && count == 0 && order != TreeOrder::Slowest) {
        return LoadAll(input);
    }
    TreeSelection selection(filter, order, count);
    input.Scanner().AllowSecondPass();
    ReadActivities(input, {}, [&](Activity&& activity) { selection.Take(activity); });
    roots = selection.Chosen();
    return LoadTrees(input, roots);
}

void SayIfEmpty(const ActivityForest& forest, Context& context) {
    if (forest.Size() == 0) {
        context.err << "tarnview: nothing to show, no activity fits\n";
    }
}

}  // namespace tarnview
