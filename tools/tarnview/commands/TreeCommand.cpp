#include "commands/TreeCommand.h"

#include "commands/ActivityJson.h"
#include "commands/LoadTrees.h"
#include "model/FinishedTrees.h"
#include "model/Joiner.h"
#include "output/TreePrinter.h"

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
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

// The values of these fields, those that are there.
std::function<std::string(const Activity&)> LabelsOf(const std::vector<ActivityField>& fields) {
    if (fields.empty()) {
        return {};
    }
    return [&fields](const Activity& activity) {
        std::string text;
        for (const ActivityField& field : fields) {
            std::string value;
            field.AppendTo(value, activity);
            if (value != "-") {
                text += (text.empty() ? "" : " ") + value;
            }
        }
        return text;
    };
}

void PrintTrees(const ActivityForest& forest,
                const std::vector<ActivityForest::Index>& tops,
                const Messages* messages,
                const TreeOptions& options,
                Context& context) {
    Json json(context.out);
    TreePrinter printer(context.out,
                        context.terminal,
                        context.times,
                        {.depth = options.depth,
                         .showsAttributes = options.showsAttributes,
                         .most = options.most,
                         .labelOf = LabelsOf(options.labels),
                         .messages = messages});
    const char* separator = "";
    for (const ActivityForest::Index top : tops) {
        if (!options.isJson) {
            context.out << separator;
            printer.Print(forest, top);
            separator = "\n";
            continue;
        }
        for (const auto& [index, level] : forest.PreOrder(top)) {
            if (options.depth == 0 || level < options.depth) {
                WriteActivity(json, forest, index, level, messages);
            }
        }
    }
}

int FollowTrees(const TreeOptions& options, Context& context) {
    Problems problems(context.err);
    FinishedTrees trees;
    Joiner joiner(problems, [&](Activity&& activity) { trees.Take(std::move(activity)); });
    const auto print = [&](std::vector<Activity>&& activities) {
        const bool isWanted =
            std::any_of(activities.begin(), activities.end(), [&](const Activity& activity) {
                return options.filter.Passes(activity);
            });
        if (isWanted) {
            ActivityForest forest;
            for (Activity& activity : activities) {
                forest.Add(std::move(activity));
            }
            forest.Link(problems);
            PrintTrees(forest, forest.Tops(), nullptr, options, context);
            context.out << (options.isJson ? "" : "\n");
        }
    };
    Follow(
        options.input,
        options.follow,
        {.wantsTables = true},
        false,
        problems,
        context,
        [&](const LogLine& line, const Place& place) { joiner.Take(line, place); },
        [&] { trees.GiveOut(joiner.Open(), print); });
    return exitSuccess;
}

}  // namespace

int RunTree(const TreeOptions& options, Context& context) {
    if (options.follow.isFollowing) {
        return FollowTrees(options, context);
    }
    Input input(options.input, context);
    if (options.showsMessages) {
        input.AllowAnotherPass();
    }
    std::vector<std::string> roots;
    const ActivityForest forest =
        LoadSelected(input, options.filter, options.order, options.count, roots);
    std::optional<Messages> messages;
    if (options.showsMessages) {
        messages.emplace(LoadMessages(input, forest));
    }
    PrintTrees(forest, InOrder(forest, roots), messages ? &*messages : nullptr, options, context);
    SayWhatIsGuessed(forest, context);
    return input.Finish();
}

}  // namespace tarnview
