#pragma once

#include "tarn/IFinishedActivityListener.h"

#include "cvlcoreplatform/TString.h"
#include "cvlsys/IntegerTypes.h"

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarn {

/// The upper limits of a histogram of elapsed time, but the last, which has none.
struct DurationLimit {
    int64 nanoseconds;
    const char* seconds;  ///< as it is written
};

inline constexpr std::array<DurationLimit, 12> durationLimits{{{100'000, "0.0001"},
                                                               {500'000, "0.0005"},
                                                               {1'000'000, "0.001"},
                                                               {5'000'000, "0.005"},
                                                               {10'000'000, "0.01"},
                                                               {50'000'000, "0.05"},
                                                               {100'000'000, "0.1"},
                                                               {500'000'000, "0.5"},
                                                               {1'000'000'000, "1"},
                                                               {5'000'000'000, "5"},
                                                               {10'000'000'000, "10"},
                                                               {60'000'000'000, "60"}}};

/// What the activities of one name add up to.
struct ActivityFigures {
    /// How many took no longer than the limit, and longer than the limit before it.
    std::array<uint64, durationLimits.size() + 1> durations{};
    uint64 nanoseconds = 0;
    uint64 failures = 0;
    uint64 earlyTerminations = 0;
    uint64 userTime = 0;    ///< microseconds
    uint64 kernelTime = 0;  ///< microseconds
    uint64 allocatedBytes = 0;
    uint64 allocations = 0;

    void Add(const FinishedActivity& activity) noexcept;
    uint64 Count() const noexcept;
};

/// Counts of activities by name. Its memory is bounded and taken at the beginning, but for the
/// names themselves. Not guarded: one thread at a time.
class ActivityCounts {
public:
    /// For `mostNames` names and those that share a label with one of them; what has another name
    /// is counted together. Throws `std::bad_alloc`.
    explicit ActivityCounts(std::size_t mostNames);

    /// Allocates for a name that is new. Without memory for that it is counted with the others.
    void Add(const FinishedActivity& activity) noexcept;

    /// What is counted under one label, which does not change any more.
    struct Series {
        std::string label;  ///< escaped
        ActivityFigures figures;
    };

    std::size_t MostSeries() const noexcept { return m_mostNames + 1; }

    /// How many there are; the first is of the names that have no counts of their own.
    std::size_t Size() const noexcept { return m_used; }

    const Series& Get(std::size_t index) const noexcept { return m_series[index]; }

private:
    ActivityFigures& Find(const TString& name);
    std::size_t IndexOfNew(const TString& name);

    const std::size_t m_mostNames;
    std::unique_ptr<Series[]> m_series;
    std::size_t m_used = 1;
    /// Names may differ in what a label cannot hold, so several may lead to one series.
    std::unordered_map<TString, std::size_t> m_indexOfName;
};

}  // namespace tarn
