#pragma once

#include "cvlcoreplatform/TString.h"
#include "cvlmetrics/Export.h"
#include "cvlsys/IntegerTypes.h"

/// What a host may offer for the case that the process crashes. All of it is optional: a host that
/// leaves these functions out links and works. Check that one exists before you call
/// it:
///
///     if (Metrics::SaveOnCrash != nullptr) {
///         Metrics::SaveOnCrash();
///     }
namespace Metrics {

/// Knows what work is open, and puts it into words for the last message of a process that crashes.
class ILastWords {
public:
    ILastWords() = default;
    ILastWords(const ILastWords&) = delete;
    ILastWords& operator=(const ILastWords&) = delete;

    /// The open work, what `threadId` (the kernel's id) was at first; `time` is the time of the
    /// bus, in nanoseconds. Empty if nothing is open. Called while no event is delivered, on a
    /// thread of the host's own. It may allocate and throw; it must not wait for another thread.
    virtual TString DescribeOpenWork(uint64 threadId, int64 time) const = 0;

protected:
    ~ILastWords() = default;
};

/// Has `words` asked when the process crashes, in the place of those that were set before. They are
/// to be withdrawn before they end. Any thread.
[[gnu::weak]] CVLMETRICS_API void SetLastWords(const ILastWords& words) noexcept;

/// Does nothing if others have been set since. Any thread; to be called before the listener that
/// the words belong to is removed, so that they are not asked any more once that is done.
[[gnu::weak]] CVLMETRICS_API void WithdrawLastWords(const ILastWords& words) noexcept;

/// From now on a crash delivers what is queued, and logs the last words, before the process ends.
/// Throws if that cannot be prepared.
[[gnu::weak]] CVLMETRICS_API void SaveOnCrash();

}  // namespace Metrics
