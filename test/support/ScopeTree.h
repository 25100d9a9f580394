#pragma once

#include "CapturingSink.h"

#include <string>

namespace tarn::test {

/// Draws the scopes of captured events as a tree, one line each, indented under their sponsors in
/// the order of their beginnings:
///
///     load
///       parse: exception
///       store (open)
///
/// A result other than "ok" follows the name; "(open)" marks a scope without an end event,
/// "(no begin)" an end event without a beginning. A scope whose sponsor is not among the events is
/// drawn at the margin with its depth in front ("[2] parse").
std::string DrawScopeTree(const CapturedEvents& events);

}  // namespace tarn::test
