// What it costs to hand a text on: shared characters beside a string that owns them, and beside the
// same text as bytes that must be changed to UTF-16 at a border between libraries. From the root of
// the project:
//
//   g++ -O2 -std=c++20 -Isrc/cpp/declarations -Ihost/cvlsys/include -Ihost/cvlsys \
//       docs/decisions/measurements/Texts.cpp host/cvlsys/*.cpp -lxxhash -lbenchmark \
//       -o /tmp/texts && /tmp/texts
#include "cvlsys/TStringCore.h"

#include <string>

#include <benchmark/benchmark.h>

namespace {

constexpr const char16_t* id = u"6E0E4F0B-2C57-4A11-8A0B-6A5F1B7C9D21";

template <class Text>
void Copy(benchmark::State& state) {
    const Text text(id);
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(Text(text));
    }
    if (Text(text) != Text(id)) {
        state.SkipWithError("the copy is another text");
    }
}

template <class Text>
void Make(benchmark::State& state) {
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(Text(id));
    }
}

void ChangeEncodingAtABorder(benchmark::State& state) {
    const std::string utf8 = TStringCore(id).ToUtf8();
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(TStringCore(utf8));
    }
}

BENCHMARK(Copy<TStringCore>);
BENCHMARK(Copy<std::u16string>);
BENCHMARK(Make<TStringCore>);
BENCHMARK(Make<std::u16string>);
BENCHMARK(ChangeEncodingAtABorder);

}  // namespace

BENCHMARK_MAIN();
