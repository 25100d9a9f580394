#pragma once

#include "cvlsys/Export.h"
#include "cvlsys/IntegerTypes.h"

/// Processor time of the calling thread.
namespace corvala::cputime {

/// A span of processor time in microseconds. Each figure stops at its largest value rather than
/// wrapping (about 71 minutes).
struct ThreadTimeValue {
    uint32 kernel = 0;
    uint32 user = 0;
};

/// Whether processor times are taken at all (off at start). With tracking off a
/// `ThreadTimeScope` makes no system call and leaves its value alone.
CVLSYS_API bool GetCpuTrackingEnabled() noexcept;

/// Takes effect for scopes that start afterwards. Any thread may call it.
CVLSYS_API void SetCpuTrackingEnabled(bool enabled) noexcept;

/// Measures the processor time that its thread uses from construction to destruction, to the
/// microsecond, and writes it into the value at destruction. Construct and destroy it on one
/// thread; the value must outlive it.
class CVLSYS_API ThreadTimeScope {
public:
    explicit ThreadTimeScope(ThreadTimeValue& value) noexcept;
    ~ThreadTimeScope();
    ThreadTimeScope(const ThreadTimeScope&) = delete;
    ThreadTimeScope& operator=(const ThreadTimeScope&) = delete;

private:
    static constexpr int64 notMeasured = -1;

    // A host without processor times has no use for these.
    [[maybe_unused]] ThreadTimeValue& m_value;
    [[maybe_unused]] int64 m_kernelAtStart = notMeasured;
    [[maybe_unused]] int64 m_userAtStart = notMeasured;
};

}  // namespace corvala::cputime
