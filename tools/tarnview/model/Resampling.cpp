#include "model/Resampling.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace tarnview {

namespace {

// Twice the rank of each value among all, so that the ranks of equal ones, which share the mean of
// theirs, are whole.
std::vector<std::int64_t> DoubledRanks(const std::vector<Microseconds>& values) {
    std::vector<std::size_t> order(values.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return values[a] < values[b];
    });
    std::vector<std::int64_t> ranks(values.size());
    for (std::size_t first = 0; first < order.size();) {
        std::size_t last = first;
        while (last + 1 < order.size() && values[order[last + 1]] == values[order[first]]) {
            ++last;
        }
        for (std::size_t index = first; index <= last; ++index) {
            ranks[order[index]] = static_cast<std::int64_t>(first + last + 2);
        }
        first = last + 1;
    }
    return ranks;
}

}  // namespace

// The constants are those of the generator SplitMix64.
std::uint64_t FixedRandom::Below(std::uint64_t limit) {
    m_state += 0x9E3779B97F4A7C15U;
    std::uint64_t mixed = m_state;
    mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
    return (mixed ^ (mixed >> 31U)) % limit;
}

void DurationSample::Add(Microseconds duration) {
    constexpr std::size_t mostKept = 400;
    ++m_seen;
    if (m_values.size() < mostKept) {
        m_values.push_back(duration);
        return;
    }
    const std::uint64_t place = m_random.Below(m_seen);
    if (place < mostKept) {
        m_values[place] = duration;
    }
}

double ChanceOfDifference(const std::vector<Microseconds>& a, const std::vector<Microseconds>& b) {
    constexpr int rounds = 1'999;
    constexpr int enough = 200;  // as great by chance: one in ten at the least
    if (a.empty() || b.empty()) {
        return 1;
    }
    std::vector<Microseconds> values = a;
    values.insert(values.end(), b.begin(), b.end());
    std::vector<std::int64_t> ranks = DoubledRanks(values);
    const bool isFirstSmaller = a.size() <= b.size();
    const std::size_t count = isFirstSmaller ? a.size() : b.size();
    const auto begin = isFirstSmaller ? ranks.begin() : ranks.end() - static_cast<int>(count);
    const std::int64_t observed =
        std::accumulate(begin, begin + static_cast<int>(count), std::int64_t{0});
    const auto expected = static_cast<std::int64_t>(count * (values.size() + 1));
    const std::int64_t distance = std::abs(observed - expected);
    FixedRandom random(values.size());
    int asGreat = 0;
    for (int round = 1; round <= rounds; ++round) {
        std::int64_t sum = 0;
        for (std::size_t index = 0; index < count; ++index) {
            std::swap(ranks[index], ranks[index + random.Below(ranks.size() - index)]);
            sum += ranks[index];
        }
        asGreat += std::abs(sum - expected) >= distance ? 1 : 0;
        if (asGreat == enough) {
            return static_cast<double>(enough) / round;
        }
    }
    return static_cast<double>(asGreat + 1) / (rounds + 1);
}

double LargestSignificant(std::vector<double> chances) {
    constexpr double falseOnes = 0.05;
    std::sort(chances.begin(), chances.end());
    double largest = -1;
    for (std::size_t index = 0; index < chances.size(); ++index) {
        const double limit =
            falseOnes * static_cast<double>(index + 1) / static_cast<double>(chances.size());
        largest = chances[index] <= limit ? chances[index] : largest;
    }
    return largest;
}

}  // namespace tarnview
