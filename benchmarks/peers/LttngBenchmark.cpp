// What does LTTng-UST take for two binary records for each scope, with one random id? A program of
// its own, for the library starts threads in whatever links it. The session is somebody else's:
// scripts/bench sets one up and counts what has come into it.

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "peers/LttngTracepoints.h"
#include "peers/RandomId.h"
#include "support/Measure.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

// Batches end with a pause, in which the session's daemon empties the buffers.
constexpr std::chrono::milliseconds pauseForDaemon{2};

std::optional<EmittingThreads> g_threads;

void Start(const benchmark::State& state) {
    g_threads.emplace(state.threads());
}

void LttngScope(benchmark::State& state) {
    if (!lttng_ust_tracepoint_enabled(tarn_benchmark, scope_begin) ||
        !lttng_ust_tracepoint_enabled(tarn_benchmark, scope_end)) {
        state.SkipWithError("no session records the events tarn_benchmark:*");
        return;
    }
    RandomIds ids;

    MeasureHandedOver(
        state,
        *g_threads,
        scopesInBatch,
        [] {},
        [&] {
            const RandomId id = ids.Next();
            lttng_ust_tracepoint(tarn_benchmark,
                                 scope_begin,
                                 id.high,
                                 id.low,
                                 "measured",
                                 "packages",
                                 "by name",
                                 "browser");
            lttng_ust_tracepoint(tarn_benchmark, scope_end, id.high, id.low, "measured");
        },
        [] { std::this_thread::sleep_for(pauseForDaemon); });
}

// A fixed number, so that the script knows how many records it must find.
BENCHMARK(LttngScope)->Setup(Start)->Iterations(100)->Threads(1)->Threads(2)->UseManualTime();

}  // namespace
}  // namespace benchmarks
