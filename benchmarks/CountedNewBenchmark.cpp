// What does it cost to count allocations: with TMalloc and TFree, and with the operators new and
// delete of tarn::counted_new? A program of its own, for that replaces the operators; the ones of
// the C++ library are still there behind them, and all are measured in one run.

#include "cvlsys/MemoryTracking.h"
#include "cvlsys/TAllocate.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <new>

#include <benchmark/benchmark.h>

namespace benchmarks {
namespace {

using corvala::memory::MemoryTrackingMode;

struct Functions {
    void* (*allocate)(std::size_t bytes);
    void (*release)(void* block);
};

Functions MallocAndFree() {
    return {&std::malloc, &std::free};
}

Functions CountedMallocAndFree() {
    return {&TMalloc, &TFree};
}

Functions CountedNewAndDelete() {
    return {static_cast<void* (*)(std::size_t)>(&::operator new),
            static_cast<void (*)(void*)>(&::operator delete)};
}

/// Those that the program would have without the target.
Functions NewAndDelete() {
    return {reinterpret_cast<void* (*)(std::size_t)>(dlsym(RTLD_NEXT, "_Znwm")),
            reinterpret_cast<void (*)(void*)>(dlsym(RTLD_NEXT, "_ZdlPv"))};
}

struct Variant {
    const char* name;
    Functions (*functions)();
    bool isCounted;
    MemoryTrackingMode mode;
    bool hasFrame;  ///< a scope that measures is open
};

constexpr Variant variants[] = {
    {"MallocFree/plain", MallocAndFree, false, corvala::memory::MemoryTrackingOff, false},
    {"MallocFree/counted/off",
     CountedMallocAndFree,
     true,
     corvala::memory::MemoryTrackingOff,
     false},
    {"MallocFree/counted/allocations",
     CountedMallocAndFree,
     true,
     corvala::memory::MemoryTrackingAllocations,
     true},
    {"MallocFree/counted/all",
     CountedMallocAndFree,
     true,
     corvala::memory::MemoryTrackingAll,
     true},
    {"NewDelete/plain", NewAndDelete, false, corvala::memory::MemoryTrackingOff, false},
    {"NewDelete/counted/off", CountedNewAndDelete, true, corvala::memory::MemoryTrackingOff, false},
    {"NewDelete/counted/allocations",
     CountedNewAndDelete,
     true,
     corvala::memory::MemoryTrackingAllocations,
     true},
    {"NewDelete/counted/all/noscope",
     CountedNewAndDelete,
     true,
     corvala::memory::MemoryTrackingAll,
     false},
    {"NewDelete/counted/all", CountedNewAndDelete, true, corvala::memory::MemoryTrackingAll, true},
};

// All are called alike, and instructions can be counted within this function.
[[gnu::noinline]] void AllocateAndRelease(const Functions& functions, std::size_t bytes) {
    void* const block = functions.allocate(bytes);
    benchmark::DoNotOptimize(block);
    functions.release(block);
}

std::uint64_t ExpectedAllocations(const Variant& variant, std::uint64_t calls) {
    return variant.isCounted && variant.hasFrame ? calls : 0;
}

void Measure(benchmark::State& state, const Variant& variant) {
    const Functions functions = variant.functions();
    const auto bytes = static_cast<std::size_t>(state.range(0));
    if (functions.allocate == nullptr || functions.release == nullptr ||
        NewAndDelete().allocate == CountedNewAndDelete().allocate) {
        state.SkipWithError("there are no two pairs of operators to compare");
        return;
    }
    corvala::memory::SetMemoryTrackingMode(variant.mode);
    corvala::memory::ThreadMemoryCounters frame;
    frame.parentThreadMemoryCounters =
        corvala::memory::SwapPushMemoryCounters(variant.hasFrame ? &frame : nullptr);

    for ([[maybe_unused]] auto iteration : state) {
        AllocateAndRelease(functions, bytes);
    }

    corvala::memory::SwapPopMemoryCounters(frame.parentThreadMemoryCounters);
    const std::uint64_t expected =
        ExpectedAllocations(variant, static_cast<std::uint64_t>(state.iterations()));
    if (frame.allocatedCount != expected || frame.allocated < expected * bytes ||
        frame.deallocatedCount !=
            (variant.mode == corvala::memory::MemoryTrackingAll ? expected : 0)) {
        state.SkipWithError("what was counted is not what was done");
    }
}

/// Fixed when instructions are counted from outside.
std::int64_t IterationsFromEnvironment() {
    const char* const text = std::getenv("TARN_BENCHMARK_ITERATIONS");
    return text != nullptr ? std::strtoll(text, nullptr, 10) : 0;
}

void RegisterAll() {
    const std::int64_t iterations = IterationsFromEnvironment();
    for (const Variant& variant : variants) {
        auto* const registered = benchmark::RegisterBenchmark(
            variant.name, [&variant](benchmark::State& state) { Measure(state, variant); });
        registered->RangeMultiplier(4)->Range(16, 4096)->Threads(1)->Threads(2);
        if (iterations > 0) {
            registered->Iterations(iterations);
        }
    }
}

}  // namespace
}  // namespace benchmarks

int main(int argc, char** argv) {
    benchmarks::RegisterAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
