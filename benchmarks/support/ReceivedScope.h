#pragma once

#include "support/AllocationCounter.h"
#include "support/TracingUnderTest.h"

#include "tarn/ActivityScope.h"

#include "cvlsys/IntegerTypes.h"

#include <string>

#include <benchmark/benchmark.h>

namespace benchmarks {

/// Measures a scope with three short text attributes that somebody receives, inside `depth` open
/// parents (the first argument), on every thread of the benchmark. The benchmark fails unless each
/// scope brought exactly its two events, and the attributes are in them.
inline void MeasureReceivedScope(benchmark::State& state) {
    TracingUnderTest& tracing = TracingUnderTest::Get();
    const OpenParents parents(state.range(0));
    tracing.Rendezvous();
    // The loop below begins and ends for all threads together, and nobody traces around it until
    // the second rendezvous: what the first thread counts belongs to the loop.
    const uint64 eventsBefore = state.thread_index() == 0 ? tracing.Events() : 0;
    const uint64 allocationsBefore = AllocationsOfThisThread();

    for ([[maybe_unused]] auto iteration : state) {
        const tarn::ActivityScope scope("measured", ThreeAttributes());
    }

    ReportAllocations(state, allocationsBefore);
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) {
        const auto scopes =
            static_cast<uint64>(state.iterations()) * static_cast<uint64>(state.threads());
        Expect(state, "log events", 2 * scopes, tracing.Events() - eventsBefore);
        const std::string line = tracing.LineOfProbe("measured", ThreeAttributes());
        ExpectPart(state, line, "\"depth\":" + std::to_string(state.range(0)));
        for (const char* attribute :
             {R"("table":"packages")", R"("order":"by name")", R"("client":"browser")"}) {
            ExpectPart(state, line, attribute);
        }
    }
    tracing.Rendezvous();
}

}  // namespace benchmarks
