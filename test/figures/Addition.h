#pragma once

#include "LoggedScopes.h"
#include "Oracle.h"

#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>

namespace figures {

/// Why the exclusive figures of a tree of the log may not add up to the inclusive one of its root.
/// docs/figures.md tells a reader of the log about each.
enum Exception : std::size_t {
    RootHasNoEnd,          ///< the root has no end event, so there is nothing to compare with
    SponsorsHadEnded,      ///< a scope ended after all that could have received its figures
    TreesDiffer,           ///< the figures went to a scope of another tree of the log
    TransparentIsLogged,   ///< a transparent scope's share is logged, and its parent's too
    TransparentIsLost,     ///< a transparent scope's share stays with nobody
    EndedOutOfOrder,       ///< a scope was dropped
    OnAnotherThread,       ///< times only: they overlap those of the scope that handed over
    TransparentTakesTime,  ///< times only: nobody logs a transparent scope's share
};

inline constexpr std::size_t exceptionCount = TransparentTakesTime + 1;

inline constexpr std::array<const char*, exceptionCount> exceptionNames = {
    "RootHasNoEnd",
    "SponsorsHadEnded",
    "TreesDiffer",
    "TransparentIsLogged",
    "TransparentIsLost",
    "EndedOutOfOrder",
    "OnAnotherThread",
    "TransparentTakesTime",
};

/// What was met, to see that a run has met everything.
struct Sightings {
    uint64 scopes = 0;
    uint64 trees = 0;
    uint64 treesThatAddUp = 0;  ///< in memory and processor time, of three scopes or more
    uint64 treesWhoseTimeAddsUp = 0;
    uint64 treesThatTellTheTruth = 0;  ///< whose root says what was really used
    uint64 negativeFigures = 0;
    std::array<uint64, exceptionCount> exceptions{};
};

/// Compares the log with what was worked out, scope by scope; then adds up every tree of the log
/// and compares with its root, less exactly what the exceptions in it make up. Returns the first
/// difference.
std::optional<std::string> FindFault(const Expectation& expectation,
                                     const LoggedScopes& log,
                                     Sightings& sightings);

/// Only the sums, for programs that use more than the script says.
std::optional<std::string> FindFaultInSums(const Expectation& expectation,
                                           const LoggedScopes& log,
                                           Sightings& sightings);

}  // namespace figures
