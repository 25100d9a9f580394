#include "model/Comparison.h"

#include <algorithm>

namespace tarnview {

namespace {

std::optional<double> PerOne(double sum, std::uint64_t count) {
    return count == 0 ? std::nullopt : std::optional(sum / static_cast<double>(count));
}

}  // namespace

std::optional<double> ComparedFigures::Mean() const {
    return PerOne(static_cast<double>(total), count);
}

std::optional<double> ComparedFigures::Quantile(double share) const {
    return count == 0 ? std::nullopt
                      : std::optional(static_cast<double>(durations.Quantile(share)));
}

std::optional<double> ComparedFigures::Cpu() const {
    return PerOne(cpu, cpuCount);
}

std::optional<double> ComparedFigures::Memory() const {
    return PerOne(memory, memoryCount);
}

std::optional<double> ComparedRow::Change() const {
    const auto before = Of(Side::Old).Mean();
    const auto after = Of(Side::New).Mean();
    return before && after && *before > 0 ? std::optional(*after / *before - 1) : std::nullopt;
}

double ComparedRow::Cost() const {
    if (IsNew() || IsGone()) {
        return static_cast<double>(Of(Side::New).total - Of(Side::Old).total);
    }
    return (*Of(Side::New).Mean() - *Of(Side::Old).Mean()) *
           static_cast<double>(Of(Side::New).count);
}

void Comparison::Take(const Activity& activity, Side side) {
    if (!activity.hasEnd) {
        return;
    }
    const std::string_view key = m_grouping.KeyOf(activity);
    auto found = m_rows.find(key);
    if (found == m_rows.end()) {
        found = m_rows.try_emplace(std::string(key)).first;
        found->second.key = m_grouping.ValuesOf(key);
    }
    const auto index = static_cast<std::size_t>(side);
    ComparedFigures& figures = found->second.sides[index];
    const Microseconds duration = std::max<Microseconds>(activity.Duration(), 0);
    ++m_counts[index];
    ++figures.count;
    figures.failed += activity.IsFailure() ? 1U : 0U;
    figures.total += duration;
    if (activity.figures.hasCpu) {
        ++figures.cpuCount;
        figures.cpu += activity.figures.CpuExclusive();
    }
    if (activity.figures.hasAllocated) {
        ++figures.memoryCount;
        figures.memory += activity.figures.ae;
    }
    figures.durations.Add(static_cast<std::uint64_t>(duration));
    figures.sample.Add(duration);
}

std::vector<ComparedRow> Comparison::TakeRows() {
    std::vector<ComparedRow> rows;
    std::vector<double> chances;
    for (auto& [key, row] : m_rows) {
        if (!row.IsNew() && !row.IsGone()) {
            row.chance = ChanceOfDifference(row.Of(Side::Old).sample.Values(),
                                            row.Of(Side::New).sample.Values());
            chances.push_back(row.chance);
        }
        rows.push_back(std::move(row));
    }
    m_rows.clear();
    const double largest = LargestSignificant(std::move(chances));
    for (ComparedRow& row : rows) {
        row.isSignificant = !row.IsNew() && !row.IsGone() && row.chance <= largest;
    }
    return rows;
}

}  // namespace tarnview
