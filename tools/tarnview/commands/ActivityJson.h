#pragma once

#include "export/Json.h"
#include "model/ActivityForest.h"
#include "model/Messages.h"

#include <cstddef>
#include <optional>

namespace tarnview {

/// Writes one activity as a JSON object on a line of its own, with all that the log says about it:
/// the form that docs/tarnview.md describes. With `level` its level in the tree, with `messages`
/// those that belong to it.
void WriteActivity(Json& json,
                   const ActivityForest& forest,
                   ActivityForest::Index index,
                   std::optional<std::size_t> level,
                   const Messages* messages);

}  // namespace tarnview
