#pragma once

#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <optional>
#include <set>
#include <vector>

/// How the figures of a scope that ends reach the one that answers for it. The rules are here once,
/// for whatever works out beforehand what a log has to say: `model::Model` applies them to a stream
/// of events, `figures::WorkOut` to a script of operations.
namespace folding {

/// What is counted of a scope.
enum Kind : std::size_t {
    AllocatedBytes,
    AllocationCount,
    ReleasedBytes,
    ReleaseCount,
    KernelTime,
    ProgramTime,
};

inline constexpr std::size_t kindCount = ProgramTime + 1;

/// One of them. Sums and differences wrap around, so that no figure that a sender may think of is
/// an error.
struct Figure {
    int64 exclusive = 0;
    int64 sameThread = 0;
    int64 otherThreads = 0;

    int64 Inclusive() const noexcept;

    friend bool operator==(const Figure&, const Figure&) = default;
};

/// What a scope has to tell, or hands on, at its end.
struct Account {
    std::array<Figure, kindCount> figures;
    std::set<uint64> threadIds;  ///< its own, and those of all that were folded into it
    uint64 threadId = 0;         ///< where it ran last
    double elapsed = 0;          ///< seconds, cut to whole milliseconds
    double childrenTime = 0;
    double exclusiveTime = 0;
    bool transparent = false;
    bool measuresNothing = false;  ///< untracked, or a request of the host's
};

/// What the scope itself has measured.
void AddMeasured(Account& account, Kind kind, int64 amount) noexcept;

/// At its end, before it is folded.
void SetElapsed(Account& account, uint64 nanoseconds);

/// Gives what a scope that ends has to its sponsor, which is another scope. Whether both ran on the
/// same thread.
bool Fold(const Account& child, Account& sponsor);

/// At its end, after it was folded.
void SetExclusiveTime(Account& account) noexcept;

/// The nearest sponsor that is still there; the chain's last is the nearest, and a scope that heads
/// a tree is in its own chain.
template <class Id, class IsThere>
std::optional<Id> NearestSponsor(const std::vector<Id>& chain, const IsThere& isThere) {
    for (auto id = chain.rbegin(); id != chain.rend(); ++id) {
        if (isThere(*id)) {
            return *id;
        }
    }
    return std::nullopt;
}

}  // namespace folding
