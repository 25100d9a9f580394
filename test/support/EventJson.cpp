#include "EventJson.h"

#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/TSystem.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <string>

namespace tarn::test {

namespace {

using nlohmann::json;

json OfReal(double value) {
    return std::isfinite(value) ? json(value) : json(nullptr);
}

json OfLiteral(const TLog::Literal& literal) {
    switch (literal.GetType()) {
        case TLog::LiteralType::String:
            return literal.GetString().ToUtf8();
        case TLog::LiteralType::Integer:
            return literal.GetInt();
        case TLog::LiteralType::Double:
        case TLog::LiteralType::FixedDouble:
            return OfReal(literal.GetDouble());
        case TLog::LiteralType::Boolean:
            return literal.GetBool();
        case TLog::LiteralType::Null:
            break;
    }
    return nullptr;
}

json OfValue(const TLog::Value& value) {
    switch (value.GetKind()) {
        case TLog::ValueKind::Literal:
            break;
        case TLog::ValueKind::Object: {
            json object = json::object();
            for (const auto& [name, field] : static_cast<const TLog::Object&>(value).GetFields()) {
                if (field != nullptr) {
                    object[name.ToUtf8()] = OfValue(*field);
                }
            }
            return object;
        }
        case TLog::ValueKind::Array: {
            json array = json::array();
            for (const auto& item : static_cast<const TLog::Array&>(value).GetItems()) {
                array.push_back(item != nullptr ? OfValue(*item) : json(nullptr));
            }
            return array;
        }
    }
    return OfLiteral(static_cast<const TLog::Literal&>(value));
}

void SetUnlessNull(json& object, const char* name, const TLog::Value* value) {
    if (value != nullptr) {
        object[name] = OfValue(*value);
    }
}

std::string TimeText(TLog::EventTimePoint time) {
    const auto rounded = std::chrono::floor<std::chrono::microseconds>(time);
    const auto second = std::chrono::floor<std::chrono::seconds>(rounded);
    const std::time_t seconds = second.time_since_epoch().count();
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 96> text{};
    std::snprintf(text.data(),
                  text.size(),
                  "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ",
                  parts.tm_year + 1900,
                  parts.tm_mon + 1,
                  parts.tm_mday,
                  parts.tm_hour,
                  parts.tm_min,
                  parts.tm_sec,
                  static_cast<int>((rounded - second).count()));
    return text.data();
}

}  // namespace

nlohmann::json JsonOf(TLog::Severity severity,
                      const TLog::Event& event,
                      TLog::EventTimePoint writingTime) {
    constexpr std::array<const char*, 6> severities{
        "trace", "debug", "info", "warn", "error", "fatal"};
    const TLog::ActivityInfo* const information = event.GetActivityInfo();
    json expected{
        {"time", TimeText(information != nullptr ? information->GetTime() : writingTime)},
        {"severity", severities.at(static_cast<std::size_t>(severity))},
        {"event", event.GetName().ToUtf8()},
        {"pid", information != nullptr ? information->GetProcessId() : TSystem::ProcessID()},
        {"tid", information != nullptr ? information->GetThreadId() : TSystem::ThreadID()}};
    if (information != nullptr) {
        expected["session"] = information->GetSessionId().ToUtf8();
        expected["request"] = information->GetRequestId().ToUtf8();
        expected["user"] = information->GetUser().ToUtf8();
        expected["site"] = information->GetSite().ToUtf8();
        SetUnlessNull(expected, "environment", information->GetEnvironment().get());
        SetUnlessNull(expected, "activity", information->GetActivity().get());
        SetUnlessNull(expected, "attributes", information->GetAttributes().get());
    }
    SetUnlessNull(expected, "body", event.GetBody().get());
    return expected;
}

}  // namespace tarn::test
