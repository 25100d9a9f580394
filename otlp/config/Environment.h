#pragma once

#include "tarn/otlp/Options.h"

#include <string>
#include <string_view>
#include <vector>

namespace tarn::otlp {

/// The URL that traces are sent to, at a receiver for all kinds of data.
std::string TracesUrlBelow(std::string_view endpoint);

/// What OptionsFromEnvironment() does, with another environment: `get` returns null for what is not
/// set. The names of what it cannot understand are in the sentences that `problems` gets.
Options ReadEnvironment(Options options,
                        const std::function<const char*(const char*)>& get,
                        std::vector<std::string>& problems);

}  // namespace tarn::otlp
