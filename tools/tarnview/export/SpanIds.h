#pragma once

#include "model/Activity.h"

#include <string>

namespace tarnview {

/// The ids of OpenTelemetry, hexadecimal digits in small letters: 32 for the tree, those of its
/// root's id; 16 for the activity, the last ones of its id. An id of another form is hashed.
std::string TraceIdOf(const Activity& activity);
std::string SpanIdOf(const Activity& activity);

}  // namespace tarnview
