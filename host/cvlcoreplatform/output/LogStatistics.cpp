#include "LogCounters.h"

#include "cvlcoreplatform/host/LoggerControl.h"

namespace cvlcoreplatform {

constinit LogCounters logCounters;

}  // namespace cvlcoreplatform

namespace TLog {

LogStatistics GetLogStatistics() noexcept {
    const auto read = [](const std::atomic<uint64>& counter) {
        return counter.load(std::memory_order_relaxed);
    };
    const cvlcoreplatform::LogCounters& counters = cvlcoreplatform::logCounters;
    LogStatistics statistics;
    statistics.lines = read(counters.lines);
    statistics.bytes = read(counters.bytes);
    statistics.writeErrors = read(counters.writeErrors);
    statistics.rotations = read(counters.rotations);
    statistics.reopenings = read(counters.reopenings);
    statistics.rotationErrors = read(counters.rotationErrors);
    statistics.backEndExceptions = read(counters.backEndExceptions);
    statistics.nestedCalls = read(counters.nestedCalls);
    return statistics;
}

}  // namespace TLog
