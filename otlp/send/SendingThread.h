#pragma once

#include "encode/LineEncoder.h"
#include "send/BatchSender.h"
#include "send/LossReport.h"
#include "send/SpanQueue.h"
#include "send/StopSignal.h"

#include "tarn/otlp/Options.h"
#include "tarn/otlp/Statistics.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace tarn::otlp {

/// Makes the transport on the thread that will use it.
using MakeTransport =
    std::function<std::unique_ptr<Transport>(const Options&, const SpanEncoder&, StopSignal&)>;

/// A thread that sends spans, with the queue in which they wait for it. Any thread may call it. The
/// thread blocks all signals, and starts with the first span.
class SendingThread {
public:
    using Clock = std::chrono::steady_clock;

    SendingThread(const Options& options, MakeTransport makeTransport);

    /// As Shutdown() with the deadline of the options, unless that was called.
    ~SendingThread();

    SendingThread(const SendingThread&) = delete;
    SendingThread& operator=(const SendingThread&) = delete;

    /// Never waits for the network. A span for which there is no room is dropped.
    void Add(EncodedSpan&& span) noexcept;

    /// Sends what waits, and waits until all that was added before is sent or dropped; false if
    /// that is not so at `end`. Does not shorten the waits between tries.
    bool Flush(Clock::time_point end) noexcept;

    /// As Flush(), and ends the thread; what is left is dropped. A receiver that hangs is broken
    /// off.
    bool Shutdown(Clock::time_point end) noexcept;

    Statistics GetStatistics() const noexcept;

private:
    struct State;

    static void Run(const std::shared_ptr<State>& state);
    bool StartThread() noexcept;

    std::shared_ptr<State> m_state;
};

}  // namespace tarn::otlp
