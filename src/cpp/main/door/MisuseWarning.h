#pragma once

#include <string>

namespace tarn {

/// Warns in the log that an activity of this name was used wrongly. `what` is a literal: once for
/// each of them and each name, and no more than some hundred times in a process. Never throws.
void WarnOfMisuse(const std::string& name, const char16_t* what) noexcept;

}  // namespace tarn
