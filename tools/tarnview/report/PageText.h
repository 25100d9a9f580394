#pragma once

#include <string_view>

namespace tarnview {

/// The page without data, and the program within it; made by the build from page.html and the
/// scripts beside it.
extern const std::string_view pageText;
extern const std::string_view pageScript;

}  // namespace tarnview
