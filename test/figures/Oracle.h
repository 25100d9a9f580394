#pragma once

#include "FoldingRules.h"
#include "Script.h"

#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace figures {

/// What is counted, in the order of `figureNames`.
using Figure = folding::Kind;
using folding::AllocatedBytes;
using folding::AllocationCount;
using folding::KernelTime;
using folding::ProgramTime;
using folding::ReleaseCount;
using folding::ReleasedBytes;

inline constexpr std::size_t figureCount = folding::kindCount;

inline constexpr std::array<const char*, figureCount> figureNames = {
    "allocated bytes", "allocations", "released bytes", "releases", "kernel time", "program time"};

using Amounts = std::array<int64, figureCount>;

/// One scope of a script, worked out from the rules alone.
struct ExpectedScope {
    ScopeKind kind;
    bool isOpened = false;  ///< a scope that is off never is
    bool isClosed = false;  ///< in order
    bool isDropped = false;
    bool isMoved = false;   ///< ended on another thread than it was opened on
    bool isLogged = false;  ///< has a begin event; an end event too if it was closed in order

    int tree = noTree;  ///< the scope whose id the log gives as the root, or one of the two below
    int foldedInto = none;  ///< the scope that received the figures
    bool foldedOnSameThread = false;

    folding::Account account;
    int64 peak = 0;
    int64 elapsedMs = 0;
    int64 childrenMs = 0;

    /// What was used while the scope was the innermost one of its thread.
    Amounts own{};
    /// Nested plainly in the scope that received its figures, or the first one on its thread; and
    /// no scope of another tree was opened inside.
    bool isPlainlyPlaced = false;
    bool isMeasuredBySomeone = false;  ///< by itself, or by a scope around it in its own tree

    int64 Exclusive(Figure figure) const noexcept { return account.figures[figure].exclusive; }

    int64 Inclusive(Figure figure) const noexcept { return account.figures[figure].Inclusive(); }

    int64 ExclusiveMs() const noexcept { return elapsedMs - childrenMs; }

    static constexpr int none = -1;
    static constexpr int noTree = -2;   ///< the log gives no root at all
    static constexpr int nilTree = -3;  ///< the log gives an id that is all zeroes
};

struct Expectation {
    std::vector<ExpectedScope> scopes;
    bool isTrackingConstant = true;  ///< full, from the beginning to the end
};

/// `blockSizes` are those that the allocator gave.
Expectation WorkOut(const Script& script, const std::vector<std::size_t>& blockSizes);

}  // namespace figures
