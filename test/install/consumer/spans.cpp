#include "tarn/ActivityScope.h"
#include "tarn/TracingSession.h"
#include "tarn/otlp/Exporter.h"

#include <chrono>
#include <cstdio>

// Nobody listens there: what counts is that it builds, runs, and ends in time.
int main() {
    const tarn::TracingSession session;
    tarn::otlp::Options options;
    options.url = "http://127.0.0.1:1/v1/traces";
    tarn::otlp::Exporter exporter(options);
    session.GetMonitor().SetSink(exporter.MakeSink());
    { const tarn::ActivityScope scope("work"); }
    exporter.Shutdown(std::chrono::milliseconds(100));
    const tarn::otlp::Statistics statistics = exporter.GetStatistics();
    std::printf("made %d span, lost %d\n",
                static_cast<int>(statistics.spans),
                static_cast<int>(statistics.Dropped()));
}
