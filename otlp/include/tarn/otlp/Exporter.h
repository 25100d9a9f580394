#pragma once

#include "tarn/IMetricsMonitorSink.h"
#include "tarn/otlp/Export.h"
#include "tarn/otlp/Options.h"
#include "tarn/otlp/Statistics.h"

#include <chrono>
#include <memory>
#include <vector>

namespace tarn::otlp {

/// Sends the activities of a monitor to a receiver of OpenTelemetry's OTLP, over HTTP. An activity
/// becomes a span when it has ended:
///
///     const tarn::TracingSession session;
///     tarn::otlp::Exporter exporter;
///     session.GetMonitor().SetSink(exporter.MakeSink());
///
/// Events become spans where they are delivered, and are sent on the exporter's own thread, which
/// blocks all signals. Threads that trace never wait for the network: what finds no room is
/// dropped and counted. Any thread may call it. A forked child has a thread, a connection and
/// statistics of its own, and sends nothing that its parent has in its queue.
///
/// Make it in main, not as a static object: at exit, others destroy what it uses.
class TARN_OTLP_EXPORT Exporter {
public:
    /// Throws `std::bad_alloc`.
    explicit Exporter(Options options = OptionsFromEnvironment());

    /// As Shutdown() with the deadline of the options.
    ~Exporter();

    Exporter(const Exporter&) = delete;
    Exporter& operator=(const Exporter&) = delete;

    /// A sink for a monitor, one in all. It may live longer than the exporter; spans are dropped
    /// then. `next` gets each event first: `std::make_unique<MetricsMonitor::LogSink>()` keeps the
    /// log. What it throws the sink throws.
    std::unique_ptr<IMetricsMonitorSink> MakeSink(
        std::unique_ptr<IMetricsMonitorSink> next = nullptr);

    /// Delivers what was emitted before, and waits until its spans are sent or dropped; false if
    /// that takes longer than `deadline`. It does not shorten the waits between tries.
    bool Flush(std::chrono::milliseconds deadline) noexcept;

    /// The same, and ends the sending thread. What is not sent by then, or comes later, is dropped
    /// and counted. Returns whether nothing was dropped.
    bool Shutdown(std::chrono::milliseconds deadline) noexcept;

    Statistics GetStatistics() const noexcept;

    /// The activities that have been open for at least `age`, the oldest first. Throws
    /// `std::bad_alloc`.
    std::vector<OpenActivityInfo> ListOpen(std::chrono::microseconds age = {}) const;

private:
    struct __attribute__((visibility("hidden"))) State;
    class __attribute__((visibility("hidden"))) Sink;

    std::shared_ptr<State> m_state;
};

}  // namespace tarn::otlp
