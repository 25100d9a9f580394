#pragma once

#include "model/DurationHistogram.h"
#include "model/Filter.h"
#include "model/Grouping.h"
#include "model/Resampling.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarnview {

/// One of the two sides that are compared.
enum class Side { Old, New };

/// Figures of the activities of one group on one side that have ended. Times are microseconds.
struct ComparedFigures {
    std::uint64_t count = 0;
    std::uint64_t failed = 0;
    Microseconds total = 0;
    std::uint64_t cpuCount = 0;  ///< activities whose processor time was measured
    double cpu = 0;              ///< exclusive
    std::uint64_t memoryCount = 0;
    double memory = 0;  ///< allocated, exclusive
    DurationHistogram durations{};
    DurationSample sample{};

    // For each activity; nothing if there is none, or none that was measured.
    std::optional<double> Mean() const;
    std::optional<double> Quantile(double share) const;
    std::optional<double> Cpu() const;
    std::optional<double> Memory() const;
};

struct ComparedRow {
    std::vector<std::string> key;
    std::array<ComparedFigures, 2> sides{};
    double chance = 1;  ///< that durations differ as much by chance
    bool isSignificant = false;

    const ComparedFigures& Of(Side side) const { return sides[static_cast<std::size_t>(side)]; }

    bool IsNew() const { return Of(Side::Old).count == 0; }

    bool IsGone() const { return Of(Side::New).count == 0; }

    /// How much longer one takes on the new side, as a share: 0.5 is half as long again.
    std::optional<double> Change() const;

    /// The time that the difference costs, or saves if negative: that of the means for each of the
    /// new side. All of it, if one side has none.
    double Cost() const;
};

/// Adds up activities group by group on two sides. Memory is bounded by the number of groups. Used
/// by one thread.
class Comparison {
public:
    explicit Comparison(Grouping grouping) : m_grouping(std::move(grouping)) {}

    /// What has not ended is passed over.
    void Take(const Activity& activity, Side side);

    bool IsEmpty(Side side) const { return m_counts[static_cast<std::size_t>(side)] == 0; }

    /// In the order of the keys, with what is significant marked. Empties the comparison.
    std::vector<ComparedRow> TakeRows();

private:
    Grouping m_grouping;
    std::map<std::string, ComparedRow, std::less<>> m_rows;
    std::array<std::uint64_t, 2> m_counts{};
};

}  // namespace tarnview
