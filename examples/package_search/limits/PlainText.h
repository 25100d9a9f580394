#pragma once

#include <string_view>

namespace packagesearch {

/// Whether a text from outside is UTF-8 without control characters, and no longer than told.
bool IsPlainText(std::string_view text, std::size_t longest) noexcept;

}  // namespace packagesearch
