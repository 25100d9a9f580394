#include "commands/TreeCommand.h"

#include "commands/LoadTrees.h"
#include "output/TreePrinter.h"

#include <algorithm>
#include <map>
#include <ostream>

namespace tarnview {

namespace {

// The tops of each tree together, the trees in the order of `roots`, or as they began.
std::vector<ActivityForest::Index> InOrder(const ActivityForest& forest,
                                           const std::vector<std::string>& roots) {
    std::map<std::string_view, std::size_t> places;
    for (const std::string& root : roots) {
        places.emplace(root, places.size());
    }
    for (const ActivityForest::Index top : forest.Tops()) {
        places.emplace(forest[top].root, places.size());
    }
    std::vector<ActivityForest::Index> tops = forest.Tops();
    std::stable_sort(tops.begin(), tops.end(), [&](auto a, auto b) {
        return places[forest[a].root] < places[forest[b].root];
    });
    return tops;
}

}  // namespace

int RunTree(const TreeOptions& options, Context& context) {
    Input input(options.input, context);
    std::vector<std::string> roots;
    const ActivityForest forest =
        LoadSelected(input, options.filter, options.order, options.count, roots);
    TreePrinter printer(context.out,
                        context.terminal,
                        {.depth = options.depth, .showsAttributes = options.showsAttributes});
    const char* separator = "";
    for (const ActivityForest::Index top : InOrder(forest, roots)) {
        context.out << separator;
        printer.Print(forest, top);
        separator = "\n";
    }
    SayWhatIsGuessed(forest, context);
    return input.Finish();
}

}  // namespace tarnview
