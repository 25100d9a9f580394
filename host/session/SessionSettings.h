#pragma once

#include "tarn/Session.h"

#include "cvlsys/IntegerTypes.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn {

/// What the environment, or a configuration file, says; only what is given has a value.
struct SessionSettings {
    std::optional<std::string> log;
    std::optional<uint64> fileBytes;
    std::optional<std::size_t> keptFiles;
    std::optional<bool> journal;
    std::optional<Delivery> delivery;
    std::optional<std::size_t> queueBytes;
    std::optional<std::vector<std::string>> off;
    std::optional<int32> rank;
    std::optional<bool> cpu;
    std::optional<MemoryFigures> memory;
    std::optional<bool> extras;
    std::optional<bool> counters;
    std::optional<std::size_t> countedNames;
    std::optional<KeepRules> keep;

    /// What was said wrongly, in sentences.
    std::vector<std::string> errors;
};

/// Reads the variables TARN_LOG and so on.
SessionSettings ReadEnvironment();

/// The path that TARN_CONFIG names, else the given one.
std::string FindConfigFile(const std::string& chosen, bool readEnvironment);

/// Reads "name = value" lines, passing over empty ones and those that begin with "#". `path` is for
/// the errors.
SessionSettings ReadConfigText(std::string_view text, const std::string& path);

/// Puts what is given into the options.
void Apply(const SessionSettings& settings, SessionOptions& options);

}  // namespace tarn
