// What a random id costs, and what it costs to begin: for each generator one id, and a fresh
// generator with its first id. From the root of the project:
//
//   g++ -O2 -std=c++20 -Isrc/cpp/declarations -Ihost/cvlsys/include -Ihost/cvlcoreplatform \
//       -Ihost/cvlsys docs/decisions/measurements/RandomIds.cpp host/cvlcoreplatform/TUUID.cpp \
//       host/cvlsys/*.cpp -lxxhash -lbenchmark -o /tmp/random-ids && /tmp/random-ids
#include "cvlcoreplatform/TUUID.h"

#include <thread>

#include <benchmark/benchmark.h>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>

namespace {

// Two ids in a row must be different and of version 4.
template <class MakeId>
void Measure(benchmark::State& state, const MakeId& makeId) {
    const auto first = makeId();
    const auto second = makeId();
    if (first == second) {
        state.SkipWithError("an id came twice");
        return;
    }
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(makeId());
    }
}

void OwnNext(benchmark::State& state) {
    Measure(state, [] { return TUUID::CreateUUID(); });
}

void Mt19937Next(benchmark::State& state) {
    boost::uuids::random_generator_mt19937 generator;
    Measure(state, [&] { return generator(); });
}

void SystemNext(benchmark::State& state) {
    boost::uuids::random_generator_pure generator;
    Measure(state, [&] { return generator(); });
}

void Mt19937Fresh(benchmark::State& state) {
    Measure(state, [] { return boost::uuids::random_generator_mt19937()(); });
}

void SystemFresh(benchmark::State& state) {
    Measure(state, [] { return boost::uuids::random_generator_pure()(); });
}

// A thread that makes one id, and a thread that makes none to compare with.
void OwnFirstOfAThread(benchmark::State& state) {
    for ([[maybe_unused]] auto round : state) {
        std::thread([] { benchmark::DoNotOptimize(TUUID::CreateUUID()); }).join();
    }
}

void ThreadAlone(benchmark::State& state) {
    for ([[maybe_unused]] auto round : state) {
        std::thread([] {}).join();
    }
}

void Text(benchmark::State& state) {
    const TUUID id = TUUID::CreateUUID();
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(id.ToString());
    }
}

BENCHMARK(OwnNext);
BENCHMARK(Mt19937Next);
BENCHMARK(SystemNext);
BENCHMARK(Mt19937Fresh);
BENCHMARK(SystemFresh);
BENCHMARK(OwnFirstOfAThread)->MeasureProcessCPUTime();
BENCHMARK(ThreadAlone)->MeasureProcessCPUTime();
BENCHMARK(Text);

}  // namespace

BENCHMARK_MAIN();
