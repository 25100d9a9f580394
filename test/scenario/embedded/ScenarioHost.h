#pragma once

#include "CapturingSink.h"
#include "TarnTest.h"

#include "tarn/IMetricsMonitorSink.h"

#include "cvlsys/IntegerTypes.h"

#include <functional>
#include <string>
#include <vector>

namespace tarn::test {

/// What a scenario asks of the host besides the declarations; here, of the embedded one. Each host
/// that the scenarios run on has such a class.
class ScenarioHost : public TarnTest {
public:
    /// Microseconds since the beginning of the scenario, 1700000000 seconds after the epoch.
    using Clock = int64 (*)() noexcept;

    /// As if the calling thread allocated blocks of about a kilobyte, and released some.
    static void AllocateAndFree(int allocations, int releases);

protected:
    /// Has the bus read the time from a clock, and memory counted in every way.
    static void Begin(Clock clock);

    /// The JSON lines of what `work` gives to the sink.
    static std::vector<std::string> LinesOf(const std::function<void(IMetricsMonitorSink*)>& work);

    static CapturedEvents EventsOf(const std::function<void(IMetricsMonitorSink*)>& work);
};

}  // namespace tarn::test
