#pragma once

#include "read/Timestamp.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnview {

/// Pseudo-random numbers that are the same in every run and on every machine.
class FixedRandom {
public:
    explicit FixedRandom(std::uint64_t seed) : m_state(seed) {}

    /// Less than `limit`, which is not 0.
    std::uint64_t Below(std::uint64_t limit);

private:
    std::uint64_t m_state;
};

/// A choice of up to 400 durations of many, each as likely as any other. A value.
class DurationSample {
public:
    void Add(Microseconds duration);

    const std::vector<Microseconds>& Values() const { return m_values; }

private:
    std::vector<Microseconds> m_values;
    std::uint64_t m_seen = 0;
    FixedRandom m_random{1};
};

/// How likely two samples of the same kind differ as much as these by chance, 0 to 1: the durations
/// of both are dealt out anew 1,999 times, and the sum of the ranks of the smaller sample is
/// compared with what it was. So it says whether one side is slower as a rule; a few extreme
/// durations do not count for more than others. Stops early when the answer is "very". 1 if a
/// sample is empty. The same for the same samples in every run.
double ChanceOfDifference(const std::vector<Microseconds>& a, const std::vector<Microseconds>& b);

/// Which of many chances are small enough that of those that are called significant at most one in
/// twenty is so by chance (Benjamini and Hochberg's procedure): the largest of them, or a negative
/// number if there is none.
double LargestSignificant(std::vector<double> chances);

}  // namespace tarnview
