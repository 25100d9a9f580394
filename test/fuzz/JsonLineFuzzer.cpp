// Log events with any names and values as JSON lines, read back by another parser and compared.
#include "Input.h"
#include "JsonReader.h"
#include "Utf.h"

#include "cvlcoreplatform/TLogEvent.h"
#include "cvlcoreplatform/TLogValue.h"
#include "cvlcoreplatform/host/JsonLines.h"

#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace {

using nlohmann::json;
using TLog::Literal;

/// A value, and what a reader should find in its place.
struct Sample {
    std::shared_ptr<TLog::Value> value;
    json expected;
};

json Number(double value) {
    return std::isfinite(value) ? json(value) : json(nullptr);
}

Sample MakeSample(fuzz::Input& input, int depth);

Sample MakeTable(fuzz::Input& input, int depth) {
    TLog::NameTable table;
    json expected = json::object();
    for (uint32 left = input.Below(8); left != 0; --left) {
        const std::u16string name = input.Units();
        Sample sample = MakeSample(input, depth + 1);
        // Lone surrogates make different names read alike; a reader could not tell them apart.
        if (!expected.contains(fuzz::ReferenceUtf8(name))) {
            expected[fuzz::ReferenceUtf8(name)] = std::move(sample.expected);
            table.emplace(TString(name), std::move(sample.value));
        }
    }
    return {TLog::Object::Make(std::move(table)), std::move(expected)};
}

Sample MakeArray(fuzz::Input& input, int depth) {
    std::vector<std::shared_ptr<TLog::Value>> items;
    json expected = json::array();
    for (uint32 left = input.Below(8); left != 0; --left) {
        Sample sample = MakeSample(input, depth + 1);
        items.push_back(input.Below(16) == 1 ? nullptr : std::move(sample.value));
        expected.push_back(items.back() == nullptr ? json(nullptr) : std::move(sample.expected));
    }
    return {TLog::Array::Make(std::move(items)), std::move(expected)};
}

Sample MakeSample(fuzz::Input& input, int depth) {
    constexpr int deepest = 6;
    switch (input.Below(depth < deepest ? 8 : 6)) {
        case 0: {
            const auto number = input.Number<int64>();
            return {Literal::Int(number), number};
        }
        case 1: {
            const auto number = input.Number<double>();
            return {Literal::Double(number, 0), Number(number)};
        }
        case 2: {
            const auto number = input.Number<double>();
            return {Literal::Double(number, 1), Number(number)};
        }
        case 3: {
            const bool flag = input.Flag();
            return {Literal::Bool(flag), flag};
        }
        case 4: {
            const std::u16string text = input.Units();
            return {Literal::String(TString(text)), fuzz::ReferenceUtf8(text)};
        }
        case 5:
            return {Literal::Null(), nullptr};
        case 6:
            return MakeTable(input, depth);
        default:
            return MakeArray(input, depth);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::u16string name = input.Units();
    const std::u16string user = input.Units();
    const TLog::EventTimePoint time(
        TLog::EventTimePoint::duration(static_cast<int64>(input.Number<uint32>()) * 10'000'000));
    const Sample environment = MakeTable(input, 0);
    const Sample activity = MakeTable(input, 0);
    const Sample attributes = MakeTable(input, 0);
    const Sample body = MakeTable(input, 0);
    const auto object = [](const Sample& sample) {
        return std::static_pointer_cast<TLog::Object>(sample.value);
    };
    const TLog::ActivityInfo info(time,
                                  7,
                                  8,
                                  TString(u"s"),
                                  TString(u"r"),
                                  TString(user),
                                  TString(u"site"),
                                  environment.value,
                                  activity.value,
                                  object(attributes));
    const TLog::Event event(TString(name), object(body), info);

    const std::string line = TLog::FormatJsonLine(TLog::Info, event, {});
    const json read = tarn::test::ReadJsonLine(line);
    fuzz::Require(read.at("event") == fuzz::ReferenceUtf8(name), "the name arrives");
    fuzz::Require(read.at("user") == fuzz::ReferenceUtf8(user), "the user arrives");
    fuzz::Require(read.at("environment") == environment.expected, "the environment arrives");
    fuzz::Require(read.at("activity") == activity.expected, "the activity arrives");
    fuzz::Require(read.at("attributes") == attributes.expected, "the attributes arrive");
    fuzz::Require(read.at("body") == body.expected, "the body arrives");
    fuzz::Require(read.size() == 13, "nothing else arrives");

    const std::string message = TLog::FormatJsonLine(TLog::Warn, TString(user), time);
    fuzz::Require(tarn::test::ReadJsonLine(message).at("message") == fuzz::ReferenceUtf8(user),
                  "the message arrives");
    return 0;
}
