#pragma once

#include "tarn/Session.h"

#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// What a value of the setting should look like.
inline constexpr const char* keepExpectation =
    "all, or some of slow=50ms,failed,name=checkout|pay,fraction=0.01,sampled and perhaps "
    ",bytes=64M,trees=10000,age=60s";

/// "slow=50ms,failed": conditions, at least one, and limits, in any order; or "all". Nothing if the
/// text says anything else. Of a part that comes twice the last one counts.
std::optional<KeepRules> ReadKeepRules(std::string_view text);

/// The same the other way round.
std::string ToText(const KeepRules& rules);

}  // namespace tarn
