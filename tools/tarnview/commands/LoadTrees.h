#pragma once

#include "commands/Input.h"
#include "model/ActivityForest.h"
#include "model/Messages.h"
#include "model/TreeSelection.h"

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

namespace tarnview {

/// What the lines must be parsed with, so that the filter can be asked.
ParserOptions ParsingFor(const Filter& filter);

/// Joins the activities of one pass over the input; `onActivity` receives the ended ones as they
/// end, then those that never did. The first pass reports what is wrong. With `wanted` activities
/// that cannot pass it may be left out.
void ReadActivities(Input& input,
                    const ParserOptions& parsing,
                    const std::function<void(Activity&&)>& onActivity,
                    const Filter* wanted = nullptr);

/// All activities, or those of the trees with these roots, linked.
ActivityForest LoadAll(Input& input);
ActivityForest LoadTrees(Input& input, const std::vector<std::string>& roots);

/// The messages that belong to these activities, in a further pass over the input.
Messages LoadMessages(Input& input, const ActivityForest& forest);

/// The trees that a selection chooses, in two passes; in one if it chooses all. `roots` receives
/// their order, empty if all are chosen as they began.
ActivityForest LoadSelected(Input& input,
                            const Filter& filter,
                            TreeOrder order,
                            std::size_t count,
                            std::vector<std::string>& roots);

/// Says how many links were guessed, and what they tell about clocks. Nothing to show may well be a
/// mistake in a filter: says so, too.
void SayWhatIsGuessed(const ActivityForest& forest, Context& context);

}  // namespace tarnview
