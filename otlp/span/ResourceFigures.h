#pragma once

namespace tarn::otlp {

/// What an activity has used. The figures of a group that was not measured mean nothing.
struct ResourceFigures {
    bool hasAllocated = false;
    double allocatedInclusive = 0;  ///< bytes
    double allocatedExclusive = 0;
    bool hasPeak = false;
    double peak = 0;  ///< bytes in use at once
    bool hasReleased = false;
    double releasedInclusive = 0;  ///< bytes
    double releasedExclusive = 0;
    bool hasCpu = false;
    double cpuInclusive = 0;  ///< microseconds
    double cpuExclusive = 0;
    bool hasThreads = false;
    double threads = 0;
};

}  // namespace tarn::otlp
