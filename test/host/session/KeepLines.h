#pragma once

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogForm.h"
#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test {

/// An activity whose lines a test makes. The root is the id unless it is set.
struct TestActivity {
    std::string id;
    std::string root{};
    std::string name = "work";
    bool isSampled = false;
    std::string text{};  ///< an attribute of that size and more
};

inline TLog::Event MakeLine(const TestActivity& activity,
                            const char* type,
                            std::chrono::microseconds time,
                            const std::string& result,
                            double elapsed) {
    using TLog::EventPart;
    using TLog::FieldKind;
    std::vector<TLog::FormField> fields;
    std::vector<TLog::SlotValue> values;
    const auto text = [&](EventPart part, const char* name, const std::string& value) {
        fields.push_back({part, TString(name), FieldKind::Text});
        values.emplace_back(TLog::TextView(std::string_view(value)));
    };
    text(EventPart::Activity, "id", activity.id);
    if (!activity.root.empty() && activity.root != activity.id) {
        text(EventPart::Activity, "root", activity.root);
    }
    text(EventPart::Activity, "name", activity.name);
    fields.push_back({EventPart::Activity, TString("type"), FieldKind::Constant, TString(type)});
    if (!result.empty()) {
        fields.push_back({EventPart::Activity, TString("elapsed"), FieldKind::Real});
        values.emplace_back(elapsed);
        fields.push_back({EventPart::Activity, TString("exclusive"), FieldKind::Real});
        values.emplace_back(elapsed / 2);
        text(EventPart::Activity, "rk", result);
    }
    if (activity.isSampled) {
        fields.push_back({EventPart::Body, TString("sampled"), FieldKind::Boolean});
        values.emplace_back(int64{1});
    }
    if (!activity.text.empty()) {
        text(EventPart::Body, "text", activity.text);
    }
    return TLog::MakeEvent(
        TLog::MakeForm(std::move(fields)),
        {TString(std::string(type) + "-" + activity.name), TLog::EventTimePoint(time), 1, 1},
        values.data());
}

inline TLog::Event Begin(const TestActivity& activity,
                         std::chrono::microseconds time = std::chrono::microseconds(0)) {
    return MakeLine(activity, "begin", time, "", 0);
}

/// `elapsed` in seconds.
inline TLog::Event End(const TestActivity& activity,
                       double elapsed = 0,
                       const std::string& result = "ok",
                       std::chrono::microseconds time = std::chrono::microseconds(0)) {
    return MakeLine(activity, "end", time, result, elapsed);
}

/// "begin-load begin-parse end-parse"
inline std::string NamesOf(const std::vector<TLog::Event>& lines) {
    std::string names;
    for (const TLog::Event& line : lines) {
        names += (names.empty() ? "" : " ") + line.GetName().ToUtf8();
    }
    return names;
}

}  // namespace tarn::test
