#pragma once

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogger.h"

#include <nlohmann/json.hpp>

namespace tarn::test {

/// The event's line as its values say it, of any host. `writingTime` is for an event without a time
/// of its own.
nlohmann::json JsonOf(TLog::Severity severity,
                      const TLog::Event& event,
                      TLog::EventTimePoint writingTime);

}  // namespace tarn::test
