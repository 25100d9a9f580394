#include "model/DurationHistogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>

namespace tarnview {

namespace {

// Of each value the highest 11 bits count; so values of 11 bits and less have a class each.
constexpr unsigned keptBits = 11;
constexpr std::uint64_t classesPerPower = std::uint64_t{1} << (keptBits - 1);

std::size_t ClassOf(std::uint64_t value) {
    const auto bits = static_cast<unsigned>(std::bit_width(value));
    if (bits <= keptBits) {
        return value;
    }
    const unsigned dropped = bits - keptBits;
    return dropped * classesPerPower + (value >> dropped);
}

std::uint64_t LowerEdge(std::size_t index) {
    if (index < 2 * classesPerPower) {
        return index;
    }
    const std::size_t dropped = index / classesPerPower - 1;
    return (index - dropped * classesPerPower) << dropped;
}

}  // namespace

void DurationHistogram::Add(std::uint64_t microseconds, std::uint64_t count) {
    m_count += count;
    if (!CountsInClasses(m_count)) {
        m_values.insert(m_values.end(), count, microseconds);
        m_isSorted = false;
        return;
    }
    for (const std::uint64_t value : m_values) {
        Classify(value, 1);
    }
    m_values = {};
    Classify(microseconds, count);
}

void DurationHistogram::Classify(std::uint64_t microseconds, std::uint64_t count) {
    constexpr std::uint64_t aCentury = 3'155'760'000'000'000;
    const std::size_t index = ClassOf(std::min(microseconds, aCentury));
    if (index >= m_counts.size()) {
        m_counts.resize(index + 1);
    }
    m_counts[index] += count;
}

std::uint64_t DurationHistogram::Quantile(double share) const {
    const auto wanted = static_cast<std::uint64_t>(std::ceil(share * static_cast<double>(m_count)));
    if (!m_values.empty()) {
        if (!m_isSorted) {
            std::sort(m_values.begin(), m_values.end());
            m_isSorted = true;
        }
        return m_values[wanted == 0 ? 0 : wanted - 1];
    }
    std::uint64_t seen = 0;
    for (std::size_t index = 0; index < m_counts.size(); ++index) {
        seen += m_counts[index];
        if (seen != 0 && seen >= wanted) {
            return LowerEdge(index);
        }
    }
    return 0;
}

}  // namespace tarnview
