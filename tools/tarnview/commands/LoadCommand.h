#pragma once

#include "commands/Context.h"
#include "commands/Following.h"
#include "engine/EngineAddress.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tarnview {

struct LoadOptions {
    InputOptions input;
    FollowOptions follow{};
    EngineAddress to{};
    std::string cluster;     ///< its name in the engine's configuration; empty: one server
    std::string checkpoint;  ///< a file; empty: beside the first log
    /// Of one block, at most. One of the usual size takes an engine some tenths of a second.
    std::uint64_t blockLines = 200'000;
    /// How long to wait for an engine that takes nothing; zero: for ever. Nothing: ten minutes, or
    /// for ever while logs are followed.
    std::optional<std::chrono::milliseconds> timeout{};
};

/// Brings logs into the tables of an engine, every line once, however often it is run. Waits for an
/// engine that is away, up to the timeout. Returns exitNegative if lines were rejected. Throws
/// `std::system_error` if a file cannot be read or written, EngineError if the engine will not have
/// the tables or the rows, or took nothing within the timeout.
int RunLoad(const LoadOptions& options, Context& context);

}  // namespace tarnview
