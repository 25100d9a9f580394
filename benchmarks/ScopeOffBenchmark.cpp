// What does a scope cost whose name is switched off, together with a thousand other names, while
// a monitor listens to all others?

#include "support/AllocationCounter.h"
#include "support/TracingUnderTest.h"

#include "tarn/ActivityScope.h"
#include "tarn/TarnSettings.h"

#include "cvlsys/IntegerTypes.h"

#include <string>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

constexpr const char* switchedOff = "switched-off";

void SwitchOff(const benchmark::State& state) {
    TracingUnderTest::Start<Receiver::NullSink>(state);
    tarn::TarnSettings::Names names{switchedOff};
    for (int number = 0; number < 1000; ++number) {
        names.insert("other-activity-" + std::to_string(number));
    }
    tarn::TarnSettings::GetInstance().SetOffs(names);
}

void SwitchOn(const benchmark::State& state) {
    tarn::TarnSettings::GetInstance().SetOffs({});
    TracingUnderTest::Stop(state);
}

template <class MakeScope>
void MeasureScopeThatIsOff(benchmark::State& state, MakeScope makeScope) {
    TracingUnderTest& tracing = TracingUnderTest::Get();
    const OpenParents parents(state.range(0));
    tracing.Rendezvous();
    const uint64 eventsBefore = state.thread_index() == 0 ? tracing.Events() : 0;
    const uint64 openedBefore = tracing.ScopesOpened();
    const uint64 allocationsBefore = AllocationsOfThisThread();

    for ([[maybe_unused]] auto iteration : state) {
        makeScope();
    }

    ReportAllocations(state, allocationsBefore);
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) {
        Expect(state, "log events", 0, tracing.Events() - eventsBefore);
        Expect(state, "scopes opened in the monitor", 0, tracing.ScopesOpened() - openedBefore);
        // The monitor does listen.
        ExpectPart(state, tracing.LineOfProbe("switched-on", {}), "begin-switched-on");
    }
    tracing.Rendezvous();
}

void ScopeOffNameOnly(benchmark::State& state) {
    MeasureScopeThatIsOff(state, [] { const tarn::ActivityScope scope(switchedOff); });
}

void ScopeOffThreeAttributes(benchmark::State& state) {
    MeasureScopeThatIsOff(state,
                          [] { const tarn::ActivityScope scope(switchedOff, ThreeAttributes()); });
}

void WithDepthsAndThreads(benchmark::internal::Benchmark* benchmark) {
    benchmark->Setup(SwitchOff)
        ->Teardown(SwitchOn)
        ->ArgName("depth")
        ->Arg(1)
        ->Arg(64)
        ->Threads(1)
        ->Threads(2)
        ->UseRealTime();
}

BENCHMARK(ScopeOffNameOnly)->Apply(WithDepthsAndThreads);
BENCHMARK(ScopeOffThreeAttributes)->Apply(WithDepthsAndThreads);

}  // namespace
}  // namespace benchmarks
