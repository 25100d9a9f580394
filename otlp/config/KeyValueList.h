#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarn::otlp {

/// Reads "key=value,other=value": white space around both is not part of them, and in values "%2C"
/// stands for what has no place there. Nothing if one pair has no "=", or an empty key, or a
/// broken "%".
std::optional<std::vector<std::pair<std::string, std::string>>> ParseKeyValueList(
    std::string_view text);

}  // namespace tarn::otlp
