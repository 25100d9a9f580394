#include "EventLine.h"

#include "EventJson.h"
#include "JsonReader.h"

#include "cvlcoreplatform/host/JsonLines.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace tarn::test {

namespace {

// For an event that has no time of its own: 2026-02-01 12:00:00.25 UTC.
constexpr TLog::EventTimePoint writingTime(TLog::EventTimePoint::duration(17'699'472'002'500'000));

}  // namespace

std::string DifferenceOfLine(TLog::Severity severity, const TLog::Event& event) {
    return DifferenceOfLine(TLog::FormatJsonLine(severity, event, writingTime), severity, event);
}

std::string DifferenceOfLine(const std::string& line,
                             TLog::Severity severity,
                             const TLog::Event& event) {
    try {
        // As text, because 5 and 5.0 are equal otherwise. Names come sorted.
        const std::string values = JsonOf(severity, event, writingTime).dump();
        const std::string read = ReadJsonLine(line).dump();
        return values == read ? std::string()
                              : "the values say " + values + ", the line says " + read;
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

}  // namespace tarn::test
