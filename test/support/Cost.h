#pragma once

#include <algorithm>
#include <ctime>
#include <limits>

namespace tarn::test {

/// The processor time, in seconds, that the calling thread needs for `work` at least: the shortest
/// of several runs, so that what else the machine does counts little. For comparing two sizes of
/// the same work within one test.
template <class Work>
double LeastCostOf(int runs, const Work& work) {
    const auto threadTime = [] {
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
    };
    double least = std::numeric_limits<double>::max();
    for (int run = 0; run < runs; ++run) {
        const double begin = threadTime();
        work();
        least = std::min(least, threadTime() - begin);
    }
    return least;
}

}  // namespace tarn::test
