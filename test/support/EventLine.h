#pragma once

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogger.h"

#include <string>

namespace tarn::test {

/// What the event's JSON line says otherwise than the event's own values, for people to read; empty
/// when both say the same. The line is written without the values, so what is right in one may be
/// wrong in the other. Kinds of numbers count: 5 is not 5.0.
std::string DifferenceOfLine(TLog::Severity severity, const TLog::Event& event);

/// The same for a line that is given.
std::string DifferenceOfLine(const std::string& line,
                             TLog::Severity severity,
                             const TLog::Event& event);

}  // namespace tarn::test
