#include "ActivityCounts.h"

#include "Exposition.h"

#include <algorithm>
#include <new>
#include <utility>

namespace tarn {
namespace {

constexpr const char* labelOfOthers = "(other)";

// A scrape shall not grow with the length of names.
constexpr std::size_t longestLabel = 200;

/// Differences of clocks and counters may be below 0; what is counted never goes down.
uint64 NotBelowZero(int64 amount) noexcept {
    return amount > 0 ? static_cast<uint64>(amount) : 0;
}

std::string LabelOf(const TString& name) {
    std::string text = name.ToUtf8();
    if (text.size() > longestLabel) {
        std::size_t end = longestLabel;
        // Not within a character.
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
            --end;
        }
        text.resize(end);
        text += "\u2026";
    }
    return EscapeLabel(text);
}

}  // namespace

void ActivityFigures::Add(const FinishedActivity& activity) noexcept {
    const auto limit = std::find_if(
        durationLimits.begin(), durationLimits.end(), [&activity](const DurationLimit& candidate) {
            return activity.nanoseconds <= candidate.nanoseconds;
        });
    ++durations[static_cast<std::size_t>(limit - durationLimits.begin())];
    nanoseconds += NotBelowZero(activity.nanoseconds);
    failures += activity.outcome == FinishedActivity::Outcome::Failed ? 1 : 0;
    earlyTerminations += activity.outcome == FinishedActivity::Outcome::EarlyTermination ? 1 : 0;
    userTime += NotBelowZero(activity.userTime);
    kernelTime += NotBelowZero(activity.kernelTime);
    allocatedBytes += NotBelowZero(activity.allocatedBytes);
    allocations += NotBelowZero(activity.allocations);
}

uint64 ActivityFigures::Count() const noexcept {
    uint64 sum = 0;
    for (const uint64 count : durations) {
        sum += count;
    }
    return sum;
}

ActivityCounts::ActivityCounts(std::size_t mostNames)
    : m_mostNames(mostNames),
      m_series(std::make_unique<Series[]>(mostNames + 1)) {
    m_indexOfName.reserve(mostNames);
    m_series[0].label = labelOfOthers;
}

void ActivityCounts::Add(const FinishedActivity& activity) noexcept {
    Find(activity.name).Add(activity);
}

ActivityFigures& ActivityCounts::Find(const TString& name) {
    std::size_t index = 0;
    if (const auto found = m_indexOfName.find(name); found != m_indexOfName.end()) {
        index = found->second;
    } else if (m_indexOfName.size() < m_mostNames) {
        try {
            index = IndexOfNew(name);
        } catch (const std::bad_alloc&) {
            index = 0;
        }
    }
    return m_series[index].figures;
}

std::size_t ActivityCounts::IndexOfNew(const TString& name) {
    std::string label = LabelOf(name);
    std::size_t index = 0;
    while (index != m_used && m_series[index].label != label) {
        ++index;
    }
    m_indexOfName.emplace(name, index);
    if (index == m_used) {
        m_series[index].label = std::move(label);
        ++m_used;
    }
    return index;
}

}  // namespace tarn
