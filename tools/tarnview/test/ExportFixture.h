#pragma once

#include "LogFixture.h"
#include "commands/ExportCommand.h"

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace tarnview {

/// Exports of logs, in the tests' own folder.
class ExportFixture : public LogFixture {
protected:
    using Json = nlohmann::json;

    std::string Export(ExportFormat format, std::vector<std::string> files = SampleLogs());

    /// A log with two on one thread that overlap without one holding the other.
    std::string Crossing();

    static constexpr int levels = 3'000;

    /// A log of `levels` activities, each of which sponsors the next one, and allocates ten bytes.
    std::string Chain();

    /// The member of `list` that has this value under this key.
    static const Json& Find(const Json& list, const std::string& key, const std::string& value);
};

}  // namespace tarnview
