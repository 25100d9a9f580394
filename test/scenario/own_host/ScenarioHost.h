#pragma once

#include "CapturingSink.h"
#include "Threads.h"

#include "tarn/IMetricsMonitorSink.h"

#include "cvlsys/IntegerTypes.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tarn::test {

/// What a scenario asks of the host besides the declarations; here, of the example's, which has
/// exactly these. Afterwards the options and settings of the
/// scenarios are as they were.
class ScenarioHost : public testing::Test {
public:
    /// Microseconds since the beginning of the scenario, 1700000000 seconds after the epoch.
    using Clock = int64 (*)() noexcept;

    /// Allocates blocks of about a kilobyte, and releases some.
    static void AllocateAndFree(int allocations, int releases);

protected:
    ScenarioHost();
    ~ScenarioHost() override;

    /// The host has no memory for its next events.
    static void FailToEmit(int events);

    /// Has the bus read the time from a clock, and memory counted in every way.
    static void Begin(Clock clock);

    /// The JSON lines of what `work` gives to the sink.
    static std::vector<std::string> LinesOf(const std::function<void(IMetricsMonitorSink*)>& work);

    static CapturedEvents EventsOf(const std::function<void(IMetricsMonitorSink*)>& work);

private:
    struct Saved;

    std::unique_ptr<Saved> m_saved;
};

}  // namespace tarn::test
