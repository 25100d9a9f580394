#pragma once

#include "expression/Expression.h"

#include <string>
#include <string_view>

namespace tarnview {

/// The message, the expression, and a mark below the place that the error is about.
std::string Describe(const ExpressionError& error, std::string_view text);

}  // namespace tarnview
